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

using numbers = std::vector<uint64_t>;

/** The counts after each of these ticks, of frames that are delayed or not. */
numbers counts(double period, const std::vector<uint32_t> &ticks, const std::vector<bool> &delayed = {})
{
    loss_counter counter(period);
    numbers result;
    for (size_t i = 0; i < ticks.size(); ++i)
    {
        result.push_back(counter.add(ticks[i], false, !delayed.empty() && delayed[i]));
    }
    return result;
}

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

TEST(loss_counter, corrects_itself_when_frames_catch_up_over_several_periods)
{
    // The third frame has place 6, the next ones 7, 8 and 9.
    const std::vector<uint32_t> ticks = {0, 100, 695, 755, 815, 900, 1000};
    EXPECT_EQ(counts(100, ticks), (numbers{0, 0, 5, 5, 4, 4, 4}));
    EXPECT_EQ(counts(100, ticks, {false, false, true, true, true, false, false}),
              (numbers{0, 0, 4, 4, 4, 4, 4}));
}

TEST(loss_counter, does_not_move_the_grid_for_delayed_frames)
{
    // Each frame takes 1.03 periods, so that every 34th one is left out.
    loss_counter counter(1000);
    for (uint32_t frame = 0; frame < 10000; ++frame)
    {
        EXPECT_EQ(counter.add(1030 * frame, false, frame > 0), frame * 30 / 1000) << frame;
    }
}

/** A paced sensor as docs/simulator.md describes it, in periods. */
struct paced_sensor
{
    double duration; /**< of a frame */
    bool double_buffering;
    double now = 0.0;
    uint64_t next_place = 0;
    uint64_t left_out = 0;

    /** Measures a frame; returns whether it is delayed. */
    bool measure()
    {
        const auto place = static_cast<double>(next_place++);
        const bool delayed = now > place + (double_buffering ? 1.0 : 0.0);
        const double start = delayed && !double_buffering ? now : place;
        if (delayed)
        {
            left_out += static_cast<uint64_t>(now) + 1 - next_place;
            next_place = static_cast<uint64_t>(now) + 1;
        }
        now = std::max(now, start + duration);
        return delayed;
    }
};

/** The number of streams of a sensor in which frames are counted that the sensor did not leave out, or the
 * other way round. In each stream the host sometimes pauses. */
int wrong_streams(double duration, double processing, bool double_buffering)
{
    constexpr double period = 31250;
    constexpr int frames = 300;
    std::mt19937 random(7);
    std::exponential_distribution<double> wake_up(500.0);
    std::uniform_real_distribution<double> pause(0.0, 250.0);
    int wrong = 0;
    for (int stream = 0; stream < 100; ++stream)
    {
        paced_sensor sensor{.duration = duration, .double_buffering = double_buffering};
        loss_counter counter(period);
        uint64_t missing = 0;
        for (int frame = 0; frame < frames; ++frame)
        {
            const bool delayed = sensor.measure();
            sensor.now += wake_up(random);
            missing =
                counter.add(static_cast<uint32_t>(static_cast<uint64_t>(sensor.now * period)), 0, delayed);
            const bool pauses = frame > 20 && frame < frames - 50 && random() % 50 == 0;
            sensor.now += processing + (pauses ? pause(random) : 0.0);
        }
        EXPECT_GT(sensor.left_out, 0U);
        wrong += missing == sensor.left_out ? 0 : 1;
    }
    return wrong;
}

TEST(loss_counter, counts_the_frames_that_a_paced_sensor_leaves_out)
{
    for (const double duration : {0.05, 0.3, 0.6})
    {
        for (const double processing : {0.02, 0.2, 0.35})
        {
            EXPECT_EQ(wrong_streams(duration, processing, false), 0) << duration << ", " << processing;
            EXPECT_EQ(wrong_streams(duration, processing, true), 0) << duration << ", " << processing;
        }
    }
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
            missing = counter.add(static_cast<uint32_t>(std::llround(i * 50000.0 * rate) % (1LL << 32)),
                                  false, false);
        }
        EXPECT_EQ(missing, 0U) << rate;
    }
}

TEST(loss_counter, counts_gaps_exactly_although_clocks_differ)
{
    for (const double difference : {-50e-6, 50e-6, -200e-6, 200e-6})
    {
        loss_counter counter(1000);
        const auto longest = static_cast<int64_t>(0.049 / std::abs(difference));
        uint64_t missing = 0;
        int64_t place = 0;
        const auto add_frame = [&] {
            const auto tick = std::llround(static_cast<double>(place) * 1000.0 * (1.0 + difference));
            missing = counter.add(static_cast<uint32_t>(tick % (1LL << 32)), 0, false);
            ++place;
        };
        for (int gap = 1; gap <= 100; ++gap)
        {
            for (int i = 0; i < 10; ++i)
            {
                add_frame();
            }
            place += longest;
            add_frame();
            EXPECT_EQ(missing, static_cast<uint64_t>(gap * longest)) << difference;
        }
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
        missing = counter.add(static_cast<uint32_t>(std::floor(place * 9.7)), 0, false);
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
        EXPECT_EQ(counter.add(static_cast<uint32_t>(static_cast<uint64_t>(tick)), 0, false), left_out)
            << frame;
        const uint64_t gap = random() % 10 == 0 ? 1 + random() % 400 : 0;
        place += 1 + gap;
        left_out += gap;
    }
}

TEST(loss_counter, counts_damaged_messages_only_if_ticks_do_not_show_them)
{
    loss_counter without_period(0);
    EXPECT_EQ(without_period.add(5, 0, false), 0U);
    EXPECT_EQ(without_period.add(5000, 0, false), 0U);
    EXPECT_EQ(without_period.add(9000, 3, false), 3U);
    loss_counter with_period(100);
    EXPECT_EQ(with_period.add(0, 1, false), 1U) << "before the first frame";
    EXPECT_EQ(with_period.add(100, 2, false), 1U) << "they were not frames";
    EXPECT_EQ(with_period.add(300, 1, false), 2U);
}

TEST(loss_counter, does_not_use_a_period_that_ticks_cannot_count)
{
    loss_counter longest(2147483647);
    EXPECT_EQ(longest.add(0, 0, false), 0U);
    EXPECT_EQ(longest.add(4294967294, 0, false), 1U);
    loss_counter too_long(2147483648);
    EXPECT_EQ(too_long.add(0, 0, false), 0U);
    EXPECT_EQ(too_long.add(2147483648, 1, false), 1U) << "a damaged message";
}

} // namespace
} // namespace vantor
