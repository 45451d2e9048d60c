/** @file
 * The relation of a server's clock to that of the host.
 */
#include "vantor/board_clock.h"

#include <algorithm>
#include <random>

#include <gtest/gtest.h>

namespace vantor
{

namespace
{

using std::chrono::duration_cast;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;
using namespace std::chrono_literals;

using seconds = std::chrono::duration<double>;

/** A time of the host's clock, in seconds. */
steady_clock::time_point at(double time)
{
    return steady_clock::time_point(duration_cast<steady_clock::duration>(seconds(time)));
}

double seconds_of(steady_clock::time_point time)
{
    return seconds(time.time_since_epoch()).count();
}

/** A clock whose rate changes at random between two limits, and its true times. */
class drifting_clock
{
public:
    drifting_clock(double ticks_per_second, double most_ppm, uint32_t seed)
        : rate_(ticks_per_second), most_(most_ppm * 1e-6), random_(seed)
    {
        drift_ = any(-most_, most_);
    }

    /** Goes on for some seconds of true time. */
    void advance(double duration)
    {
        drift_ = std::clamp(drift_ + any(-most_, most_) / 50.0, -most_, most_);
        now_ += duration;
        ticks_ += duration * rate_ * (1.0 + drift_);
    }

    [[nodiscard]] double now() const
    {
        return now_;
    }

    /** The tick now. */
    [[nodiscard]] uint32_t tick() const
    {
        return static_cast<uint32_t>(static_cast<uint64_t>(ticks_));
    }

    double any(double least, double most)
    {
        return std::uniform_real_distribution(least, most)(random_);
    }

