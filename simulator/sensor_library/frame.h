/** @file
 * A measured frame: from the times at which it was measured to its samples.
 */
#ifndef ZET_SIMULATOR_FRAME_H
#define ZET_SIMULATOR_FRAME_H

#include "sensor_library/sensor.h"

namespace zet_simulator
{

/**
 * Writes a measured frame in the sensor's own form.
 *
 * @param buffer  the caller's buffer, large enough
 */
void frame_write(const zet_sensor &sensor, const measured_frame &measured, void *buffer);

} // namespace zet_simulator

#endif
