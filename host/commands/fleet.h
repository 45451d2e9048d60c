/** @file
 * `vantor fleet`.
 */
#ifndef VANTOR_COMMAND_FLEET_H
#define VANTOR_COMMAND_FLEET_H

#include "commands/command.h"

namespace vantor
{

/** The command `vantor fleet`. */
command fleet_command();

} // namespace vantor

#endif
