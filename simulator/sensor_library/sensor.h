/** @file
 * The record behind a sensor handle.
 */
#ifndef ZET_SIMULATOR_SENSOR_H
#define ZET_SIMULATOR_SENSOR_H

#include "sensor_library/library.h"
#include "sensor_library/schedule.h"
#include "zet_sensor.h"

namespace zet_simulator
{

/** Finds the sensor behind a handle; null, with a log line, when there is none. */
zet_sensor *sensor_find(const zet_sensor_t *handle, const char *operation);

/** Checks that a sensor has power, is enabled and needs no reset; logs if not. */
bool sensor_is_on(const zet_sensor &sensor, const char *operation);

/** Drops a sensor's program, measurements and waiting frames. */
void sensor_forget_measurements(zet_sensor &sensor);

/** Returns the time of the scene at a moment of the session, 0 before its first frame. */
double scene_time_s(double moment_us);

/** Returns the current temperature of a sensor. */
int16_t sensor_temperature(const zet_sensor &sensor);

} // namespace zet_simulator

/** A sensor in use. */
struct zet_sensor : zet_simulator::object
{
    zet_sensor_id_t id;
    uint32_t session; /**< number of handles of the sensor created before this one */

    uint32_t calibration_step;    /**< steps started in the current calibration */
    uint32_t calibration_resets;  /**< the sensor's reset_count when the step started */
    uint64_t calibration_done_us; /**< when the current step ends */
    uint32_t reset_awaited_from; /**< reset_count when a calibration ended: a sensor that still has it needs a
                                    reset */

    zet_simulator::measurement_program program;
    zet_simulator::frame_grid grid;
    zet_simulator::measured_frame frames[zet_simulator::frame_slots];
    uint32_t frames_waiting; /**< measured and not read */
    uint32_t frame_count;    /**< measured since the handle was created */
};

#endif
