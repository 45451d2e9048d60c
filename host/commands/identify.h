/** @file
 * `vantor identify` and `vantor scan`: which servers are there, and what they are.
 */
#ifndef VANTOR_IDENTIFY_H
#define VANTOR_IDENTIFY_H

#include <CLI/App.hpp>

#include "commands/command_line.h"

namespace vantor
{

/** Adds `identify`, which asks one server what it is. */
void add_identify_command(CLI::App &app, command_streams streams, exit_code &result);

/** Adds `scan`, which looks for servers on serial devices. */
void add_scan_command(CLI::App &app, command_streams streams, exit_code &result);

} // namespace vantor

#endif
