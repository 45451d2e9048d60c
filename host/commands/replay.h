/** @file
 * `vantor replay`: serves a recording.
 */
#ifndef VANTOR_REPLAY_H
#define VANTOR_REPLAY_H

#include "commands/command.h"

namespace vantor
{

/** The command. */
command replay_command();

} // namespace vantor

#endif
