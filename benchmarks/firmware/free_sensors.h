/** @file
 * Sensors that measure with almost no instructions, to count only the instructions of the server.
 *
 * A session is configured with the simulated sensors. With free sensors, the functions for a frame only
 * return success: the linker redirects the backend's calls to them.
 */
#ifndef VANTOR_FREE_SENSORS_H
#define VANTOR_FREE_SENSORS_H

#include <cstdint>

/** Switches between free sensors and the simulated sensors. */
void free_sensors(bool free);

/** The temperature that every free sensor reports, in degrees Celsius. */
constexpr int16_t free_temperature = 27;

/** Cycle counter at the beginning of the last frame message, when its first object was created. */
extern uint32_t message_begin;

#endif
