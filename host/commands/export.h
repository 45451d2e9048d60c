/** @file
 * `vantor export`: a recording for other programs.
 */
#ifndef VANTOR_EXPORT_H
#define VANTOR_EXPORT_H

#include "commands/command.h"

namespace vantor
{

/** The command. */
command export_command();

} // namespace vantor

#endif
