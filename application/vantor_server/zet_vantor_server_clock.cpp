/** @file
 * The server's time.
 */
#include "zet_vantor_server_clock.h"

void zet_server_clock_start(zet_server_clock_t *clock, const vantor_server_interface_t *link)
{
    const bool runs = link->get_tick != nullptr && link->ticks_per_second > 0;
    clock->get_tick = runs ? link->get_tick : nullptr;
    clock->ticks_per_second = runs ? link->ticks_per_second : 0;
    clock->last_tick = runs ? link->get_tick() : 0;
    clock->now = 0;
}

uint64_t zet_server_clock_read(zet_server_clock_t *clock)
{
    if (clock->get_tick != nullptr)
    {
        const uint32_t tick = clock->get_tick();
        clock->now += tick - clock->last_tick;
        clock->last_tick = tick;
    }
    return clock->now;
}

uint32_t zet_server_clock_period(const zet_server_clock_t *clock, float rate)
{
    if (clock->ticks_per_second == 0 || !(rate > 0.0F))
    {
        return 0;
    }
    const double rounded = static_cast<double>(clock->ticks_per_second) / static_cast<double>(rate) + 0.5;
    if (rounded >= static_cast<double>(UINT32_MAX))
    {
        return UINT32_MAX;
    }
    return rounded < 1.0 ? 1 : static_cast<uint32_t>(rounded);
}

uint64_t zet_server_clock_next_due(uint64_t due, uint32_t period, uint64_t now)
{
    const uint64_t next = due + period;
    if (now <= next)
    {
        return next;
    }
    const uint64_t missed = (now - next + period - 1) / period;
    return next + missed * period;
}
