/** @file
 * Sensors: presence check, calibration, preparation and measurement of frames.
 *
 * All functions are called on the server's only thread, never from an interrupt, and none while another one
 * runs. They block only for their transfers and calculations: calibrate and measure return before the
 * sensor has done its work, and the server waits for the sensor's interrupt.
 *
 * The calls for one sensor in a session, after its supply and its enable line have been switched on:
 *
 * 1. zet_sensor_create
 * 2. without a stored calibration: zet_sensor_calibrate and a wait for the interrupt, alternating, until
 *    the calibration is complete; then a reset with the enable line
 * 3. zet_sensor_prepare for each of its configurations, and again before each frame for which the sensor
 *    needs another configuration than the last one, or a changed one
 * 4. for each frame: zet_sensor_measure, a wait for the interrupt, zet_sensor_read
 * 5. zet_sensor_destroy; then the sensor is switched off
 *
 * Calls for several sensors are interleaved: first all sensors of a group are prepared, then all are started,
 * then all are waited for, then all are read.
 *
 * After an error in one item of a configuration the server goes through the remaining items before it ends
 * the session. Until then it can call zet_sensor_calibrate and zet_sensor_prepare for a sensor that is
 * switched off, and zet_sensor_prepare also with an invalid configuration, an incomplete calibration or a
 * null buffer: they must return false then, and do no harm.
 */
#ifndef ZET_SENSOR_H
#define ZET_SENSOR_H

#include <stdbool.h>
#include <stdint.h>

#include "zet_config.h"
#include "zet_definitions_common.h"
#include "zet_definitions_k330.h"

#ifdef __cplusplus
extern "C" {
#endif

/** One sensor in use; created and destroyed by the library only. */
typedef struct zet_sensor zet_sensor_t;

/**
 * Creates the handle of a sensor, which is powered and enabled. A sensor has at most one handle at a time.
 *
 * @param sensor_id  the sensor, 1 to the board's sensor count
 * @return the handle, owned by the caller, to be destroyed with zet_sensor_destroy; null when the sensor does
 *         not answer or memory is exhausted: the server then switches the sensor off
 */
zet_sensor_t *zet_sensor_create(zet_sensor_id_t sensor_id);

/**
 * Frees a handle. Cannot fail.
 *
 * The configurations and buffers that were used with it have already been freed, and must not be accessed.
 * After an error the sensor may be switched off, or still be measuring or calibrating; in each case the
 * server switches it off afterwards.
 *
 * @param sensor  the handle; null is allowed and does nothing
 */
void zet_sensor_destroy(zet_sensor_t *sensor);

/**
 * Runs one step of a calibration.
 *
 * A calibration takes several steps: while @p cal_complete is false after a successful call, the sensor
 * raises its interrupt once when the step is done, and the server then calls again with the same arguments.
 * It gives each step at least a second. No function is called for another sensor in the meantime.
 *
 * After the last step, a failure or a time-out the server resets the sensor with its enable line. No function
 * ends a calibration early; the reset does this.
 *
 * @param sensor        the sensor
 * @param cal_complete  set by every call: to true when the calibration is done, otherwise to false
 * @param cal_result    the calibration result: all zero at the first step, kept by the caller during all
 *                      steps, complete when @p cal_complete is true
 * @param buffer        work buffer, kept by the caller, with its contents, during all steps
 * @param buffer_size   its size in bytes, from zet_nox_get_buffer_size
 * @return false on failure
 */
bool zet_sensor_calibrate(zet_sensor_t *sensor, bool *cal_complete, zet_cal_result_t *cal_result,
                          void *buffer, uint32_t buffer_size);

/**
 * Loads a configuration into the sensor and replaces the previous one. The sensor is idle: it neither
 * measures nor calibrates.
 *
 * Before it returns, it offers the measurement-session parameter block to the probe
 * ZET_PROBE_ID_MEAS_SESSION_PARAMETERS and uses the values that the callback has left in it.
 *
 * @param sensor       the sensor
 * @param config       the configuration; stays valid as long as it is used for measurements; a change takes
 *                     effect at the next prepare
 * @param cal_result   a complete calibration of this sensor, or one that the host has sent back and
 *                     zet_sensor_validate_calibration has accepted; unchanged as long as the handle exists
 * @param buffer       work buffer, used during the call
 * @param buffer_size  its size in bytes, from zet_nox_get_buffer_size for @p config
 * @return false on failure; the sensor is not prepared then
 */
bool zet_sensor_prepare(zet_sensor_t *sensor, const zet_config_t *config, const zet_cal_result_t *cal_result,
                        void *buffer, uint32_t buffer_size);

/**
 * Starts the measurement of one frame, and returns.
 *
 * The sensor raises its interrupt once, when the frame can be read; it may do so before the call returns.
 * With a frame rate the sensor itself decides when the frame begins, up to a frame period later.
 *
 * @param sensor  a prepared sensor whose last frame has been read; even with double buffering the server
 *                reads each frame before it starts the next one
 * @return false on failure
 */
bool zet_sensor_measure(zet_sensor_t *sensor);

/**
 * Reads the measured frame. Called once for each measurement, after its interrupt.
 *
 * @param sensor       the sensor, which has measured a frame and raised its interrupt
 * @param buffer       receives the frame in the sensor's format, for zet_processing_cca_check and
 *                     zet_processing_execute
 * @param buffer_size  its size in bytes, from zet_nox_get_buffer_size
 * @return false on failure; the contents of the buffer are not used then
 */
bool zet_sensor_read(const zet_sensor_t *sensor, void *buffer, uint32_t buffer_size);

/**
 * Logs the sensor's internal state. Cannot fail.
 *
 * Called after every prepare, measure, wait for the interrupt, read and clear-channel check that has failed,
 * in any state of the sensor, even when it is switched off.
 *
 * @param sensor  the sensor
 */
void zet_sensor_status(const zet_sensor_t *sensor);

/**
 * Returns whether a sensor answers at a position of the board.
 *
 * Called once for each position when the server starts; the position is powered and enabled and has no
 * handle. A position without a sensor is normal: configurations that use it are refused.
 *
 * @param sensor_id  the position, 1 to the board's sensor count
 */
bool zet_sensor_connected(zet_sensor_id_t sensor_id);

/**
 * Extracts information about a calibration from its result. Needs no sensor.
 *
 * @param cal_result  the calibration result; not changed
 * @param cal_info    receives the information; unchanged on failure
 * @return false when the result is damaged or incomplete
 */
bool zet_sensor_get_cal_info(const zet_cal_result_t *cal_result, zet_cal_info_t *cal_info);

/**
 * Returns whether a calibration result that the host has sent back may be used. Needs no sensor.
 *
 * The data comes from outside and can be anything. It may be the result of another sensor; zet_sensor_prepare
 * decides what happens then.
 *
 * @param cal_result  the calibration result; not changed
 */
bool zet_sensor_validate_calibration(const zet_cal_result_t *cal_result);

#ifdef __cplusplus
}
#endif

#endif
