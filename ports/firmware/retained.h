/** @file
 * What survives a reset of the board: why it was reset, and its last fault.
 */
#ifndef VANTOR_FIRMWARE_RETAINED_H
#define VANTOR_FIRMWARE_RETAINED_H

/** Finds out why the board was started. To be called first. */
void retained_start();

/** Why the board was started: "power on", "fault", or what retain_restart_cause or the board said. */
const char *retained_reset_cause();

/** The report of the last fault since the board has power; null when there was none. */
const char *retained_last_fault();

/** Notes why the board is about to restart itself. */
void retain_restart_cause(const char *cause);

/** Notes a part of the report of a fault. The first part since the start begins a new report. */
void retain_fault(const char *text);

#endif
