/** @file
 * `vantor completion`: lets a shell complete commands and options.
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
 * @param list_commands  gives all commands, this one included
 */
command completion_command(std::function<std::vector<command>()> list_commands);

} // namespace vantor

#endif
