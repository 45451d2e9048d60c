/** @file
 * `vantor info`: what a recording holds.
 */
#ifndef VANTOR_INFO_H
#define VANTOR_INFO_H

#include <CLI/App.hpp>

#include "commands/command_line.h"

namespace vantor
{

/** Adds the command to the command line. */
void add_info_command(CLI::App &app, command_streams streams, exit_code &result);

} // namespace vantor

#endif
