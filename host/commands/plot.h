/** @file
 * `vantor plot`: draws a recording.
 */
#ifndef VANTOR_PLOT_H
#define VANTOR_PLOT_H

#include "commands/command.h"

namespace vantor
{

/** The command. */
command plot_command();

} // namespace vantor

#endif
