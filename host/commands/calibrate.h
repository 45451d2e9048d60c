/** @file
 * `vantor calibrate`: calibrations into a file.
 */
#ifndef VANTOR_CALIBRATE_H
#define VANTOR_CALIBRATE_H

#include <CLI/App.hpp>

#include "commands/command_line.h"

namespace vantor
{

/** Adds the command to the command line. */
void add_calibrate_command(CLI::App &app, command_streams streams, exit_code &result);

} // namespace vantor

#endif
