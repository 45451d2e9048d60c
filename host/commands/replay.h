/** @file
 * `vantor replay`: a recording as a server.
 */
#ifndef VANTOR_REPLAY_H
#define VANTOR_REPLAY_H

#include <CLI/App.hpp>

#include "commands/command_line.h"

namespace vantor
{

/** Adds the command to the command line. */
void add_replay_command(CLI::App &app, command_streams streams, exit_code &result);

} // namespace vantor

#endif
