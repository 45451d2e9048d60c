/** @file
 * `vantor selftest`: proves a port against a connected board.
 */
#ifndef VANTOR_SELFTEST_COMMAND_H
#define VANTOR_SELFTEST_COMMAND_H

#include <cstdint>
#include <string>

#include "commands/command.h"
#include "selftest/bench.h"

namespace vantor
{

/** Which server is tested, and how the results are printed. */
struct selftest_options
{
    std::string connect = "sim:";
    uint64_t timeout = 0; /**< in seconds; 0 when it is not given */
    bool json = false;
};

/** How long to wait for what. */
client_timeouts timeouts_of(const selftest_options &options);

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
