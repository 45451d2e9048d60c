/** @file
 * The board's log: a serial port that a person reads with a terminal.
 */
#ifndef VANTOR_FIRMWARE_LOG_H
#define VANTOR_FIRMWARE_LOG_H

#include "zet_definitions_common.h"

/** Writes a log line to the log's port if it is severe enough, and offers it to the host. */
void log_line(zet_log_level_t level, const char *module, const char *text);

/** Writes a line of any level to the log's port. */
void log_to_port(zet_log_level_t level, const char *module, const char *text);

#endif
