/** @file
 * Tests of the statistics of an item, and of ticks that wrap around.
 */
#include "vantor/item_statistics.h"

#include <cmath>

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

TEST(item_statistics, measures_noise_without_echoes_that_do_not_move)
{
    item_statistics statistics(4);
    EXPECT_TRUE(std::isnan(statistics.background_of({.offset = 0, .length = 4}).noise));
    EXPECT_TRUE(std::isnan(statistics.background_of({.offset = 0, .length = 4}).level()));
    statistics.add(
        std::vector<sample>{{1000, 0}, {0, 0}, {0, 50}, {0, 0}, {1000, 6}, {8, 0}, {0, 50}, {0, 0}});
    // Of the squared differences 36, 64, 0 and 0 the median; 0 of the last two points.
    EXPECT_NEAR(statistics.background_of({.offset = 0, .length = 4}).noise, std::sqrt(36.0 / 2.0), 1e-9);
    EXPECT_EQ(statistics.background_of({.offset = 2, .length = 2}).noise, 0.0);
}

TEST(item_statistics, compares_frames_of_one_sweep_without_a_gap)
{
    item_statistics statistics(1);
    const subsweep_layout all{.offset = 0, .length = 1};
    statistics.add(std::vector<sample>{{100, 0}});
    statistics.restart();
    statistics.add(std::vector<sample>{{200, 0}});
    EXPECT_TRUE(std::isnan(statistics.background_of(all).noise));
    statistics.add(std::vector<sample>{{204, 0}});
    EXPECT_NEAR(statistics.background_of(all).noise, std::sqrt(16.0 / 2.0), 1e-9);
}

TEST(item_statistics, finds_the_offset_between_echoes)
{
    item_statistics statistics(4);
    const std::vector<sample> sweep{{3000, 0}, {3, 4}, {3, 4}, {-4000, 1}};
    statistics.add(sweep);
    statistics.add(sweep);
    EXPECT_EQ(statistics.background_of({.offset = 0, .length = 4}).offset, 5.0);
    EXPECT_EQ(statistics.background_of({.offset = 0, .length = 4}).level(), 5.0);
    EXPECT_EQ(statistics.means()[3], std::complex<double>(-4000, 1));
}

TEST(background, has_the_mean_level_of_a_rice_distribution)
{
    // The standard deviation of both parts is 1. The means are integrals over the density of the
    // distribution.
    const double rms = std::sqrt(2.0);
    EXPECT_NEAR((background{.noise = rms, .offset = 0.0}.level()), 1.25331, 1e-5);
    EXPECT_NEAR((background{.noise = rms, .offset = 1.0}.level()), 1.54857, 1e-5);
    EXPECT_NEAR((background{.noise = rms, .offset = 2.0}.level()), 2.27238, 1e-5);
    EXPECT_NEAR((background{.noise = rms, .offset = 100.0}.level()), 100.005, 1e-5);
    EXPECT_EQ((background{.noise = 0.0, .offset = 7.0}.level()), 7.0);
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
