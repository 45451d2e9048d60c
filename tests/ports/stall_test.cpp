/** @file
 * Tests of recognising a host that accepts no data, exact to the microsecond.
 */
#include "stall.h"

#include <gtest/gtest.h>

namespace
{

constexpr int64_t limit_us = 10000000;
constexpr int64_t begin_us = 77;

/** A host that had taken everything before the last write, after which this many bytes are unsent. */
stall_t stall_with(int unsent)
{
    stall_t stall(limit_us);
    EXPECT_FALSE(stall.is_too_long(begin_us, 0));
    stall.note_written(unsent);
    return stall;
}

TEST(stall, is_too_long_after_the_limit)
{
    stall_t stall = stall_with(1000);
    EXPECT_FALSE(stall.is_too_long(begin_us, 1000));
    EXPECT_FALSE(stall.is_too_long(begin_us + limit_us - 1, 1000));
    EXPECT_TRUE(stall.is_too_long(begin_us + limit_us, 1000));
}

TEST(stall, begins_again_with_every_byte_that_the_host_takes)
{
    stall_t stall = stall_with(1000);
    EXPECT_FALSE(stall.is_too_long(begin_us + limit_us, 999));
    EXPECT_FALSE(stall.is_too_long(begin_us + 2 * limit_us - 1, 999));
    EXPECT_TRUE(stall.is_too_long(begin_us + 2 * limit_us, 999));
}

TEST(stall, does_not_begin_again_with_a_write)
{
    stall_t stall = stall_with(1000);
    for (int write = 1; write < 10; ++write)
    {
        EXPECT_FALSE(stall.is_too_long(begin_us + write * limit_us / 10, write * 1000));
        stall.note_written((write + 1) * 1000);
    }
    EXPECT_FALSE(stall.is_too_long(begin_us + limit_us - 1, 10000));
    EXPECT_TRUE(stall.is_too_long(begin_us + limit_us, 10000));
}

TEST(stall, sees_what_a_host_takes_between_two_writes)
{
    stall_t stall = stall_with(1000);
    for (int write = 1; write < 100; ++write)
    {
        EXPECT_FALSE(stall.is_too_long(begin_us + write * (limit_us - 1), 999));
        stall.note_written(1000);
    }
}

TEST(stall, does_not_take_more_unsent_bytes_for_progress)
{
    stall_t stall = stall_with(500);
    EXPECT_FALSE(stall.is_too_long(begin_us + 1, 1000));
    EXPECT_TRUE(stall.is_too_long(begin_us + limit_us, 1000));
}

TEST(stall, needs_something_to_take)
{
    stall_t stall = stall_with(0);
    EXPECT_FALSE(stall.is_too_long(begin_us + 100 * limit_us, 0));
    stall.note_written(400);
    EXPECT_FALSE(stall.is_too_long(begin_us + 101 * limit_us - 1, 400));
    EXPECT_TRUE(stall.is_too_long(begin_us + 101 * limit_us, 400));
}

TEST(stall, begins_with_a_refused_write_if_the_unsent_bytes_are_unknown)
{
    stall_t stall = stall_with(0);
    EXPECT_FALSE(stall.is_too_long(begin_us + 3 * limit_us, 0));
    stall.note_refused();
    EXPECT_FALSE(stall.is_too_long(begin_us + 4 * limit_us - 1, 0));
    EXPECT_TRUE(stall.is_too_long(begin_us + 4 * limit_us, 0));
    stall.note_written(0);
    EXPECT_FALSE(stall.is_too_long(begin_us + 5 * limit_us, 0));
}

TEST(stall, is_checked_ten_times_within_the_limit)
{
    EXPECT_EQ(stall_t(limit_us).next_check_us(), limit_us / 10);
}

TEST(stall, is_never_too_long_without_a_limit)
{
    stall_t stall;
    stall.note_written(1000);
    EXPECT_LT(stall.next_check_us(), 0);
    EXPECT_FALSE(stall.is_too_long(INT64_MAX, 1000));
}

} // namespace
