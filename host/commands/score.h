/** @file
 * `vantor score`: compares detections with the truth of a recording.
 */
#ifndef VANTOR_SCORE_COMMAND_H
#define VANTOR_SCORE_COMMAND_H

#include "commands/command.h"

namespace vantor
{

/** The command. */
command score_command();

} // namespace vantor

#endif
