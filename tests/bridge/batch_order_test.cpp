/** @file
 * Tests of the order of batches.
 */
#include "bridge/batch_order.h"

#include <gtest/gtest.h>

namespace vantor
{
namespace
{

/** A batch of ten frames. */
batch_header batch_of(const std::string &session, uint64_t number)
{
    return {.site = "hall",
            .board = "door",
            .session = session,
            .number = number,
            .first = number * 10,
            .frames = 10,
            .missing = 0,
            .utc = {},
            .content = nullptr,
            .end = {}};
}

/** The last batch of a session. */
batch_header end_of(const std::string &session, uint64_t number)
{
    auto last = batch_of(session, number);
    last.end = "the bridge was stopped";
    return last;
}

TEST(order_of_batches, finds_nothing_wrong_in_a_session)
{
    batch_order order;
    EXPECT_TRUE(order.add(batch_of("a", 0)).begins);
    const auto next = order.add(batch_of("a", 1));
    EXPECT_FALSE(next.begins || next.repeated || next.unfinished || next.goes_on);
    EXPECT_EQ(next.lost_frames, 0U);
}

TEST(order_of_batches, counts_what_is_lost)
{
    batch_order order;
    order.add(batch_of("a", 7));
    const auto found = order.add(batch_of("a", 10));
    EXPECT_EQ(found.lost_batches, 2U);
    EXPECT_EQ(found.lost_frames, 20U);
}

TEST(order_of_batches, loses_nothing_before_the_first_batch_of_all)
{
    batch_order order;
    const auto found = order.add(batch_of("a", 7));
    EXPECT_EQ(found.lost_batches, 0U);
    EXPECT_EQ(found.lost_frames, 0U);
}

TEST(order_of_batches, counts_what_is_lost_at_the_beginning_of_the_next_session)
{
    batch_order order;
    order.add(end_of("a", 0));
    const auto found = order.add(batch_of("b", 1));
    EXPECT_TRUE(found.begins);
    EXPECT_FALSE(found.unfinished);
    EXPECT_EQ(found.lost_frames, 10U);
}

TEST(order_of_batches, notices_a_session_without_end)
{
    batch_order order;
    order.add(batch_of("a", 0));
    EXPECT_TRUE(order.add(batch_of("b", 0)).unfinished);
}

TEST(order_of_batches, drops_what_comes_twice)
{
    batch_order order;
    order.add(batch_of("a", 0));
    order.add(batch_of("a", 1));
    EXPECT_TRUE(order.add(batch_of("a", 1)).repeated);
    order.add(batch_of("b", 0));
    EXPECT_TRUE(order.add(batch_of("a", 0)).repeated);
    EXPECT_TRUE(order.add(batch_of("a", 1)).repeated);
    EXPECT_FALSE(order.add(batch_of("b", 1)).begins);
}

TEST(order_of_batches, goes_on_with_a_session_that_another_one_interrupts)
{
    batch_order order;
    order.add(batch_of("a", 0));
    order.add(batch_of("forged", 1000));
    const auto found = order.add(batch_of("a", 2));
    EXPECT_FALSE(found.repeated);
    EXPECT_TRUE(found.begins);
    EXPECT_TRUE(found.goes_on);
    EXPECT_FALSE(found.unfinished);
    EXPECT_EQ(found.lost_batches, 1U);
    EXPECT_EQ(found.lost_frames, 10U);
    EXPECT_EQ(order.add(batch_of("a", 3)).lost_frames, 0U);
}

} // namespace
} // namespace vantor
