/** @file
 * `vantor info`: checks a recording and shows what it contains.
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
