/** @file
 * Computes the samples of a measured frame.
 */
#ifndef ZET_SIMULATOR_FRAME_H
#define ZET_SIMULATOR_FRAME_H

#include "sensor_library/echoes.h"
#include "sensor_library/sensor.h"

/** A frame while it is read. */
struct zet_simulator_frame
{
    const zet_sensor *sensor;
    const zet_simulator::measured_frame *measured;
    uint32_t tick; /**< that the port has noted for it */
};

namespace zet_simulator
{

/** Returns what a sensor sees in a frame at a time of the scene. The keys of its random numbers are the same
 * in each run with the same seed, and independent of those of any other frame, session, sensor and seed. */
view view_of_frame(const zet_sensor &sensor, uint32_t frame_number, double time_s);

/** Returns the values of a sensor's frame at the temperature at its start. */
frame_signal signal_of_frame(const zet_sensor &sensor, const view &start);

/**
 * Writes a measured frame in the sensor's format.
 *
 * @param buffer  the caller's buffer, which must be large enough
 */
void frame_write(const zet_sensor &sensor, const measured_frame &measured, void *buffer);

} // namespace zet_simulator

#endif
