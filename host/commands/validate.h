/** @file
 * `vantor validate`: what is wrong with a configuration document.
 */
#ifndef VANTOR_VALIDATE_H
#define VANTOR_VALIDATE_H

#include <CLI/App.hpp>

#include "commands/command_line.h"

namespace vantor
{

/** Adds the command to the command line. */
void add_validate_command(CLI::App &app, command_streams streams, exit_code &result);

} // namespace vantor

#endif
