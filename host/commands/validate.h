/** @file
 * `vantor validate`: checks a configuration document.
 */
#ifndef VANTOR_VALIDATE_H
#define VANTOR_VALIDATE_H

#include "commands/command.h"

namespace vantor
{

/** The command. */
command validate_command();

} // namespace vantor

#endif
