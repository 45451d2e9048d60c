/** @file
 * The self-test of a server: proves from the outside that a board and its port do what the protocol promises.
 */
#ifndef VANTOR_SELFTEST_H
#define VANTOR_SELFTEST_H

#include <functional>
#include <string>
#include <vector>

#include "selftest/bench.h"

namespace vantor::selftest
{

/** One thing that is proved. */
struct selftest_case
{
    std::string name;
    std::string look_at; /**< where the fault is to be looked for when the case fails */
    std::function<void(bench &)> run;
};

/** How a case ended. */
enum class verdict
{
    passed,
    failed,
    skipped,
};

/** A case and how it ended. */
struct case_result
{
    std::string name;
    verdict outcome = verdict::passed;
    std::string expected; /**< of a failed case */
    std::string got;      /**< of a failed case; of a skipped one the reason */
    std::string look_at;  /**< of a failed case */
};

/** The commands and their answers. */
std::vector<selftest_case> command_cases();

/** Wrong input. */
std::vector<selftest_case> input_cases();

/** Frames: their shape, their ticks, their number. */
std::vector<selftest_case> frame_cases();

/** The clock of the board beside that of the host. */
std::vector<selftest_case> clock_cases();

/** The baud rate of the link. */
std::vector<selftest_case> baudrate_cases();

/** Broken sessions, lost hosts, memory. */
std::vector<selftest_case> session_cases();

/** All cases, in the order in which they run. */
std::vector<selftest_case> all_cases();

/**
 * Runs all cases, each on a server at rest.
 *
 * @param on      the server
 * @param report  is called after each case
 * @throws the exceptions of the client when the server cannot be reached at all
 */
void run_cases(bench &on, const std::function<void(const case_result &)> &report);

} // namespace vantor::selftest

#endif
