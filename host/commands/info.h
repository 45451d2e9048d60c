/** @file
 * `vantor info`: what a recording holds.
 */
#ifndef VANTOR_INFO_H
#define VANTOR_INFO_H

#include "commands/command.h"

namespace vantor
{

/** The command. */
command info_command();

} // namespace vantor

#endif
