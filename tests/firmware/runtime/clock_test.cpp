/** @file
 * Tests of the firmware's clock, exact to the microsecond.
 */
#include "clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "board.h"
#include "fake_board.h"

namespace
{

constexpr uint64_t wrap_us = uint64_t{1} << 32U;
constexpr uint64_t longest_us = BOARD_LONGEST_WAIT_US;

bool flag;
int checks;

bool flag_is_set()
{
    ++checks;
    return flag;
}

struct runtime_clock : testing::Test
{
    runtime_clock()
    {
        reset_board();
        flag = false;
        checks = 0;
    }

    /** Advances the clock as on a board: without missing a wrap of the counter. */
    static void move_to(uint64_t time_us)
    {
        while (board.now_us() < time_us)
        {
            board.advance_us(std::min<uint64_t>(time_us - board.now_us(), 3600000000U));
            (void)clock_now_us();
        }
    }
};

TEST_F(runtime_clock, continues_when_the_counter_wraps)
{
    for (uint64_t wrap = 1; wrap < 6; ++wrap)
    {
        for (const uint64_t time_us :
             {wrap * wrap_us - 1, wrap * wrap_us, wrap * wrap_us + 1, wrap * wrap_us + 77})
        {
            move_to(time_us);
            EXPECT_EQ(clock_now_us(), time_us);
            EXPECT_EQ(clock_now_us(), time_us) << "a second read must return the same time";
        }
    }
}

TEST_F(runtime_clock, splits_a_wait_and_ends_it_on_time)
{
    board.advance_us(5);
    EXPECT_FALSE(clock_wait_until(5 + 3 * longest_us + 123, flag_is_set));
    EXPECT_EQ(board.now_us(), 5 + 3 * longest_us + 123);
    EXPECT_THAT(board.waits, testing::ElementsAre(longest_us, longest_us, longest_us, 123));
}

TEST_F(runtime_clock, ends_a_wait_on_time_when_the_counter_wraps)
{
    move_to(wrap_us - 10);
    EXPECT_FALSE(clock_wait_until(wrap_us + 10, flag_is_set));
    EXPECT_EQ(board.now_us(), wrap_us + 10);
}

TEST_F(runtime_clock, checks_the_condition_after_every_wake)
{
    board.at(10, board_wake);
    board.at(20, [] { flag = true; });
    board.at(30, board_wake);
    EXPECT_TRUE(clock_wait_until(100, flag_is_set));
    EXPECT_EQ(board.now_us(), 30U);
    EXPECT_EQ(checks, 3);
    EXPECT_THAT(board.waits, testing::ElementsAre(100, 90));
}

TEST_F(runtime_clock, checks_the_condition_again_at_the_end_of_a_wait)
{
    board.at(100, [] { flag = true; });
    EXPECT_TRUE(clock_wait_until(100, flag_is_set));
    EXPECT_EQ(board.now_us(), 100U);
}

TEST_F(runtime_clock, does_not_wait_when_the_condition_is_true)
{
    flag = true;
    board.advance_us(50);
    for (const uint64_t time_us : {uint64_t{0}, uint64_t{50}, uint64_t{51}, UINT64_MAX})
    {
        EXPECT_TRUE(clock_wait_until(time_us, flag_is_set));
    }
    EXPECT_THAT(board.waits, testing::IsEmpty());
}

TEST_F(runtime_clock, does_not_wait_when_the_time_has_passed)
{
    board.advance_us(50);
    for (const uint64_t time_us : {0U, 49U, 50U})
    {
        EXPECT_FALSE(clock_wait_until(time_us, flag_is_set));
        clock_sleep_until_us(time_us);
    }
    EXPECT_THAT(board.waits, testing::IsEmpty());
    EXPECT_EQ(checks, 3);
}

TEST_F(runtime_clock, feeds_the_watchdog_between_waits)
{
    clock_sleep_until_us(10 * longest_us);
    EXPECT_EQ(board.longest_unfed_ns, longest_us * 1000);
    EXPECT_EQ(board.last_feed_ns, board.now_ns) << "must feed it after the last wait";
}

TEST_F(runtime_clock, can_wait_49_days)
{
    move_to(wrap_us - 1);
    const uint64_t end_us = wrap_us - 1 + uint64_t{UINT32_MAX} * 1000;
    EXPECT_FALSE(clock_wait_until(end_us, flag_is_set));
    EXPECT_EQ(board.now_us(), end_us);
    EXPECT_EQ(clock_now_us(), end_us);
}

TEST_F(runtime_clock, delays_at_least_as_long_as_requested_and_less_than_2_us_longer)
{
    for (const uint32_t duration_us : {0U, 1U, 86U, uint32_t{longest_us}, UINT32_MAX})
    {
        for (const uint64_t part_ns : {0U, 1U, 500U, 999U})
        {
            board.advance_ns(1000 - board.now_ns % 1000 + part_ns);
            const uint64_t begin_ns = board.now_ns;
            const uint64_t shortest_ns = duration_us * uint64_t{1000};
            // A wake between two counts.
            board.at_ns(begin_ns + shortest_ns / 2 + 500, board_wake);
            clock_delay_us(duration_us);
            const uint64_t elapsed_ns = board.now_ns - begin_ns;
            EXPECT_GE(elapsed_ns, shortest_ns);
            EXPECT_LT(elapsed_ns, shortest_ns + 2000);
        }
    }
}

} // namespace
