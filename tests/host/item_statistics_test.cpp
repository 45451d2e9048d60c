/** @file
 * Tests of the statistics of an item, and of ticks that wrap around.
 */
#include "vantor/item_statistics.h"

#include <gmock/gmock.h>

#include "vantor/tick_clock.h"

namespace vantor
{
namespace
{

TEST(item_statistics, averages_magnitudes_over_sweeps)
{
    item_statistics statistics(2);
    const std::vector<sample> frame{{3, 4}, {0, -1}, {-6, 8}, {0, 3}};
    statistics.add(frame);
    EXPECT_THAT(statistics.profile(), testing::ElementsAre(7.5, 2.0));
    EXPECT_DOUBLE_EQ(statistics.mean_level().value(), 4.75);
}

TEST(item_statistics, accepts_the_largest_samples)
{
    item_statistics statistics(1);
    statistics.add(std::vector<sample>{{-32768, -32768}});
    EXPECT_NEAR(statistics.mean_level().value(), 46340.95, 0.01);
}

TEST(item_statistics, is_empty_without_samples)
{
    const item_statistics none(4);
    EXPECT_EQ(none.mean_level(), std::nullopt);
    EXPECT_THAT(none.profile(), testing::ElementsAre(0.0, 0.0, 0.0, 0.0));
    item_statistics empty(0);
    empty.add({});
    EXPECT_EQ(empty.mean_level(), std::nullopt);
}

TEST(tick_clock, counts_seconds_from_the_first_tick)
{
    tick_clock clock(1000.0);
    EXPECT_EQ(clock.advance(500), 0.0);
    EXPECT_EQ(clock.advance(1500), 1.0);
    EXPECT_EQ(clock.seconds(), 1.0);
}

TEST(tick_clock, continues_when_the_ticks_wrap_around)
{
    tick_clock clock(1000.0);
    clock.advance(0xFFFFFF00U);
    EXPECT_DOUBLE_EQ(clock.advance(0x00000100U), 0.512);
    EXPECT_DOUBLE_EQ(clock.advance(0xFFFFFF00U), 4294967.296);
}

} // namespace
} // namespace vantor
