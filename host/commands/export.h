/** @file
 * `vantor export`: a recording for other programs.
 */
#ifndef VANTOR_EXPORT_H
#define VANTOR_EXPORT_H

#include <CLI/App.hpp>

#include "commands/command_line.h"

namespace vantor
{

/** Adds the command to the command line. */
void add_export_command(CLI::App &app, command_streams streams, exit_code &result);

} // namespace vantor

#endif
