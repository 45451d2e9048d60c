/** @file
 * The firmware's clock: the board's counter, extended to 64 bits.
 */
#include "clock.h"

#include <algorithm>

#include "board.h"

namespace
{

uint32_t last_count;
uint64_t wraps;

bool never()
{
    return false;
}

} // namespace

uint64_t clock_now_us()
{
    const uint32_t count = board_counter_us();
    wraps += count < last_count ? 1U : 0U;
    last_count = count;
    return wraps << 32U | count;
}

bool clock_wait_until(uint64_t time_us, bool (*condition)())
{
    for (;;)
    {
        board_feed_watchdog();
        const uint64_t now = clock_now_us();
        if (condition())
        {
            return true;
        }
        if (now >= time_us)
        {
            return false;
        }
        board_wait(static_cast<uint32_t>(std::min<uint64_t>(time_us - now, BOARD_LONGEST_WAIT_US)));
    }
}

void clock_sleep_until_us(uint64_t time_us)
{
    (void)clock_wait_until(time_us, never);
}

void clock_delay_us(uint32_t duration_us)
{
    // Part of the current microsecond has already passed.
    clock_sleep_until_us(clock_now_us() + duration_us + 1U);
}
