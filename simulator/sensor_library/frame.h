/** @file
 * Computes the samples of a measured frame.
 */
#ifndef ZET_SIMULATOR_FRAME_H
#define ZET_SIMULATOR_FRAME_H

#include "sensor_library/sensor.h"

namespace zet_simulator
{

/**
 * Writes a measured frame in the sensor's format.
 *
 * @param buffer  the caller's buffer, which must be large enough
 */
void frame_write(const zet_sensor &sensor, const measured_frame &measured, void *buffer);

} // namespace zet_simulator

#endif