    /** A reading whose way there and back takes a random time. */
    clock_reading read(double shortest, double jitter)
    {
        clock_reading reading;
        reading.sent = at(now_);
        advance(shortest + any(0.0, jitter));
        reading.tick = tick();
        advance(shortest + any(0.0, jitter));
        reading.received = at(now_);
        return reading;
    }

private:
    double rate_;
    double most_;
    std::mt19937 random_;
    double drift_ = 0.0;
    double now_ = 1e6;
    double ticks_ = 4.2e9;
};

struct clock_link
{
    double ticks_per_second;
    double ppm;
    double jitter;
};

class board_clock_with : public testing::TestWithParam<clock_link>
{
};

} // namespace

TEST_P(board_clock_with, contains_the_true_time_of_every_tick)
{
    const auto &[ticks_per_second, ppm, jitter] = GetParam();
    for (uint32_t seed = 1; seed <= 20; ++seed)
    {
        drifting_clock board(ticks_per_second, ppm, seed);
        board_clock clock(ticks_per_second);
        for (int reading = 0; reading < 200; ++reading)
        {
            clock.add(board.read(50e-6, jitter));
            for (int frame = 0; frame < 20; ++frame)
            {
                board.advance(0.05);
                const auto bounds = clock.bounds(board.tick(), at(board.now() + board.any(0.0, 0.5)));
                ASSERT_TRUE(bounds);
                ASSERT_LE(seconds_of(bounds->earliest), board.now()) << seed << " " << reading;
                ASSERT_GE(seconds_of(bounds->latest), board.now()) << seed << " " << reading;
                const double width = 2.0 * jitter + 1e-4 + 2.0 * most_drift * 1.1 + 2.0 / ticks_per_second;
                ASSERT_LT(seconds(bounds->width()).count(), width) << seed << " " << reading;
            }
        }
        EXPECT_EQ(clock.contradictions(), 0U);
    }
}

INSTANTIATE_TEST_SUITE_P(all, board_clock_with,
                         testing::Values(clock_link{1e6, 50.0, 0.0}, clock_link{1e6, 50.0, 0.02},
                                         clock_link{1e6, 199.0, 0.001}, clock_link{1e9, 50.0, 0.02},
                                         clock_link{1000.0, 50.0, 0.02}));

TEST(board_clock, is_as_exact_as_the_shortest_round_trip_and_the_drift_since_then)
{
    board_clock clock(1e6);
    clock.add({at(10.0), at(10.5), 200'000});
    clock.add({at(11.0), at(11.001), 1'000'000});
    clock.add({at(12.0), at(12.7), 2'000'000});
    const auto bounds = clock.bounds(2'000'000, at(12.5));
    ASSERT_TRUE(bounds);
    constexpr double tick = 1e-6;
    EXPECT_NEAR(seconds_of(bounds->earliest), 12.0 - tick, 1e-8);
    EXPECT_NEAR(seconds_of(bounds->latest), 12.001 + most_drift + 2 * tick, 1e-8);
}

TEST(board_clock, knows_nothing_without_a_reading_or_a_clock)
{
    EXPECT_FALSE(board_clock(1e6).bounds(5, at(1.0)));
    board_clock none(0.0);
    none.add({at(1.0), at(1.0), 5});
    board_clock slow(0.001);
    slow.add({at(1.0), at(1.0), 5});
    EXPECT_FALSE(slow.bounds(5, at(1.0)));
    board_clock slowest(1.0);
    slowest.add({at(1e5), at(1e5), 0});
    EXPECT_TRUE(slowest.bounds(INT32_MAX, at(2e9 + 2e8)));
    EXPECT_FALSE(none.bounds(5, at(1.0)));
}

TEST(board_clock, finds_ticks_before_a_reading_and_across_wraps)
{
    board_clock clock(1e6);
    clock.add({at(100.0), at(100.0), 5});
    const auto before = clock.bounds(UINT32_MAX - 999'994, at(99.5));
    ASSERT_TRUE(before);
    EXPECT_NEAR(seconds_of(before->middle()), 99.0, 1e-8);
    const double wrap = 4294.967296;
    clock.add({at(100.0 + 3 * wrap), at(100.0 + 3 * wrap), 5});
    EXPECT_EQ(clock.contradictions(), 0U);
    const auto later = clock.bounds(1'000'005, at(100.0 + 3 * wrap + 1.5));
    ASSERT_TRUE(later);
    EXPECT_NEAR(seconds_of(later->middle()), 100.0 + 3 * wrap + 1.0, 1e-6);
}

TEST(board_clock, knows_no_time_of_a_tick_that_may_have_come_twice)
{
    board_clock clock(1e6);
    clock.add({at(100.0), at(100.0), 0});
    const double wrap = 4294.967296;
    EXPECT_TRUE(clock.bounds(1'000'000, at(100.0 + wrap)));
    EXPECT_FALSE(clock.bounds(1'000'000, at(101.5 + wrap)));
    EXPECT_EQ(clock.contradictions(), 0U);
    EXPECT_TRUE(clock.bounds(2'000'000, at(102.0)));
}

TEST(board_clock, knows_no_time_after_a_contradiction_until_two_readings_agree)
{
    board_clock clock(1e6);
    clock.add({at(10.0), at(10.001), 0});
    clock.add({at(11.0), at(11.001), 1'500'000});
    EXPECT_EQ(clock.contradictions(), 1U);
    EXPECT_FALSE(clock.bounds(1'600'000, at(11.2)));
    clock.add({at(12.0), at(12.001), 2'500'000});
    EXPECT_FALSE(clock.bounds(2'600'000, at(12.2)));
    clock.add({at(13.0), at(13.001), 3'500'000});
    const auto bounds = clock.bounds(3'600'000, at(13.2));
    ASSERT_TRUE(bounds);
    EXPECT_NEAR(seconds_of(bounds->middle()), 13.1005, 1e-8);
    EXPECT_EQ(clock.contradictions(), 1U);
}

TEST(board_clock, uses_no_reading_within_which_the_ticks_can_wrap_around)
{
    board_clock clock(1e9);
    const double wrap = 4.294967296;
    clock.add({at(10.0), at(10.001), 0});
    clock.add({at(11.0), at(11.0 + 1.2 * wrap), 1'000'000'000});
    EXPECT_EQ(clock.contradictions(), 0U);
    const auto bounds = clock.bounds(1'000'000'000, at(11.1));
    ASSERT_TRUE(bounds);
    EXPECT_NEAR(seconds_of(bounds->earliest), 11.0, 1e-3);
    EXPECT_LT(seconds(bounds->width()).count(), 2e-3);
}

TEST(board_clock, believes_a_clock_less_with_each_contradiction)
{
    board_clock clock(1e6);
    const auto read_at = [&](double time, double tick) {
        clock.add({at(time), at(time + 0.001), static_cast<uint32_t>(tick * 1e6)});
    };
    read_at(1.0, 1.0);
    read_at(2.0, 3.0);
    read_at(3.0, 4.0);
    read_at(4.0, 5.0);
    EXPECT_TRUE(clock.bounds(5'000'000, at(4.1)));
    read_at(5.0, 7.0);
    EXPECT_EQ(clock.contradictions(), 2U);
    read_at(6.0, 8.0);
    read_at(7.0, 9.0);
    EXPECT_FALSE(clock.bounds(9'000'000, at(7.1)));
    read_at(8.0, 10.0);
    EXPECT_TRUE(clock.bounds(10'000'000, at(8.1)));
}

TEST(board_clock, takes_no_tick_for_later_than_its_arrival)
{
    board_clock clock(1e6);
    clock.add({at(10.0), at(10.1), 0});
    const auto cut = clock.bounds(500'000, at(10.52));
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->latest, at(10.52));
    EXPECT_NEAR(seconds_of(cut->earliest), 10.4999, 1e-5);
    EXPECT_FALSE(clock.bounds(1'500'000, at(11.4)));
    EXPECT_EQ(clock.contradictions(), 1U);
    clock.add({at(12.0), at(12.1), 2'000'000});
    EXPECT_FALSE(clock.bounds(2'100'000, at(12.3)));
}

} // namespace vantor
