/** @file
 * `vantor export`: converts a recording to files for other programs.
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
