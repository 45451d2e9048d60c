/** @file
 * The board's clock: its counter, and an alarm whose interrupt ends a sleep.
 */
#include "clock.h"

#include <algorithm>

#include "board.h"
#include "cortex_m4.h"
#include "interrupts.h"

namespace
{

/** The counter goes round in 71 minutes; no sleep is so long that a round could be missed. */
constexpr uint64_t longest_sleep_us = 1000000000;

uint32_t last_count;
uint64_t rounds;

} // namespace

void alarm_handler()
{
    board_alarm_clear();
}

void clock_start()
{
    cortex_m4::enable_interrupt(BOARD_ALARM_INTERRUPT);
}

uint64_t clock_now_us()
{
    const uint32_t count = board_counter_us();
    rounds += count < last_count ? 1U : 0U;
    last_count = count;
    return rounds << 32U | count;
}

bool clock_sleep_until_interrupt(uint64_t time_us)
{
    const uint64_t now = clock_now_us();
    if (now >= time_us)
    {
        return false;
    }
    board_alarm_set(static_cast<uint32_t>(std::min(time_us - now, longest_sleep_us)));
    cortex_m4::wait_for_interrupt();
    return true;
}

void clock_delay_us(uint32_t duration_us)
{
    const uint64_t end = clock_now_us() + duration_us;
    for (bool waiting = true; waiting;)
    {
        const cortex_m4::interrupt_lock lock;
        waiting = clock_sleep_until_interrupt(end);
    }
}
