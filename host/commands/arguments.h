/** @file
 * Reads command lines.
 */
#ifndef VANTOR_ARGUMENTS_H
#define VANTOR_ARGUMENTS_H

#include <string>
#include <vector>

#include "commands/command.h"

namespace vantor
{

/**
 * Fills in the options of the command that the arguments name and runs it; prints help and version, and says
 * what is wrong with the arguments.
 *
 * @param arguments  what follows the program's name
 * @param commands   those that there are
 * @param footer     what stands below the commands in the help
 * @param streams    where to write to
 * @return what the command returned, or usage
 * @throws what the command throws
 */
exit_code run_command(const std::vector<std::string> &arguments, const std::vector<command> &commands,
                      const std::string &footer, const command_streams &streams);

} // namespace vantor

#endif
