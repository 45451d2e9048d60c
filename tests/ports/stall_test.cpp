/** @file
 * Tests of recognising a host that accepts no data, exact to the microsecond.
 */
#include "stall.h"

#include <gtest/gtest.h>

namespace
{

constexpr int64_t limit_us = 10000000;
constexpr int64_t begin_us = 77;

TEST(stall, is_too_long_after_the_limit)
{
    stall_t stall(limit_us, begin_us, 1000);
    EXPECT_FALSE(stall.is_too_long(begin_us, 1000));
    EXPECT_FALSE(stall.is_too_long(begin_us + limit_us - 1, 1000));
    EXPECT_TRUE(stall.is_too_long(begin_us + limit_us, 1000));
}

TEST(stall, begins_again_with_every_byte_that_the_host_takes)
{
    stall_t stall(limit_us, begin_us, 1000);
    EXPECT_FALSE(stall.is_too_long(begin_us + limit_us, 999));
    EXPECT_FALSE(stall.is_too_long(begin_us + 2 * limit_us - 1, 999));
    EXPECT_TRUE(stall.is_too_long(begin_us + 2 * limit_us, 999));
}

TEST(stall, does_not_take_more_unsent_bytes_for_progress)
{
    stall_t stall(limit_us, begin_us, 0);
    EXPECT_FALSE(stall.is_too_long(begin_us + 1, 1000));
    EXPECT_TRUE(stall.is_too_long(begin_us + limit_us, 1000));
}

TEST(stall, is_checked_ten_times_within_the_limit)
{
    EXPECT_EQ(stall_t(limit_us, begin_us, 0).next_check_us(), limit_us / 10);
}

TEST(stall, is_never_too_long_without_a_limit)
{
    stall_t stall(0, begin_us, 1000);
    EXPECT_LT(stall.next_check_us(), 0);
    EXPECT_FALSE(stall.is_too_long(INT64_MAX, 1000));
}

} // namespace
