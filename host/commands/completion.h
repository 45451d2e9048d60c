/** @file
 * `vantor completion`: lets a shell complete commands and options.
 */
#ifndef VANTOR_COMPLETION_H
#define VANTOR_COMPLETION_H

#include <CLI/App.hpp>

#include "commands/command_line.h"

namespace vantor
{

/** Adds the command to the command line, after all others: it completes those that are there. */
void add_completion_command(CLI::App &app, command_streams streams, exit_code &result);

} // namespace vantor

#endif
