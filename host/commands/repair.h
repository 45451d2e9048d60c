/** @file
 * `vantor repair`: completes a recording that was interrupted or damaged.
 */
#ifndef VANTOR_REPAIR_COMMAND_H
#define VANTOR_REPAIR_COMMAND_H

#include "commands/command.h"

namespace vantor
{

/** The command. */
command repair_command();

} // namespace vantor

#endif
