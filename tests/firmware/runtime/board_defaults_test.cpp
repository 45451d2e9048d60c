/** @file
 * Tests of the firmware's default implementations of board functions.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "board.h"
#include "cortex_m4.h"

namespace
{

using cortex_m4::processor;

constexpr uint32_t cycles_per_us = BOARD_CORE_CLOCK_HZ / 1000000;

struct board_defaults : testing::Test
{
    board_defaults()
    {
        board_wake();
        // Clear a pending wake.
        board_wait(1);
        processor = {};
    }

    ~board_defaults() override
    {
        EXPECT_FALSE(processor.interrupts_are_disabled);
        EXPECT_FALSE(processor.slept_unprotected);
    }
};

TEST_F(board_defaults, sleeps_for_the_requested_time)
{
    board_wait(1);
    board_wait(1000);
    EXPECT_THAT(processor.sleeps, testing::ElementsAre(cycles_per_us, 1000 * cycles_per_us));
}

TEST_F(board_defaults, sleeps_at_most_as_long_as_the_timer_can_count)
{
    const uint32_t longest_us = 0xFFFFFF / cycles_per_us;
    board_wait(longest_us);
    board_wait(longest_us + 1);
    board_wait(BOARD_LONGEST_WAIT_US);
    EXPECT_THAT(processor.sleeps, testing::ElementsAre(longest_us * cycles_per_us, 0xFFFFFF, 0xFFFFFF));
}

TEST_F(board_defaults, does_not_sleep_after_a_wake)
{
    board_wake();
    board_wake();
    board_wait(1000);
    EXPECT_THAT(processor.sleeps, testing::IsEmpty());
    board_wait(1000);
    EXPECT_EQ(processor.sleeps.size(), 1U) << "several wakes end only one wait";
}

TEST_F(board_defaults, keeps_a_wake_at_the_end_of_a_wait)
{
    processor.pending = board_wake;
    board_wait(1000);
    EXPECT_EQ(processor.sleeps.size(), 1U);
    board_wait(1000);
    EXPECT_EQ(processor.sleeps.size(), 1U) << "the second wait must not sleep";
}

TEST_F(board_defaults, do_not_describe_the_board)
{
    EXPECT_EQ(board_link_nearest_baudrate(123456), 123456U);
    EXPECT_EQ(board_reset_cause(), nullptr);
    EXPECT_EQ(board_id(), nullptr);
    board_feed_watchdog();
}

} // namespace
