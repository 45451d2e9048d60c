/** @file
 * `vantor identify`: describes a server.
 */
#ifndef VANTOR_IDENTIFY_H
#define VANTOR_IDENTIFY_H

#include "commands/command.h"

namespace vantor
{

/** The command. */
command identify_command();

} // namespace vantor

#endif
