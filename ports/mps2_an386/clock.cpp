/** @file
 * The board's clock: its 25 MHz counter, and a timer whose interrupt ends a sleep.
 */
#include "clock.h"

#include <algorithm>

#include "cortex_m4.h"
#include "interrupts.h"

using cortex_m4::hardware_register;

namespace
{

constexpr uintptr_t counter_register = 0x40028018U;
constexpr uintptr_t timer_base = 0x40000000U;

/** Registers of the timer. */
enum timer_register_t : uintptr_t
{
    timer_control = timer_base,
    timer_value = timer_base + 0x4U,
    timer_reload = timer_base + 0x8U,
    timer_interrupt_clear = timer_base + 0xCU,
};

/** Runs the timer and lets it interrupt. */
constexpr uint32_t timer_run = 1U << 0U | 1U << 3U;

constexpr uint32_t cycles_per_us = 25;

/** The counter goes round in 171 s; no sleep is so long that a round could be missed. */
constexpr uint64_t longest_sleep_us = 60000000;

uint32_t last_count;
uint64_t rounds;

bool never()
{
    return false;
}

/** Makes an interrupt come after a time. */
void set_timer(uint64_t duration_us)
{
    const auto cycles = static_cast<uint32_t>(std::min(duration_us, longest_sleep_us)) * cycles_per_us;
    hardware_register(timer_control) = 0;
    hardware_register(timer_reload) = cycles;
    hardware_register(timer_value) = cycles;
    hardware_register(timer_control) = timer_run;
}

} // namespace

void timer_handler()
{
    hardware_register(timer_control) = 0;
    hardware_register(timer_interrupt_clear) = 1;
}

void clock_start()
{
    cortex_m4::enable_interrupt(timer_interrupt);
}

uint64_t clock_now_us()
{
    const uint32_t count = hardware_register(counter_register);
    rounds += count < last_count ? 1U : 0U;
    last_count = count;
    return (rounds << 32U | count) / cycles_per_us;
}

void clock_sleep_until_us(uint64_t time_us, bool (*condition)())
{
    for (uint64_t now = clock_now_us(); now < time_us; now = clock_now_us())
    {
        const cortex_m4::interrupt_lock lock;
        if (condition())
        {
            return;
        }
        set_timer(time_us - now);
        cortex_m4::wait_for_interrupt();
    }
}

void clock_sleep_until_us(uint64_t time_us)
{
    clock_sleep_until_us(time_us, never);
}

zet_simulator_clock_t real_clock()
{
    return {clock_now_us, clock_sleep_until_us};
}
