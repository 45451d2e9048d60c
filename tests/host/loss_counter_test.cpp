/** @file
 * Tests of the counter of missing frames.
 */
#include "vantor/loss_counter.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace vantor
{
namespace
{

/** The counts after each of these ticks. */
std::vector<uint64_t> counts(double period, const std::vector<uint32_t> &ticks)
{
    loss_counter counter(period);
    std::vector<uint64_t> result;
    result.reserve(ticks.size());
    for (const auto tick : ticks)
    {
        result.push_back(counter.add(tick, false));
    }
    return result;
}

using numbers = std::vector<uint64_t>;

TEST(loss_counter, counts_nothing_on_a_regular_stream)
{
    EXPECT_EQ(counts(100, {7, 107, 207, 307}), (numbers{0, 0, 0, 0}));
}

TEST(loss_counter, counts_the_places_without_a_frame)
{
    EXPECT_EQ(counts(100, {0, 100, 400, 500, 700}), (numbers{0, 0, 2, 2, 3}));
}

TEST(loss_counter, does_not_count_late_frames)
{
    EXPECT_EQ(counts(100, {0, 180, 210, 380, 400, 580, 600}), (numbers{0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(counts(100, {80, 100, 200, 300}), (numbers{0, 0, 0, 0}));
    EXPECT_EQ(counts(100, {0, 280, 300, 580, 600}), (numbers{0, 1, 1, 2, 2}));
}

TEST(loss_counter, corrects_itself_when_a_frame_was_late_by_nearly_a_period)
{
    EXPECT_EQ(counts(100, {0, 198, 203, 300}), (numbers{0, 1, 0, 0}));
}

TEST(loss_counter, counts_a_frame_that_took_longer_than_a_period_once)
{
    EXPECT_EQ(counts(100, {10, 230, 310, 410}), (numbers{0, 1, 1, 1}));
}

TEST(loss_counter, follows_ticks_that_wrap_around)
{
    EXPECT_EQ(counts(1000, {4294967000U, 704, 3704}), (numbers{0, 0, 2}));
}

TEST(loss_counter, does_not_mistake_the_difference_of_clocks_for_frames)
{
    for (const double rate : {1.0 - 100e-6, 1.0 + 100e-6})
    {
        loss_counter counter(50000);
        uint64_t missing = 0;
        for (int i = 0; i < 100000; ++i)
        {
            missing =
                counter.add(static_cast<uint32_t>(std::llround(i * 50000.0 * rate) % (1LL << 32)), false);
        }
        EXPECT_EQ(missing, 0U) << rate;
    }
}

TEST(loss_counter, works_with_ticks_that_are_a_large_part_of_the_period)
{
    loss_counter counter(9.7);
    uint64_t missing = 0;
    uint64_t left_out = 0;
    std::mt19937 random(1);
    for (int place = 0; place < 100000; ++place)
    {
        if (place > 0 && random() % 5 == 0)
        {
            ++left_out;
            continue;
        }
        missing = counter.add(static_cast<uint32_t>(std::floor(place * 9.7)), false);
    }
    EXPECT_NEAR(static_cast<double>(missing), static_cast<double>(left_out), 1.0);
}

TEST(loss_counter, is_exact_for_random_gaps_and_delays)
{
    std::mt19937 random(2);
    std::exponential_distribution<double> delay(30.0);
    loss_counter counter(20000);
    uint64_t place = 0;
    uint64_t left_out = 0;
    for (int frame = 0; frame < 100000; ++frame)
    {
        const auto tick = (static_cast<double>(place) + std::min(delay(random), 0.85)) * 20000.0;
        EXPECT_EQ(counter.add(static_cast<uint32_t>(static_cast<uint64_t>(tick)), false), left_out) << frame;
        const uint64_t gap = random() % 10 == 0 ? 1 + random() % 400 : 0;
        place += 1 + gap;
        left_out += gap;
    }
}

TEST(loss_counter, counts_damaged_messages_only_if_ticks_do_not_show_them)
{
    loss_counter without_period(0);
    EXPECT_EQ(without_period.add(5, false), 0U);
    EXPECT_EQ(without_period.add(5000, false), 0U);
    EXPECT_EQ(without_period.add(9000, true), 1U);
    loss_counter with_period(100);
    EXPECT_EQ(with_period.add(0, true), 1U) << "before the first frame";
    EXPECT_EQ(with_period.add(100, true), 1U) << "it was not a frame";
    EXPECT_EQ(with_period.add(300, true), 2U);
}

} // namespace
} // namespace vantor
