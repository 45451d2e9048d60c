/** @file
 * The real clock of the Linux port.
 */
#include "clock.h"

#include <chrono>
#include <cmath>
#include <thread>

namespace
{

using monotonic_clock_t = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::nanoseconds;

constexpr double us_per_s = 1.0e6;

/** The real clock of the board. */
struct real_clock_t
{
    monotonic_clock_t::time_point start;             /**< when it was started */
    std::chrono::system_clock::time_point start_utc; /**< the same moment */
    double error = 0.0;                              /**< the part by which it runs faster */
    uint64_t first_us = 0;                           /**< what it showed then */
};

real_clock_t the_clock;

uint64_t now_us()
{
    const nanoseconds elapsed = monotonic_clock_t::now() - the_clock.start;
    // Rounded up, so that it is not early after real_span_us().
    const nanoseconds gained(std::llround(std::ceil(static_cast<double>(elapsed.count()) * the_clock.error)));
    const auto passed = std::chrono::duration_cast<microseconds>(elapsed + gained);
    return the_clock.first_us + static_cast<uint64_t>(passed.count());
}

void sleep_until_us(uint64_t time_us)
{
    const auto span_us = static_cast<int64_t>(time_us - the_clock.first_us);
    std::this_thread::sleep_until(the_clock.start + microseconds(real_span_us(span_us)));
}

int64_t scene_start_us = 0;
zet_simulator_clock_t board_clock = {};

int64_t since_start_of_board_us()
{
    return static_cast<int64_t>(board_clock.now_us());
}

int64_t since_scene_start_us()
{
    const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<microseconds>(since_1970).count() - scene_start_us;
}

} // namespace

zet_simulator_clock_t real_clock(double error, uint64_t first_us)
{
    the_clock = {monotonic_clock_t::now(), std::chrono::system_clock::now(), error, first_us};
    return {now_us, sleep_until_us};
}

int64_t real_span_us(int64_t board_span_us)
{
    const double gained_us = static_cast<double>(board_span_us) * the_clock.error / (1.0 + the_clock.error);
    return board_span_us - std::llround(std::floor(gained_us));
}

double real_clock_zero_utc_s()
{
    const std::chrono::duration<double> start = the_clock.start_utc.time_since_epoch();
    return start.count() - static_cast<double>(the_clock.first_us) / us_per_s / (1.0 + the_clock.error);
}

signed_clock_t *clock_since(double start_s)
{
    scene_start_us = std::llround(start_s * us_per_s);
    return since_scene_start_us;
}

signed_clock_t *clock_of_board(const zet_simulator_clock_t &clock)
{
    board_clock = clock;
    return since_start_of_board_us;
}
