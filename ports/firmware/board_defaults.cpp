/** @file
 * Defaults for the optional functions of a board.
 */
#include <algorithm>
#include <atomic>

#include "board.h"
#include "cortex_m4.h"

namespace
{

constexpr uint32_t cycles_per_us = BOARD_CORE_CLOCK_HZ / 1000000U;
static_assert(BOARD_LONGEST_WAIT_US <= UINT32_MAX / cycles_per_us,
              "BOARD_CORE_CLOCK_HZ, BOARD_LONGEST_WAIT_US: the cycles of a wait fit in 32 bits");

std::atomic<bool> woken;

} // namespace

extern "C" {

[[gnu::weak]] uint32_t board_link_nearest_baudrate(uint32_t baudrate)
{
    return baudrate;
}

[[gnu::weak]] bool board_link_set_send_interrupt(bool /*on*/)
{
    return false;
}

[[gnu::weak]] void board_feed_watchdog(void)
{
}

// With interrupts disabled nothing can happen between the check and the sleep; a pending interrupt ends the
// sleep.
[[gnu::weak]] void board_wait(uint32_t duration_us)
{
    const cortex_m4::interrupt_lock_t lock;
    if (!woken)
    {
        cortex_m4::sleep(std::min(duration_us * cycles_per_us, cortex_m4::longest_sleep_cycles));
    }
    woken = false;
}

[[gnu::weak]] void board_wake(void)
{
    woken = true;
}

[[gnu::weak]] const char *board_reset_cause(void)
{
    return nullptr;
}

[[gnu::weak]] const char *board_id(void)
{
    return nullptr;
}
}
