/** @file
 * The board's log: a serial port for a person with a terminal.
 */
#ifndef VANTOR_FIRMWARE_LOG_H
#define VANTOR_FIRMWARE_LOG_H

#include "zet_definitions_common.h"

/** Takes a log line: for the log's port when it is severe enough, and for a host that asked for it. */
void log_line(zet_log_level_t level, const char *module, const char *text);

/** Writes a line to the log's port, whatever its level. */
void log_to_port(zet_log_level_t level, const char *module, const char *text);

#endif
