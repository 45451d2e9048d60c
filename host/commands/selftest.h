/** @file
 * `vantor selftest`: tests a port on a connected board.
 */
#ifndef VANTOR_SELFTEST_COMMAND_H
#define VANTOR_SELFTEST_COMMAND_H

#include <cstdint>
#include <string>

#include "commands/command.h"
#include "selftest/bench.h"

namespace vantor
{

/** The options of `vantor selftest`. */
struct selftest_options
{
    std::string connect = "sim:";
    uint64_t timeout = 0; /**< in seconds; 0 if not given */
    bool json = false;
};

/** The time-outs for a self-test. */
client_timeouts timeouts_of(const selftest_options &options);

/**
 * Runs all cases of the self-test and prints the result of each.
 *
 * @param options  how to print
 * @param streams  where to print
 * @param on       the server
 * @return success, or failure if a case failed
 * @throws the exceptions of the client if the server cannot be reached at all
 */
exit_code run_selftest(const selftest_options &options, const command_streams &streams, selftest::bench &on);

/** The command. */
command selftest_command();

} // namespace vantor

#endif
