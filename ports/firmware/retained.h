/** @file
 * Data that survives a reset of the board: the cause of the reset, and the last fault.
 */
#ifndef VANTOR_FIRMWARE_RETAINED_H
#define VANTOR_FIRMWARE_RETAINED_H

/** Determines why the board was started. To be called first. */
void retained_start();

/** Returns why the board was started: "power on", "reset", "fault", or the cause from retain_restart_cause or
 * from the board. */
const char *retained_reset_cause();

/** Returns the report of the last fault since power-on; null when there was none. */
const char *retained_last_fault();

/** Stores why the board is about to restart. */
void retain_restart_cause(const char *cause);

/** Stores a part of a fault report. The first part since the start begins a new report. */
void retain_fault(const char *text);

#endif
