/** @file
 * Sensors: from the power-on check to a measured frame.
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
 * Creates the handle of a sensor, which must be powered and enabled.
 *
 * @param sensor_id  the sensor, 1 to the board's sensor count
 * @return the handle, owned by the caller; null when the sensor does not answer or memory is exhausted
 */
zet_sensor_t *zet_sensor_create(zet_sensor_id_t sensor_id);

/**
 * Frees a handle.
 *
 * @param sensor  the handle; null is allowed and does nothing
 */
void zet_sensor_destroy(zet_sensor_t *sensor);

/**
 * Takes one step of a calibration.
 *
 * A calibration takes several steps: while @p cal_complete is false after a successful call, wait for the
 * sensor's interrupt and call again with the same arguments. After the last step, or a failure, the
 * sensor must be reset by its enable line before it is prepared.
 *
 * @param sensor        the sensor
 * @param cal_complete  set to true when the calibration is done, else to false
 * @param cal_result    the calibration result, whole when @p cal_complete is true
 * @param buffer        work buffer, needed by every step
 * @param buffer_size   its size in bytes, as given by zet_nox_get_buffer_size
 * @return false on failure
 */
bool zet_sensor_calibrate(zet_sensor_t *sensor, bool *cal_complete, zet_cal_result_t *cal_result,
                          void *buffer, uint32_t buffer_size);

/**
 * Loads a configuration into the sensor.
 *
 * While it does so it offers the measurement-session parameter block to the probe
 * ZET_PROBE_ID_MEAS_SESSION_PARAMETERS and uses what the callback left in it.
 *
 * @param sensor       the sensor, powered and enabled
 * @param config       the configuration; must stay valid while it is measured with, and a change of
 *                     it takes effect at the next prepare
 * @param cal_result   a complete calibration of this sensor
 * @param buffer       work buffer
 * @param buffer_size  its size in bytes, as given by zet_nox_get_buffer_size for @p config
 * @return false on failure
 */
bool zet_sensor_prepare(zet_sensor_t *sensor, const zet_config_t *config, const zet_cal_result_t *cal_result,
                        void *buffer, uint32_t buffer_size);

/**
 * Starts one measurement, that is one frame. The sensor's interrupt tells when it is done.
 *
 * @param sensor  a prepared sensor
 * @return false on failure
 */
bool zet_sensor_measure(zet_sensor_t *sensor);

/**
 * Reads the measured frame.
 *
 * @param sensor       the sensor, measured and signalled
 * @param buffer       receives the frame in the sensor's own form, for zet_processing_execute
 * @param buffer_size  its size in bytes, as given by zet_nox_get_buffer_size
 * @return false on failure
 */
bool zet_sensor_read(const zet_sensor_t *sensor, void *buffer, uint32_t buffer_size);

/**
 * Logs the sensor's internal state. Meant to be called after a failure.
 *
 * @param sensor  the sensor
 */
void zet_sensor_status(const zet_sensor_t *sensor);

/**
 * Tells whether a sensor answers at a position of the board. It must be powered and enabled.
 *
 * @param sensor_id  the position, 1 to the board's sensor count
 */
bool zet_sensor_connected(zet_sensor_id_t sensor_id);

/**
 * Extracts what a calibration result tells about itself.
 *
 * @param cal_result  the calibration result
 * @param cal_info    receives the information; unchanged on failure
 * @return false when the result is not a whole calibration
 */
bool zet_sensor_get_cal_info(const zet_cal_result_t *cal_result, zet_cal_info_t *cal_info);

/**
 * Tells whether a calibration result that was stored elsewhere may be used.
 *
 * @param cal_result  the calibration result
 */
bool zet_sensor_validate_calibration(const zet_cal_result_t *cal_result);

#ifdef __cplusplus
}
#endif

#endif
