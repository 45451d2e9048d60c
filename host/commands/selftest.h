/** @file
 * `vantor selftest`: proves a port against a connected board.
 */
#ifndef VANTOR_SELFTEST_COMMAND_H
#define VANTOR_SELFTEST_COMMAND_H

#include <string>

#include "commands/command.h"
#include "selftest/bench.h"

namespace vantor
{

/** Which server is tested, and how the results are printed. */
struct selftest_options
{
    std::string connect = "sim:";
    bool json = false;
};

/**
 * Runs all cases of the self-test and prints how each ended.
 *
 * @param options  how to print
 * @param streams  where to print
 * @param on       the server
 * @return success, or failure when a case failed
 * @throws the exceptions of the client when the server cannot be reached at all
 */
exit_code run_selftest(const selftest_options &options, const command_streams &streams, selftest::bench &on);

/** The command. */
command selftest_command();

} // namespace vantor

#endif
