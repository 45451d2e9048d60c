/** @file
 * `vantor identify` and `vantor scan`: which servers are there, and what they are.
 */
#ifndef VANTOR_IDENTIFY_H
#define VANTOR_IDENTIFY_H

#include "commands/command.h"

namespace vantor
{

/** `identify`, which asks one server what it is. */
command identify_command();

/** `scan`, which looks for servers on serial devices. */
command scan_command();

} // namespace vantor

#endif
