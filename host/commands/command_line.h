/** @file
 * The command `vantor` as a function: arguments in, texts and an exit code out.
 */
#ifndef VANTOR_COMMAND_LINE_H
#define VANTOR_COMMAND_LINE_H

#include <iosfwd>
#include <string>
#include <vector>

#include "commands/exit_code.h"

namespace vantor
{

/** Where a command writes to. */
struct command_streams
{
    std::ostream &out;     /**< results */
    std::ostream &err;     /**< errors, warnings and progress */
    bool terminal = false; /**< err is a terminal, so that a line of progress can be shown */
};

/**
 * Runs the command.
 *
 * @param arguments  what follows the program's name
 * @param streams    where to write to
 * @return how it ended; nothing is thrown
 */
exit_code run_command_line(const std::vector<std::string> &arguments, command_streams streams);

} // namespace vantor

#endif
