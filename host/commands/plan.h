/** @file
 * `vantor plan`: the figures of a configuration, or a configuration for what a person wants to see.
 */
#ifndef VANTOR_PLAN_COMMAND_H
#define VANTOR_PLAN_COMMAND_H

#include "commands/command.h"

namespace vantor
{

/** The command. */
command plan_command();

} // namespace vantor

#endif
