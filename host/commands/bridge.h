/** @file
 * `vantor bridge`.
 */
#ifndef VANTOR_COMMAND_BRIDGE_H
#define VANTOR_COMMAND_BRIDGE_H

#include "commands/command.h"

namespace vantor
{

/** The command `vantor bridge`. */
command bridge_command();

} // namespace vantor

#endif
