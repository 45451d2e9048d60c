/** @file
 * `vantor completion`: prints a script with which a shell completes commands and options.
 */
#ifndef VANTOR_COMPLETION_H
#define VANTOR_COMPLETION_H

#include <functional>
#include <vector>

#include "commands/command.h"

namespace vantor
{

/**
 * The command.
 *
 * @param list_commands  returns all commands, including this one
 */
command completion_command(std::function<std::vector<command>()> list_commands);

} // namespace vantor

#endif
