/** @file
 * The board's log: the second serial port, for a person with a terminal at 115200 baud.
 */
#ifndef VANTOR_MPS2_AN386_LOG_H
#define VANTOR_MPS2_AN386_LOG_H

#include "zet_definitions_common.h"

/** Opens the log's port. To be called once. */
void log_open();

/** Takes a log line of the board: for the log's port when it is severe enough, and for a host that asked for
 * it. */
void log_line(zet_log_level_t level, const char *module, const char *text);

#endif
