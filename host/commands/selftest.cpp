/** @file
 * `vantor selftest`.
 */
#include "commands/selftest.h"

#include <chrono>
#include <memory>
#include <optional>
#include <ostream>

#include "commands/common_options.h"
#include "commands/interrupt.h"
#include "recording/printable.h"
#include "selftest/selftest.h"

namespace vantor
{
namespace
{

using selftest::case_result;
using selftest::verdict;

constexpr const char *selftest_footer = R"(Examples:
  vantor selftest
      tests a private simulated server
  vantor selftest --connect serial:/dev/ttyACM0@115200
      tests a board, for example one with a new port
  vantor selftest --connect tcp:127.0.0.1:6110 --timeout 60
      allows more time, for a slow link or an emulated board on a busy machine

The test takes up to a minute. Do not use the server for anything else during that time. Each case is reported
as "ok", as "FAILED" with what was expected, what was received and what to check, or as "skipped" with the
reason. The exit code is 1 if a case failed. docs/selftest.md describes the cases.)";

/** Upper limit of --timeout, in seconds. */
constexpr uint64_t longest_timeout = 600;

/** The number of cases for each result. */
struct case_counts
{
    unsigned passed = 0;
    unsigned failed = 0;
    unsigned skipped = 0;
};

/** Counts a case. */
void add(case_counts &counts, verdict outcome)
{
    counts.passed += outcome == verdict::passed ? 1U : 0U;
    counts.failed += outcome == verdict::failed ? 1U : 0U;
    counts.skipped += outcome == verdict::skipped ? 1U : 0U;
}

/** Whether a case failed with what the first case that failed got. */
bool repeats(const case_result &result, const std::optional<case_result> &first)
{
    return first && result.outcome == verdict::failed && result.got == first->got;
}

/** Prints the result of a case. */
void print_case(std::ostream &out, const case_result &result)
{
    switch (result.outcome)
    {
    case verdict::passed:
        out << "ok       " << result.name << "\n";
        break;
    case verdict::skipped:
        out << "skipped  " << result.name << ": " << printable(result.got) << "\n";
        break;
    case verdict::failed:
        out << "FAILED   " << result.name << "\n"
            << "           expected: " << printable(result.expected) << "\n"
            << "           got:      " << printable(result.got) << "\n"
            << "           check:    " << result.look_at << "\n";
        break;
    }
    out << std::flush;
}

/** The result of a case as JSON. */
nlohmann::ordered_json case_document(const case_result &result)
{
    switch (result.outcome)
    {
    case verdict::passed:
        return {{"case", result.name}, {"result", "ok"}};
    case verdict::skipped:
        return {{"case", result.name}, {"result", "skipped"}, {"reason", result.got}};
    case verdict::failed:
        break;
    }
    return {{"case", result.name},
            {"result", "failed"},
            {"expected", result.expected},
            {"got", result.got},
            {"look_at", result.look_at}};
}

/** Tests the server at the address in the options. */
exit_code test_server(const selftest_options &options, const command_streams &streams)
{
    const auto where = parse_address(options.connect);
    const auto timeouts = timeouts_of(options);
    const auto loop = std::make_shared<event_loop>();
    const interrupt_watch watch(*loop);
    if (std::holds_alternative<simulator_address>(where) && !options.json)
    {
        streams.err << "Lines with \"error:\" are from the log of the simulated server: some cases provoke "
                       "errors.\n"
                    << std::flush;
    }
    selftest::bench on([&] { return open_link(where, timeouts.connect, loop); },
                       {.serial = std::holds_alternative<serial_address>(where),
                        .closes_with_host = std::holds_alternative<tcp_address>(where) ||
                                            std::holds_alternative<unix_address>(where)},
                       timeouts, loop);
    try
    {
        return run_selftest(options, streams, on);
    }
    catch (const cancelled &)
    {
        on.leave();
        throw;
    }
}

} // namespace

client_timeouts timeouts_of(const selftest_options &options)
{
    client_timeouts timeouts;
    if (options.timeout > 0)
    {
        timeouts.answer = timeouts.configure = timeouts.frame = std::chrono::seconds(options.timeout);
    }
    return timeouts;
}

exit_code run_selftest(const selftest_options &options, const command_streams &streams, selftest::bench &on)
{
    case_counts counts;
    std::optional<case_result> first_failure;
    unsigned repeated = 0;
    auto cases = nlohmann::ordered_json::array();
    selftest::run_cases(on, [&](const case_result &result) {
        add(counts, result.outcome);
        if (options.json)
        {
            cases.push_back(case_document(result));
        }
        else if (repeats(result, first_failure))
        {
            ++repeated;
            streams.out << "FAILED   " << result.name << ": as the first case that failed\n" << std::flush;
        }
        else
        {
            print_case(streams.out, result);
        }
        if (!first_failure && result.outcome == verdict::failed)
        {
            first_failure = result;
        }
    });
    if (options.json)
    {
        print_json(streams.out, {{"address", options.connect},
                                 {"passed", counts.passed},
                                 {"failed", counts.failed},
                                 {"skipped", counts.skipped},
                                 {"cases", cases}});
    }
    else
    {
        streams.out << counts.passed << " passed, " << counts.failed << " failed, " << counts.skipped
                    << " skipped\n";
        if (repeated > 0)
        {
            streams.out << "\"" << first_failure->name << "\" failed first, and " << repeated
                        << " others in the same way: begin with it\n";
        }
    }
    return counts.failed == 0 ? exit_code::success : exit_code::failure;
}

command selftest_command()
{
    auto options = std::make_shared<selftest_options>();
    return {.name = "selftest",
            .help = "Test whether a server, its board and its port work.",
            .footer = selftest_footer,
            .options = {connect_option(options->connect),
                        {.name = "--timeout",
                         .help = "Time limit for an answer, a configuration and a frame, in seconds; 5, 60 "
                                 "and 10 if not given",
                         .value = whole_number_value{.target = &options->timeout, .most = longest_timeout},
                         .value_name = "SECONDS"},
                        json_flag(options->json)},
            .run = [options](const command_streams &streams) { return test_server(*options, streams); }};
}

} // namespace vantor
