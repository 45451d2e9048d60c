/** @file
 * The command `vantor` as a function: arguments in, texts and an exit code out.
 */
#ifndef VANTOR_COMMAND_LINE_H
#define VANTOR_COMMAND_LINE_H

#include <string>
#include <vector>

#include "commands/command.h"

namespace vantor
{

/**
 * Runs the command.
 *
 * @param arguments  what follows the program's name
 * @param streams    where to write to
 * @return how it ended; nothing is thrown
 */
exit_code run_command_line(const std::vector<std::string> &arguments, const command_streams &streams);

} // namespace vantor

#endif
