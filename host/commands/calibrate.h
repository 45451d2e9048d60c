/** @file
 * `vantor calibrate`: calibrates sensors and saves the calibrations to a file.
 */
#ifndef VANTOR_CALIBRATE_H
#define VANTOR_CALIBRATE_H

#include "commands/command.h"

namespace vantor
{

/** The command. */
command calibrate_command();

} // namespace vantor

#endif
