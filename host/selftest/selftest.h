/** @file
 * The self-test of a server: tests over the link that a board and its port follow the protocol.
 */
#ifndef VANTOR_SELFTEST_H
#define VANTOR_SELFTEST_H

#include <functional>
#include <string>
#include <vector>

#include "selftest/bench.h"

namespace vantor::selftest
{

/** A case of the self-test. */
struct selftest_case
{
    std::string name;
    std::string look_at; /**< what to check if the case fails */
    std::function<void(bench &)> run;
};

/** The outcome of a case. */
enum class verdict
{
    passed,
    failed,
    skipped,
};

/** The result of a case. */
struct case_result
{
    std::string name;
    verdict outcome = verdict::passed;
    std::string expected; /**< for a failed case */
    std::string got;      /**< for a failed case; the reason for a skipped one */
    std::string look_at;  /**< for a failed case */
};

/** Commands and answers. */
std::vector<selftest_case> command_cases();

/** Wrong input. */
std::vector<selftest_case> input_cases();

/** Structure, ticks and number of frames. */
std::vector<selftest_case> frame_cases();

/** The clock of the board, compared with the clock of the host. */
std::vector<selftest_case> clock_cases();

/** The baud rate of the link. */
std::vector<selftest_case> baudrate_cases();

/** Interrupted sessions, lost hosts, memory. */
std::vector<selftest_case> session_cases();

/** All cases, in the order in which they run. */
std::vector<selftest_case> all_cases();

/**
 * Runs all cases, each on an idle server.
 *
 * @param on      the server
 * @param report  called after each case
 * @throws the exceptions of the client if the server cannot be reached at all
 */
void run_cases(bench &on, const std::function<void(const case_result &)> &report);

} // namespace vantor::selftest

#endif
