/** @file
 * The sensor-system backend: the part of the server that handles the `k330` sensors.
 *
 * Calling order: zet_vantor_server_system_init once, and other functions only if it returned true; for each
 * session zet_vantor_server_system_parse_configuration, zet_vantor_server_system_send_session_metadata,
 * zet_vantor_server_system_read_data_frames any number of times, then
 * zet_vantor_server_system_destroy_session (also after a failed parse); zet_vantor_server_system_deinit last.
 * The queries may be called at any time after init. Everything runs on one thread.
 *
 * An operation with an `error_msg` argument stores one of the constants of
 * zet_vantor_server_error_messages.h there when it fails. It never clears the argument, and a few failures
 * are only logged and store nothing.
 */
#ifndef ZET_VANTOR_SERVER_SYSTEM_K330_H
#define ZET_VANTOR_SERVER_SYSTEM_K330_H

#include <stdbool.h>
#include <stdint.h>

#include <cjson/cJSON.h>

#include "zet_cpd_k330_meas_session_generated.h"
#include "zet_definitions_common.h"
#include "zet_vantor_server_base.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Writes one parameter of the measurement-session parameter block: the low 16 bits of the value. */
typedef void (*set_cpd_param_func)(zet_cpd_k330_meas_session_parameters_t *program_parameters,
                                   uint32_t value);

/** One parameter that the host can override. */
typedef struct
{
    const char *name;            /**< key in the configuration document and name in the log */
    set_cpd_param_func set_func; /**< writes the parameter */
} cpd_override_mapping_t;

/** The parameters that the host can override, in the order in which they are applied. */
extern const cpd_override_mapping_t cpd_override_mappings[6];

/**
 * Starts the backend: makes cJSON use the board's allocator, registers the board with the sensor library,
 * allocates everything that depends on the number of sensors, and finds out which sensors are connected.
 * Every sensor is left powered off.
 *
 * @param nox_log_level  threshold of the sensor library's log
 * @return false on failure, which is logged; zet_vantor_server_system_deinit then releases what was
 *         allocated
 */
bool zet_vantor_server_system_init(zet_log_level_t nox_log_level);

/** Releases what zet_vantor_server_system_init allocated. To be called after the last session has ended. */
void zet_vantor_server_system_deinit(void);

/** Ends a session: releases everything that belongs to it and powers its sensors off. */
void zet_vantor_server_system_destroy_session(void);

/** Returns whether no frame rate is configured, so that the server decides when a frame is measured. */
bool zet_vantor_server_system_is_on_demand(void);

/** Returns the name of the sensor model. */
const char *zet_vantor_server_system_get_sensor_name(void);

/**
 * Returns whether a sensor was found when the server started.
 *
 * @param sensor_id  any number; the result is false for one that is not a position of the board
 */
bool zet_vantor_server_system_is_sensor_connected(zet_sensor_id_t sensor_id);

/**
 * Runs a diagnostics test. This backend has none, so the call always fails.
 *
 * @return false
 */
bool zet_vantor_server_system_execute_diagnostics_test(const cJSON *input,
                                                       const vantor_server_interface_t *server_if);

/** Returns the number of sensor positions on the board. */
uint32_t zet_vantor_server_system_k3_get_sensor_count(void);

/**
 * Reads a configuration document and sets the session up: sensors powered, calibrated and prepared.
 *
 * On failure everything created so far is kept; zet_vantor_server_system_destroy_session releases it.
 *
 * @param input            root of the document; only read during the call
 * @param max_update_rate  receives the requested update rate in hertz, or -1.0 when there is none
 * @param error_msg        receives a message on failure. It may also be set when the result is true: when
 *                         an item failed but a later item of its group did not
 * @return true when the document was accepted
 */
bool zet_vantor_server_system_parse_configuration(const cJSON *input, float *max_update_rate,
                                                  const char **error_msg);

/**
 * Sends the session metadata message: calibrations and the layout of every item's frames.
 *
 * @param write_function  sends to the host
 * @param tick_period     reported to the host unchanged
 * @return false when the message could not be built (nothing is sent) or could not be sent
 */
bool zet_vantor_server_system_send_session_metadata(write_data_function_t *write_function,
                                                    uint32_t tick_period);

/**
 * Measures one frame of the complete session and sends it.
 *
 * @param server_if  the link to send the frame to and the clock; null to only prepare the sensors
 * @param error_msg  receives a message on failure
 * @return false on failure; then nothing has been sent, or only a part of the header
 */
bool zet_vantor_server_system_read_data_frames(const vantor_server_interface_t *server_if,
                                               const char **error_msg);

#ifdef __cplusplus
}
#endif

#endif
