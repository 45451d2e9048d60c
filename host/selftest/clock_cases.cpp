/** @file
 * Self-test: compares the clock of the board with the clock of the host.
 */
#include <sstream>

#include "selftest/selftest.h"

namespace vantor::selftest
{
namespace
{

using nlohmann::json;
using seconds = std::chrono::duration<double>;

/** Minimum time over which the clocks are compared. */
constexpr std::chrono::milliseconds least_span{2000};

/** Time after which every clock that is not virtual must have advanced. */
constexpr std::chrono::milliseconds rest_span{100};

/** Maximum relative difference between the clocks. */
constexpr double tolerance = 0.02;

/** The unit of "uptime_s". */
constexpr seconds resolution{0.001};

/** So low that a virtual clock is far ahead of the host's clock after a few frames. */
constexpr double slow_frame_rate = 0.2;

/** Bounds of the host's time between two readings of the server's clock. */
struct time_span
{
    seconds least;
    seconds most;
};

/** The host's time between two readings. */
time_span time_between(const clock_reading &first, const clock_reading &last)
{
    return {.least = last.asked - first.answered, .most = last.answered - first.asked};
}

/** A time as text. */
std::string to_text(seconds span)
{
    std::ostringstream text;
    text << std::fixed << span.count() << " s";
    return text.str();
}

/**
 * Whether the clock jumps to the end of a measurement, as a virtual clock does, and so runs ahead of the
 * host's clock. A defective clock that stops while the board is idle does not.
 */
bool jumps(bench &on)
{
    constexpr int frames = 5;
    auto configuration = small_session(on);
    configuration["groups"][0][0]["config"]["frame_rate"] = slow_frame_rate;
    on.configure(configuration);
    const auto first = on.read_clock();
    for (int i = 0; i < frames; ++i)
    {
        on.measure();
    }
    const auto last = on.read_clock();
    on.execute({{"command", "end"}});
    return last.uptime - first.uptime > 2.0 * time_between(first, last).most;
}

/** Waits while the server is idle. */
void rest_until(bench &on, bench::time_point end)
{
    const auto received = on.receive(on.time_until(end));
    check(!received, "no message without a command", received ? describe(received->header) : std::string());
}

/** Checks that the clock advances while the server is idle; skips the case if it stops because it is virtual.
 */
void check_rest(bench &on)
{
    const auto before = on.read_clock();
    rest_until(on, before.answered + rest_span);
    if (on.read_clock().uptime == before.uptime)
    {
        check(jumps(on), "\"uptime_s\" that grows while the server is idle", "it does not change");
        throw case_skipped("the clock of the server is virtual");
    }
}

void clock(bench &on)
{
    on.require_ticks();
    check_rest(on);
    const auto first = on.first_reading().value();
    rest_until(on, first.answered + least_span);
    const auto last = on.read_clock();
    const auto [least, most] = time_between(first, last);
    const auto lowest = least * (1.0 - tolerance) - resolution;
    const auto highest = most * (1.0 + tolerance) + resolution;
    const auto growth = last.uptime - first.uptime;
    check(growth >= lowest && growth <= highest,
          "\"uptime_s\" that grows by " + to_text(lowest) + " to " + to_text(highest), to_text(growth));
}

} // namespace

std::vector<selftest_case> clock_cases()
{
    return {{"the clock runs at the right rate", "the counter of the board, which must run at 1 MHz", clock}};
}

} // namespace vantor::selftest
