/** @file
 * Tests of the statistics of an item, and of ticks that wrap around.
 */
#include "vantor/item_statistics.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>

#include <gmock/gmock.h>

#include "noise_source.h"
#include "vantor/tick_clock.h"

namespace vantor
{
namespace
{

/** An item with one sub-sweep of this many points. */
item_layout points(size_t count)
{
    item_layout layout;
    layout.sweep_length = count;
    layout.subsweeps = {{.offset = 0, .length = count}};
    return layout;
}

TEST(item_statistics, averages_magnitudes_over_sweeps)
{
    item_statistics statistics(points(2));
    const std::vector<sample> frame{{3, 4}, {0, -1}, {-6, 8}, {0, 3}};
    statistics.add(frame);
    EXPECT_THAT(statistics.profile(), testing::ElementsAre(7.5, 2.0));
    EXPECT_DOUBLE_EQ(statistics.mean_level().value(), 4.75);
}

TEST(item_statistics, accepts_the_largest_samples)
{
    item_statistics statistics(points(1));
    statistics.add(std::vector<sample>{{-32768, -32768}});
    EXPECT_NEAR(statistics.mean_level().value(), 46340.95, 0.01);
}

TEST(item_statistics, knows_points_with_clipped_samples)
{
    item_statistics statistics(points(4));
    EXPECT_FALSE(statistics.clipped(0));
    statistics.add(std::vector<sample>{{32766, 0}, {0, 32767}, {-32768, 5}, {0, -32767}});
    statistics.add(std::vector<sample>(4));
    EXPECT_FALSE(statistics.clipped(0));
    EXPECT_TRUE(statistics.clipped(1));
    EXPECT_TRUE(statistics.clipped(2));
    EXPECT_FALSE(statistics.clipped(3));
}

TEST(item_statistics, is_empty_without_samples)
{
    const item_statistics none(points(4));
    EXPECT_EQ(none.mean_level(), std::nullopt);
    EXPECT_THAT(none.profile(), testing::ElementsAre(0.0, 0.0, 0.0, 0.0));
    item_statistics empty(points(0));
    empty.add({});
    EXPECT_EQ(empty.mean_level(), std::nullopt);
}

TEST(item_statistics, measures_noise_without_echoeshat_do_not_move)
{
    auto layout = points(6);
    layout.subsweeps = {{.offset = 0, .length = 4}, {.offset = 4, .length = 2}};
    item_statistics statistics(layout);
    EXPECT_TRUE(std::isnan(statistics.background_of(0).noise));
    EXPECT_TRUE(std::isnan(statistics.background_of(0).level()));
    statistics.add(std::vector<sample>{{1000, 0},
                                       {0, 0},
                                       {0, 50},
                                       {0, 0},
                                       {0, 900},
                                       {7, 0},
                                       {1000, 6},
                                       {8, 0},
                                       {6, 50},
                                       {0, 8},
                                       {0, 900},
                                       {7, 0}});
    // The mean of the squared differences 36, 64, 36 and 64.
    EXPECT_NEAR(statistics.background_of(0).noise, std::sqrt(50.0 / 2.0), 1e-9);
    EXPECT_EQ(statistics.background_of(1).noise, 0.0);
}

TEST(item_statistics, compares_frames_of_one_sweep_without_a_gap)
{
    item_statistics statistics(points(1));
    statistics.add(std::vector<sample>{{100, 0}});
    statistics.restart();
    statistics.add(std::vector<sample>{{200, 0}});
    EXPECT_TRUE(std::isnan(statistics.background_of(0).noise));
    statistics.add(std::vector<sample>{{204, 0}});
    EXPECT_NEAR(statistics.background_of(0).noise, std::sqrt(16.0 / 2.0), 1e-9);
}

TEST(item_statistics, finds_the_offset_between_echoes)
{
    item_statistics statistics(points(4));
    const std::vector<sample> sweep{{3000, 0}, {3, 4}, {3, 4}, {-4000, 1}};
    statistics.add(sweep);
    statistics.add(sweep);
    EXPECT_EQ(statistics.background_of(0).offset, 5.0);
    EXPECT_EQ(statistics.background_of(0).level(), 5.0);
    EXPECT_EQ(statistics.means()[3], std::complex<double>(-4000, 1));
}

/** What the echoes of a test have: the amplitude at a point in a sweep. */
using echoes = std::function<std::complex<double>(size_t sweep, size_t point)>;

/** The parts of a sample, rounded and clipped as those of a sensor. */
sample digitised(std::complex<double> value)
{
    const auto part = [](double real) {
        return static_cast<int16_t>(std::clamp(std::round(real), -32768.0, 32767.0));
    };
    return {part(value.real()), part(value.imag())};
}

/** The background of 100 points with noise of 20, an offset of (5, -5) and echoes. */
background measured_background(size_t frames, size_t sweeps, const echoes &source)
{
    constexpr size_t length = 100;
    test::noise_source noise(20.0);
    item_statistics statistics(points(length));
    for (size_t frame = 0; frame < frames; ++frame)
    {
        std::vector<sample> samples;
        for (size_t i = 0; i < sweeps * length; ++i)
        {
            const std::complex<double> offset{5.0, -5.0};
            samples.push_back(digitised(noise() + offset + source(frame * sweeps + i / length, i % length)));
        }
        statistics.add(samples);
    }
    return statistics.background_of(0);
}

/** The background of a single point, with this many sweeps in a frame. */
background background_of_point(const std::vector<sample> &sweeps, size_t sweeps_per_frame)
{
    item_statistics statistics(points(1));
    for (size_t first = 0; first < sweeps.size(); first += sweeps_per_frame)
    {
        statistics.add(std::span(sweeps).subspan(first, sweeps_per_frame));
    }
    return statistics.background_of(0);
}

/** An echo of a pulse that is five points wide. */
double pulse(double amplitude, double place, size_t point)
{
    const double away = (static_cast<double>(point) - place) / 5.0;
    return amplitude * std::exp(-away * away);
}

/** An echo that moves through all points while this many sweeps are measured. */
echoes passing_echo(double sweeps)
{
    return [=](size_t sweep, size_t point) {
        const double place = std::fmod(static_cast<double>(sweep), sweeps) / sweeps * 100.0;
        return std::polar(pulse(3000.0, place, point), 2.0 * static_cast<double>(sweep));
    };
}

/** Expects the noise, and the mean level, within 0.5 dB. */
void expect_true_background(const background &found)
{
    EXPECT_NEAR(20.0 * std::log10(found.noise / 20.0), 0.0, 0.5);
    const background truth{.noise = 20.0, .offset = std::sqrt(50.0)};
    EXPECT_NEAR(20.0 * std::log10(found.level() / truth.level()), 0.0, 0.5);
}

TEST(item_statistics, measures_the_noise_beside_echoeshat_pass_most_points)
{
    expect_true_background(measured_background(400, 1, passing_echo(100.0)));
    expect_true_background(measured_background(100, 32, passing_echo(800.0)));
}

TEST(item_statistics, has_the_mean_level_of_noise_that_is_not_always_as_strong)
{
    constexpr size_t length = 100;
    test::noise_source noise(20.0);
    item_statistics statistics(points(length));
    for (size_t frame = 0; frame < 200; ++frame)
    {
        // A burst of interference in every tenth frame.
        const double factor = frame % 10 == 0 ? 10.0 : 1.0;
        std::vector<sample> samples(8 * length);
        std::generate(samples.begin(), samples.end(), [&] { return digitised(noise() * factor); });
        statistics.add(samples);
    }
    // The noise is estimated from several frames at a time; from the mean power, it would be 6 dB higher.
    EXPECT_NEAR(20.0 * std::log10(statistics.background_of(0).level() / statistics.mean_level().value()), 0.0,
                1.2);
}

TEST(item_statistics, measures_the_noise_beside_several_echoes)
{
    const auto walker = passing_echo(150.0);
    const auto source = [&](size_t sweep, size_t point) {
        const double breath = 10.0 * std::sin(0.08 * static_cast<double>(sweep));
        return walker(sweep, point) + std::polar(pulse(2000.0, 30.0, point), breath) +
               pulse(9000.0, 60.0, point);
    };
    expect_true_background(measured_background(400, 1, source));
    expect_true_background(measured_background(20, 32, source));
}

TEST(item_statistics, measures_the_noise_beside_samples_that_are_clipped)
{
    const auto source = [](size_t, size_t point) { return point < 40 ? 40000.0 : 0.0; };
    expect_true_background(measured_background(40, 1, source));
}

TEST(item_statistics, leaves_out_a_clipped_sample_of_any_sweep)
{
    for (const size_t clipped : {0U, 3U, 7U})
    {
        std::vector<sample> sweeps(8);
        EXPECT_EQ(background_of_point(sweeps, 1).noise, 0.0);
        sweeps[clipped].q = std::numeric_limits<int16_t>::min();
        EXPECT_TRUE(std::isnan(background_of_point(sweeps, 1).noise)) << clipped;
        EXPECT_TRUE(std::isnan(background_of_point(sweeps, 8).noise)) << clipped;
    }
}

TEST(item_statistics, measures_the_noise_in_few_sweeps)
{
    const auto still = [](size_t, size_t point) { return pulse(9000.0, 60.0, point); };
    EXPECT_NEAR(20.0 * std::log10(measured_background(2, 1, still).noise / 20.0), 0.0, 1.0);
    EXPECT_NEAR(20.0 * std::log10(measured_background(1, 32, still).noise / 20.0), 0.0, 0.5);
}

TEST(item_statistics, measures_the_mean_power_of_noise_that_changes)
{
    // Another transmitter is on for half of the time.
    test::noise_source noise(100.0);
    noise.skip();
    const auto source = [&](size_t sweep, size_t) { return sweep / 100 % 2 == 0 ? 0.0 : noise(); };
    const double mean = std::sqrt(400.0 + 10000.0 / 2.0);
    EXPECT_NEAR(20.0 * std::log10(measured_background(400, 1, source).noise / mean), 0.0, 0.5);
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
