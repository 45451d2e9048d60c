/** @file
 * The sensors of the board, real or simulated: -DVANTOR_SENSORS selects the file that defines these
 * functions.
 */
#ifndef VANTOR_FIRMWARE_SENSORS_H
#define VANTOR_FIRMWARE_SENSORS_H

#include <cstdint>

/** Returns the kind of the sensors, for the log and the host: "simulated" or "library". */
const char *sensors_kind();

/** Prepares the sensors for the server. @return false when they cannot be used; the reason is logged */
bool sensors_start();

/** Returns the time of the frames' clock, in microseconds. */
uint64_t sensors_now_us();

/** Returns whether the frames' clock is virtual: it advances only by waiting. */
bool sensors_have_virtual_clock();

/** Advances a virtual clock. */
void sensors_advance_clock(uint32_t duration_us);

#endif
