/** @file
 * Sensors that measure at no cost, for counting what the server itself does.
 *
 * A session is set up with the simulated sensors. Once freed, the operations of a frame do nothing but report
 * success: the linker leads the backend's calls here.
 */
#ifndef VANTOR_FREE_SENSORS_H
#define VANTOR_FREE_SENSORS_H

#include <cstdint>

/** From now on measuring costs nothing, or it is the simulated sensors' again. */
void free_sensors(bool free);

/** What every free sensor reports as its temperature, in degrees Celsius. */
constexpr int16_t free_temperature = 27;

/** Cycle counter at the beginning of the last frame message: when its first object was asked for. */
extern uint32_t message_begin;

#endif
