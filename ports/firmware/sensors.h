/** @file
 * The sensors of the board, real or simulated: -DVANTOR_SENSORS chooses the file that defines these
 * functions.
 */
#ifndef VANTOR_FIRMWARE_SENSORS_H
#define VANTOR_FIRMWARE_SENSORS_H

#include <cstdint>

/** What kind of sensors these are, for the log and the host: "simulated" or "library". */
const char *sensors_kind();

/** Makes the sensors ready for the server. @return false when they cannot be used; the reason is logged */
bool sensors_start();

/** The clock of the frames, in microseconds. */
uint64_t sensors_now_us();

/** Returns whether the clock of the frames is virtual: it moves only while somebody waits. */
bool sensors_have_virtual_clock();

/** Moves a virtual clock on. */
void sensors_advance_clock(uint32_t duration_us);

#endif
