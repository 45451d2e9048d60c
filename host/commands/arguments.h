/** @file
 * Parses command lines.
 */
#ifndef VANTOR_ARGUMENTS_H
#define VANTOR_ARGUMENTS_H

#include <string>
#include <vector>

#include "commands/command.h"

namespace vantor
{

/** Follows the description of a wrong command line. */
inline constexpr const char *help_hint = "Run with --help for more information.\n";

/**
 * Sets the options of the command that the arguments name and runs it; prints help and version, and reports
 * wrong arguments.
 *
 * @param arguments  the arguments after the program name
 * @param commands   all commands
 * @param footer     text below the commands in the help
 * @param streams    where to write
 * @return the result of the command, or usage
 * @throws the exceptions of the command
 */
exit_code run_command(const std::vector<std::string> &arguments, const std::vector<command> &commands,
                      const std::string &footer, const command_streams &streams);

} // namespace vantor

#endif
