/** @file
 * Runs the cases of the self-test.
 */
#include "selftest/selftest.h"

#include <iterator>
#include <utility>

namespace vantor::selftest
{
namespace
{

/** The result of a case that failed. */
case_result failed(const selftest_case &which, const std::string &expected, const std::string &got)
{
    return {.name = which.name,
            .outcome = verdict::failed,
            .expected = expected,
            .got = got,
            .look_at = which.look_at};
}

/** Runs one case on an idle server. */
case_result run_case(const selftest_case &which, bench &on)
{
    try
    {
        which.run(on);
        return {.name = which.name, .outcome = verdict::passed, .expected = {}, .got = {}, .look_at = {}};
    }
    catch (const case_skipped &reason)
    {
        return {.name = which.name,
                .outcome = verdict::skipped,
                .expected = {},
                .got = reason.what(),
                .look_at = {}};
    }
    catch (const case_failed &failure)
    {
        return failed(which, failure.details().expected, failure.details().got);
    }
    catch (const error &failure)
    {
        return failed(which, "valid messages within the time limit", failure.what());
    }
    catch (const nlohmann::json::exception &failure)
    {
        return failed(which, "messages with the documented members", failure.what());
    }
}

/** Makes the server idle; returns the reason if it can no longer be reached. */
std::string bring_to_rest(bench &on)
{
    try
    {
        on.rest();
        return {};
    }
    catch (const error &failure)
    {
        return failure.what();
    }
}

} // namespace

std::vector<selftest_case> all_cases()
{
    std::vector<selftest_case> all;
    for (auto *const list :
         {command_cases, input_cases, frame_cases, clock_cases, session_cases, baudrate_cases})
    {
        auto cases = list();
        std::move(cases.begin(), cases.end(), std::back_inserter(all));
    }
    return all;
}

void run_cases(bench &on, const std::function<void(const case_result &)> &report)
{
    on.connect();
    // Why the server can no longer be reached.
    std::string lost;
    for (const auto &each : all_cases())
    {
        const bool reached_before = lost.empty();
        if (reached_before)
        {
            lost = bring_to_rest(on);
        }
        if (lost.empty())
        {
            report(run_case(each, on));
        }
        else if (reached_before)
        {
            report(failed(each, "a server that still works after the previous case", lost));
        }
        else
        {
            report({.name = each.name,
                    .outcome = verdict::skipped,
                    .expected = {},
                    .got = "the server can no longer be reached",
                    .look_at = {}});
        }
    }
}

} // namespace vantor::selftest
