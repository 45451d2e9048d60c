/** @file
 * Runs the command `vantor` inside a test.
 */
#ifndef VANTOR_COMMAND_OUTCOME_H
#define VANTOR_COMMAND_OUTCOME_H

#include <sstream>
#include <string>
#include <vector>

#include "commands/command_line.h"

namespace vantor::test
{

/** The outcome of a command. */
struct outcome
{
    exit_code code;
    std::string out;
    std::string err;
};

/** Runs the command with these arguments. */
inline outcome run(const std::vector<std::string> &arguments)
{
    std::ostringstream out;
    std::ostringstream err;
    const auto code = run_command_line(arguments, {out, err});
    return {code, out.str(), err.str()};
}

} // namespace vantor::test

#endif
