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

monotonic_clock_t::time_point start_time()
{
    static const monotonic_clock_t::time_point start = monotonic_clock_t::now();
    return start;
}

uint64_t now_us()
{
    const auto elapsed = monotonic_clock_t::now() - start_time();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count());
}

void sleep_until_us(uint64_t time_us)
{
    std::this_thread::sleep_until(start_time() + std::chrono::microseconds(time_us));
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
    return std::chrono::duration_cast<std::chrono::microseconds>(since_1970).count() - scene_start_us;
}

} // namespace

zet_simulator_clock_t real_clock()
{
    start_time();
    return {now_us, sleep_until_us};
}

signed_clock_t *clock_since(double start_s)
{
    const double us_per_s = 1.0e6;
    scene_start_us = std::llround(start_s * us_per_s);
    return since_scene_start_us;
}

signed_clock_t *clock_of_board(const zet_simulator_clock_t &clock)
{
    board_clock = clock;
    return since_start_of_board_us;
}
