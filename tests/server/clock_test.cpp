/** @file
 * The server's clock: wraps, periods, and the times at which frames are due.
 */
#include "zet_vantor_server_clock.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include <gtest/gtest.h>

namespace
{

uint32_t tick = 0;

uint32_t get_tick()
{
    return tick;
}

zet_server_clock_t started(uint32_t ticks_per_second, get_tick_function_t *function = get_tick)
{
    vantor_server_interface_t link = {};
    link.get_tick = function;
    link.ticks_per_second = ticks_per_second;
    zet_server_clock_t clock;
    zet_server_clock_start(&clock, &link);
    return clock;
}

TEST(server_clock, starts_at_zero_whatever_the_tick)
{
    tick = 12345;
    zet_server_clock_t clock = started(1000);
    EXPECT_EQ(zet_server_clock_read(&clock), 0U);
    tick += 5;
    EXPECT_EQ(zet_server_clock_read(&clock), 5U);
}

TEST(server_clock, continues_when_the_tick_wraps)
{
    tick = UINT32_MAX - 1;
    zet_server_clock_t clock = started(1000);
    uint64_t expected = 0;
    for (const uint32_t passed : {1U, 1U, 1U, 0x7FFFFFFFU, 0xFFFFFFFFU, 0xFFFFFFFFU, 0x12345678U})
    {
        tick += passed;
        expected += passed;
        EXPECT_EQ(zet_server_clock_read(&clock), expected);
    }
    EXPECT_GT(expected, uint64_t{2} * UINT32_MAX);
}

TEST(server_clock, stays_at_zero_without_a_tick_source)
{
    for (zet_server_clock_t clock : {started(0), started(1000, nullptr)})
    {
        tick += 1000;
        EXPECT_EQ(zet_server_clock_read(&clock), 0U);
        EXPECT_EQ(clock.ticks_per_second, 0U);
        EXPECT_EQ(zet_server_clock_period(&clock, 10.0F), 0U);
    }
}

TEST(server_clock, rounds_a_period_to_the_nearest_tick)
{
    const zet_server_clock_t clock = started(1000);
    EXPECT_EQ(zet_server_clock_period(&clock, 10.0F), 100U);
    EXPECT_EQ(zet_server_clock_period(&clock, 3.0F), 333U);
    EXPECT_EQ(zet_server_clock_period(&clock, 6.0F), 167U);
    EXPECT_EQ(zet_server_clock_period(&clock, 400.0F), 3U);
    EXPECT_EQ(zet_server_clock_period(&clock, 0.5F), 2000U);
}

TEST(server_clock, rounds_the_exact_quotient_of_every_kind_of_rate)
{
    for (const uint32_t ticks_per_second : {1U, 1000U, 1000000U, UINT32_MAX})
    {
        const zet_server_clock_t clock = started(ticks_per_second);
        for (uint32_t bits = 1; bits <= 0x7F800000U; bits += 49999)
        {
            const auto rate = std::bit_cast<float>(bits);
            // 64 bits of precision are enough to find on which side of a half the quotient is.
            const long double period = std::floor(
                static_cast<long double>(ticks_per_second) / static_cast<long double>(rate) + 0.5L);
            const auto limited = static_cast<uint32_t>(std::clamp<long double>(period, 1, UINT32_MAX));
            ASSERT_EQ(zet_server_clock_period(&clock, rate), limited) << rate;
        }
    }
}

TEST(server_clock, limits_a_period_to_32_bits_and_at_least_one_tick)
{
    const zet_server_clock_t clock = started(1000);
    EXPECT_EQ(zet_server_clock_period(&clock, 1000.0F), 1U);
    EXPECT_EQ(zet_server_clock_period(&clock, 1e30F), 1U);
    EXPECT_EQ(zet_server_clock_period(&clock, 1e-30F), UINT32_MAX);
    EXPECT_EQ(zet_server_clock_period(&clock, 1e-45F), UINT32_MAX);
    EXPECT_EQ(zet_server_clock_period(&clock, 0x1p-22F), 4194304000U);
}

TEST(server_clock, returns_no_period_for_an_invalid_rate)
{
    const zet_server_clock_t clock = started(1000);
    EXPECT_EQ(zet_server_clock_period(&clock, 0.0F), 0U);
    EXPECT_EQ(zet_server_clock_period(&clock, -1.0F), 0U);
    EXPECT_EQ(zet_server_clock_period(&clock, NAN), 0U);
}

TEST(server_clock, keeps_frames_on_multiples_of_the_period)
{
    EXPECT_EQ(zet_server_clock_next_due(100, 10, 100), 110U);
    EXPECT_EQ(zet_server_clock_next_due(100, 10, 109), 110U);
    EXPECT_EQ(zet_server_clock_next_due(100, 10, 110), 110U);
    EXPECT_EQ(zet_server_clock_next_due(100, 10, 111), 120U);
    EXPECT_EQ(zet_server_clock_next_due(100, 10, 120), 120U);
    EXPECT_EQ(zet_server_clock_next_due(100, 10, 1234), 1240U);
    EXPECT_EQ(zet_server_clock_next_due(0, UINT32_MAX, uint64_t{5} * UINT32_MAX + 1),
              uint64_t{6} * UINT32_MAX);
}

} // namespace
