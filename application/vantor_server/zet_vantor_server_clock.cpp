/** @file
 * The server's time.
 */
#include "zet_vantor_server_clock.h"

#include <algorithm>
#include <bit>

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
    // Divides integers: on many processors a division of `double` needs a kilobyte of code.
    const auto bits = std::bit_cast<uint32_t>(rate);
    const int exponent = std::max(static_cast<int>(bits >> 23U), 1) - 150;
    const uint64_t mantissa = (bits & 0x7FFFFFU) | (bits >= 0x800000U ? 0x800000U : 0U);
    uint64_t ticks = clock->ticks_per_second;
    if (exponent > 32)
    {
        return 1;
    }
    if (-exponent >= std::countl_zero(ticks))
    {
        return UINT32_MAX;
    }
    ticks <<= std::max(-exponent, 0);
    const uint64_t divisor = mantissa << std::max(exponent, 0);
    const uint64_t rounded = (ticks + divisor / 2) / divisor;
    return static_cast<uint32_t>(std::clamp<uint64_t>(rounded, 1, UINT32_MAX));
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
