/** @file
 * `vantor view`.
 */
#ifndef VANTOR_VIEW_COMMAND_H
#define VANTOR_VIEW_COMMAND_H

#include "commands/command.h"

namespace vantor
{

/** `vantor view`: the live view. In a build without it, the command only says so. */
command view_command();

} // namespace vantor

#endif
