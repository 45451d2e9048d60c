/** @file
 * `vantor plot`: a recording as a picture.
 */
#ifndef VANTOR_PLOT_H
#define VANTOR_PLOT_H

#include <CLI/App.hpp>

#include "commands/command_line.h"

namespace vantor
{

/** Adds the command to the command line. */
void add_plot_command(CLI::App &app, command_streams streams, exit_code &result);

} // namespace vantor

#endif
