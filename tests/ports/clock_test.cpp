/** @file
 * Tests of the real clock of the Linux port, which can be wrong.
 */
#include "clock.h"

#include <chrono>

#include <gtest/gtest.h>

namespace
{

using std::chrono::steady_clock;
using std::chrono::system_clock;

/** Microseconds between two times. */
double us_between(steady_clock::time_point begin, steady_clock::time_point end)
{
    return std::chrono::duration<double, std::micro>(end - begin).count();
}

/** Checks that a clock runs at a rate from what it first shows on, and wakes no sleeper early. */
void expect_rate(double error, uint64_t first_us)
{
    const auto before = steady_clock::now();
    const zet_simulator_clock_t clock = real_clock(error, first_us);
    const auto after = steady_clock::now();
    uint64_t last = 0;
    for (uint64_t span_us = 0; span_us < 20000; span_us += 997)
    {
        clock.sleep_until_us(first_us + span_us);
        const auto asked = steady_clock::now();
        const uint64_t shown = clock.now_us() - first_us;
        const auto answered = steady_clock::now();
        EXPECT_GE(shown, span_us);
        EXPECT_GE(shown, last);
        EXPECT_GE(static_cast<double>(shown), us_between(after, asked) * (1.0 + error) - 1.0);
        EXPECT_LE(static_cast<double>(shown), us_between(before, answered) * (1.0 + error) + 1.0);
        last = shown;
    }
}

TEST(clock, runs_at_its_rate)
{
    for (const double error : {0.0, 0.5, -0.5, 1e-3, -1e-3})
    {
        expect_rate(error, 0);
        expect_rate(error, 4294967290);
    }
}

TEST(clock, knows_how_long_a_span_takes)
{
    real_clock(0.0, 0);
    EXPECT_EQ(real_span_us(0), 0);
    EXPECT_EQ(real_span_us(123456789), 123456789);
    // Its second has 1000050 of its microseconds.
    real_clock(50e-6, 0);
    EXPECT_EQ(real_span_us(1000050), 1000000);
    EXPECT_EQ(real_span_us(1000051), 1000001);
    EXPECT_GE(real_span_us(1000050000000), 1000000000000);
    EXPECT_LE(real_span_us(1000050000000), 1000000000001);
    EXPECT_EQ(real_span_us(1), 1) << "rounded up";
    real_clock(-50e-6, 0);
    EXPECT_GE(real_span_us(999950000000), 1000000000000);
    EXPECT_LE(real_span_us(999950000000), 1000000000001);
    EXPECT_EQ(real_span_us(1), 2) << "rounded up";
    EXPECT_EQ(real_span_us(0), 0);
}

TEST(clock, knows_when_it_showed_0)
{
    const auto seconds_since_1970 = [] {
        return std::chrono::duration<double>(system_clock::now().time_since_epoch()).count();
    };
    for (const double error : {0.0, 0.25, -0.25})
    {
        const double before = seconds_since_1970();
        real_clock(error, 3000000);
        const double after = seconds_since_1970();
        const double zero = real_clock_zero_utc_s();
        EXPECT_GE(zero, before - 3.0 / (1.0 + error) - 1e-5);
        EXPECT_LE(zero, after - 3.0 / (1.0 + error) + 1e-5);
    }
}

} // namespace
