/** @file
 * Computes the samples of a measured frame.
 */
#ifndef ZET_SIMULATOR_FRAME_H
#define ZET_SIMULATOR_FRAME_H

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

/** Returns the key of the random numbers of a frame: the same in each run with the same seed, and independent
 * of that of any other frame, session, sensor and seed. */
uint64_t frame_key_of(const zet_sensor &sensor, uint32_t frame_number);

/** Returns the values of a sensor's frame at a temperature, which changes its frequencies. */
frame_signal signal_of_frame(const zet_sensor &sensor, int16_t temperature);

/**
 * Writes a measured frame in the sensor's format.
 *
 * @param buffer  the caller's buffer, which must be large enough
 */
void frame_write(const zet_sensor &sensor, const measured_frame &measured, void *buffer);

} // namespace zet_simulator

#endif
