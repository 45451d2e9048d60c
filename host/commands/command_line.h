/** @file
 * The command `vantor` as a function that takes arguments, writes text and returns an exit code.
 */
#ifndef VANTOR_COMMAND_LINE_H
#define VANTOR_COMMAND_LINE_H

#include <string>
#include <vector>

#include "commands/command.h"

namespace vantor
{

/**
 * Runs the command. Does not throw.
 *
 * @param arguments  the arguments after the program name
 * @param streams    where to write
 * @return the exit code
 */
exit_code run_command_line(const std::vector<std::string> &arguments, const command_streams &streams);

} // namespace vantor

#endif
