/** @file
 * Tests of the figures for pictures.
 */
#include "plot/item_analysis.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

#include <gmock/gmock.h>

#include "noise_source.h"
#include "plot/sensor_scale.h"
#include "temporary_directory.h"
#include "written_recordings.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using test::write_turning_recording;

/** Metres per hertz of Doppler frequency: half of the wavelength of 5 mm. */
constexpr double metres_per_turn = 0.0025;

/** The phases of a track, without gaps. */
std::vector<double> phases(const item_analysis &analysis)
{
    std::vector<double> result;
    for (const auto &point : analysis.track)
    {
        if (!std::isnan(point.phase))
        {
            result.push_back(point.phase);
        }
    }
    return result;
}

/** The velocity at the highest level of a spectrum. */
double peak_velocity(const velocity_spectrum &spectrum)
{
    const auto peak = std::max_element(spectrum.levels.begin(), spectrum.levels.end());
    return spectrum.velocities.at(static_cast<size_t>(peak - spectrum.levels.begin()));
}

TEST(item_analysis, follows_the_strongest_echo)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 64, 1.0);
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_EQ(analysis.point, 12U);
    EXPECT_NEAR(analysis.profile[12], 10000.0, 1.0);
    EXPECT_NEAR(analysis.distance, 0.37, 1e-9);
    ASSERT_EQ(phases(analysis).size(), 64U);
    // Ten turns without a jump.
    EXPECT_NEAR(phases(analysis).back() - phases(analysis).front(), 63.0, 0.01);
    EXPECT_NEAR(analysis.track.back().time, 63 * 0.02, 1e-9);
    EXPECT_EQ(analysis.map.strips.size(), 64U);
    EXPECT_TRUE(analysis.spectrum.between_frames);
    EXPECT_NEAR(peak_velocity(analysis.spectrum), 50.0 / (2.0 * std::numbers::pi) * metres_per_turn,
                50.0 / 64 * metres_per_turn);
}

TEST(item_analysis, leaves_out_frames_that_are_not_valid)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 64, 1.0, {0, 63});
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_EQ(analysis.figures.channel.invalid, 2U);
    EXPECT_EQ(analysis.point, 12U);
    EXPECT_NEAR(analysis.profile[12], 10000.0, 1.0);
    EXPECT_EQ(analysis.profile[3], 0.0);
    ASSERT_EQ(phases(analysis).size(), 62U);
    EXPECT_NEAR(analysis.track.front().time, 0.02, 1e-9);
    EXPECT_NEAR(phases(analysis).back() - phases(analysis).front(), 61.0, 0.01);
    EXPECT_EQ(analysis.map.strips.size(), 64U);
    EXPECT_EQ(analysis.spectrum.levels.size(), 62U);
    // Half of the frame rate.
    EXPECT_NEAR(analysis.spectrum.velocities.front(), -25.0 * metres_per_turn, 0.1 * metres_per_turn);
}

TEST(item_analysis, shows_frames_that_are_not_valid_as_gaps)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 10, 1.0, {3, 4});
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    ASSERT_EQ(analysis.map.strips.size(), 10U);
    EXPECT_TRUE(analysis.map.strips[3].levels.empty());
    EXPECT_TRUE(analysis.map.strips[4].levels.empty());
    EXPECT_FALSE(analysis.map.strips[5].levels.empty());
    ASSERT_EQ(analysis.track.size(), 9U);
    EXPECT_TRUE(std::isnan(analysis.track[3].phase));
    EXPECT_EQ(phases(analysis).size(), 8U);
}

TEST(item_analysis, marks_saturated_frames)
{
    const test::temporary_directory directory;
    test::write_item(
        directory / "out", {.config = json::object()}, 4,
        [](int, size_t, size_t point) { return point == 60 ? 3000.0 : 0.0; },
        [](int frame, json &info) { info["data_saturated"] = frame == 2; });
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_EQ(analysis.figures.saturated, 1U);
    EXPECT_FALSE(analysis.track.at(1).saturated);
    EXPECT_TRUE(analysis.track.at(2).saturated);
    EXPECT_TRUE(analysis.map.strips.at(2).saturated);
    EXPECT_FALSE(analysis.map.strips.at(3).saturated);
}

TEST(item_analysis, marks_an_echo_whose_samples_are_clipped)
{
    const test::temporary_directory directory;
    const auto source = [](int, size_t, size_t point) {
        return point == 20 ? 32766.0 : point >= 50 && point < 60 ? 32767.0 : 0.0;
    };
    test::write_item(directory / "out", {.config = json::object()}, 4, source);
    recording_reader recording(directory / "out");
    EXPECT_TRUE(analyse_item(recording, 0, std::nullopt).clipped);
    EXPECT_FALSE(analyse_item(recording, 0, 0.2 + 20 * 0.0025).clipped);
}

TEST(item_analysis, shows_the_level_when_no_frame_is_valid)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 3, 1.0, {0, 1, 2});
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_EQ(analysis.point, 3U);
    EXPECT_TRUE(analysis.track.empty());
    EXPECT_TRUE(analysis.spectrum.levels.empty());
}

TEST(item_analysis, uses_the_given_distance)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 2, 0.0);
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, 0.25 + 3 * 0.01 + 0.002);
    EXPECT_EQ(analysis.point, 3U);
    EXPECT_TRUE(analysis.given);
    EXPECT_TRUE(analyse_item(recording, 0, 0.3).spectrum.levels.empty());
    // The item does not measure there.
    EXPECT_EQ(analyse_item(recording, 0, 3.0).point, 12U);
    EXPECT_FALSE(analyse_item(recording, 0, 3.0).given);
}

TEST(item_analysis, keeps_the_map_small)
{
    const test::temporary_directory directory;
    write_turning_recording(directory / "out", 1000, 0.1);
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 1, std::nullopt);
    EXPECT_LE(analysis.map.strips.size(), 400U);
    EXPECT_GE(analysis.map.strips.size(), 200U);
}

TEST(item_analysis, begins_displacement_at_0)
{
    const test::temporary_directory directory;
    test::write_item(directory / "out", {.config = json::object()}, 20,
                     [](int, size_t, size_t point) { return point == 60 ? std::polar(3000.0, 2.0) : 1.0; });
    recording_reader recording(directory / "out");
    const auto track = phases(analyse_item(recording, 0, std::nullopt));
    EXPECT_EQ(track.size(), 20U);
    EXPECT_THAT(track, testing::Each(testing::DoubleNear(0.0, 1e-9)));
}

/** Records an echo that moves by 0.2 mm per frame, with this many frames missing after 40 of 80 frames. */
item_analysis analyse_with_gap(uint64_t missing, bool finished = true)
{
    const test::temporary_directory directory;
    const auto source = [=](int frame, size_t, size_t point) -> std::complex<double> {
        const double place = frame < 40 ? frame : frame + static_cast<double>(missing);
        const double turns = 0.0002 * place / metres_per_turn;
        return point == 60 ? std::polar(3000.0, 2.0 * std::numbers::pi * turns) : 1.0;
    };
    test::write_item(directory / "out",
                     {.config = json::object(), .finished = finished, .missing = {{40, missing}}}, 80,
                     source);
    recording_reader recording(directory / "out");
    return analyse_item(recording, 0, std::nullopt);
}

TEST(item_analysis, has_the_true_velocity_beside_a_gap)
{
    for (const bool finished : {true, false})
    {
        const auto analysis = analyse_with_gap(300, finished);
        EXPECT_DOUBLE_EQ(analysis.time.rate, 50.0);
        // 0.2 mm per frame at 50 Hz.
        EXPECT_NEAR(peak_velocity(analysis.spectrum), 0.01, 50.0 / 40 * metres_per_turn / 2.0);
        EXPECT_EQ(analysis.spectrum.segments, 2U);
        EXPECT_EQ(analysis.spectrum.segment_length, 40U);
        EXPECT_FALSE(analysis.aliased);
    }
}

TEST(item_analysis, has_no_levels_where_frames_are_missing)
{
    const auto map = analyse_with_gap(40).map;
    ASSERT_EQ(map.strips.size(), 120U);
    EXPECT_NEAR(map.width, 0.02, 1e-12);
    for (size_t strip = 0; strip < 120; ++strip)
    {
        EXPECT_EQ(map.strips[strip].levels.empty(), strip >= 40 && strip < 80) << strip;
    }
}

TEST(item_analysis, shows_a_long_gap_in_as_many_strips_as_it_lasts)
{
    const auto map = analyse_with_gap(3920).map;
    ASSERT_EQ(map.strips.size(), 400U);
    EXPECT_NEAR(map.width, 0.2, 1e-12);
    for (size_t strip = 0; strip < 400; ++strip)
    {
        EXPECT_EQ(map.strips[strip].levels.empty(), strip >= 4 && strip < 396) << strip;
    }
}

TEST(item_analysis, begins_displacement_again_after_a_gap)
{
    const auto track = analyse_with_gap(7).track;
    ASSERT_EQ(track.size(), 81U);
    const double step = 0.0002 / metres_per_turn * 2.0 * std::numbers::pi;
    EXPECT_NEAR(track[39].phase, 39 * step, 0.01);
    EXPECT_TRUE(std::isnan(track[40].phase));
    EXPECT_EQ(track[41].phase, 0.0);
    EXPECT_NEAR(track[41].time, 47 * 0.02, 1e-9);
    EXPECT_NEAR(track[80].phase, 39 * step, 0.01);
}

TEST(item_analysis, keeps_of_many_points_what_a_picture_shows)
{
    const test::temporary_directory directory;
    const auto source = [](int, size_t, size_t point) { return point / 100 % 2 == 0 ? 1000.0 : 10.0; };
    test::write_item(directory / "out", {.config = {{"num_points", 2000}}, .points = 2000}, 2, source);
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_EQ(analysis.profile.size(), 2000U);
    const auto &levels = analysis.map.strips.at(0).levels;
    EXPECT_LE(levels.size(), 256U);
    EXPECT_GE(levels.size(), 128U);
    EXPECT_EQ(levels.front(), 1000.0F);
    EXPECT_EQ(levels.back(), 10.0F);
}

TEST(item_analysis, measures_the_noise_beside_an_echo)
{
    const test::temporary_directory directory;
    test::noise_source noise(200.0);
    test::write_item(directory / "out", {.config = json::object()}, 200,
                     [&](int frame, size_t, size_t point) {
                         return noise() + std::polar(point == 50 ? 8000.0 : 0.0, 0.3 * frame);
                     });
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    ASSERT_EQ(analysis.around.size(), 1U);
    EXPECT_NEAR(analysis.around[0].noise, 200.0, 10.0);
    EXPECT_NEAR(analysis.around[0].level(), analysis.profile[20], 20.0);
    EXPECT_EQ(analysis.point, 50U);
    EXPECT_TRUE(analysis.above_noise);
    EXPECT_NEAR(peak_velocity(analysis.spectrum), 0.3 * 50.0 / (2.0 * std::numbers::pi) * metres_per_turn,
                50.0 / 200 * metres_per_turn);
    // A Hann window of 200 samples lowers the noise by 200 / 1.5.
    EXPECT_NEAR(analysis.spectrum.floor, dbfs(200.0 * std::sqrt(1.5 / 200)), 1.0);
}

TEST(item_analysis, finds_no_echo_in_noise)
{
    const test::temporary_directory directory;
    test::noise_source noise(200.0);
    test::write_item(directory / "out", {.config = json::object()}, 100,
                     [&](int, size_t, size_t) { return noise(); });
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_FALSE(analysis.above_noise);
    EXPECT_FALSE(analysis.aliased);
    EXPECT_FALSE(analysis.motion);
    // Noise does not look like a signal.
    EXPECT_LT(*std::max_element(analysis.spectrum.levels.begin(), analysis.spectrum.levels.end()),
              analysis.spectrum.floor + 12.0);
}

TEST(item_analysis, claims_no_echo_if_the_noise_is_unknown)
{
    const test::temporary_directory directory;
    test::noise_source noise(200.0);
    // One sweep per frame.
    test::write_item(directory / "out", {.config = json::object()}, 1,
                     [&](int, size_t, size_t point) { return noise() + (point == 50 ? 9000.0 : 0.0); });
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_FALSE(analysis.noise_known);
    EXPECT_FALSE(analysis.above_noise);
}

TEST(item_analysis, has_a_floor_that_contains_the_constant_offset)
{
    const test::temporary_directory directory;
    test::noise_source noise(4.0);
    test::write_item(directory / "out", {.config = json::object()}, 200, [&](int, size_t, size_t point) {
        return noise() + std::complex<double>(5.0, -5.0) + (point == 50 ? 900.0 : 0.0);
    });
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_NEAR(analysis.around[0].offset, std::sqrt(50.0), 0.3);
    // The mean of the curve beside the echo.
    const double sum = std::accumulate(analysis.profile.begin(), analysis.profile.end(), 0.0);
    EXPECT_NEAR(dbfs(analysis.around[0].level()), dbfs((sum - analysis.profile[50]) / 99.0), 0.2);
}

/** Records an echo of 20 sweeps per frame that moves at a velocity, beside another one that does not. */
void write_moving_echo(const std::filesystem::path &directory, double velocity, size_t sweeps = 20)
{
    const json config = {{"sweeps_per_frame", sweeps}, {"sweep_rate", 1000}, {"num_points", 100}};
    test::write_item(directory, {.config = config, .sweeps = sweeps, .frame_ticks = 50000}, 40,
                     [=](int frame, size_t sweep, size_t point) -> std::complex<double> {
                         const double seconds = frame * 0.05 + static_cast<double>(sweep) * 0.001;
                         const double turns = velocity * seconds / metres_per_turn;
                         return point == 70   ? std::polar(2000.0, 2.0 * std::numbers::pi * turns)
                                : point == 20 ? 9000.0
                                              : 0.0;
                     });
}

TEST(item_analysis, shows_velocities_over_distance)
{
    const test::temporary_directory directory;
    write_moving_echo(directory / "out", 0.5);
    recording_reader recording(directory / "out");
    const auto map = analyse_item(recording, 0, std::nullopt).velocities;
    ASSERT_EQ(map.velocities.size(), 20U);
    EXPECT_NEAR(map.velocities.front(), -1.25, 1e-9);
    const auto level = [&](double velocity, size_t point) {
        const auto place = static_cast<size_t>(std::lround((velocity + 1.25) / 0.125));
        return map.levels.at(place).at(point);
    };
    EXPECT_NEAR(level(0.5, 70), dbfs(2000.0), 0.1);
    EXPECT_LT(level(-0.5, 70), dbfs(2.0));
    EXPECT_NEAR(level(0.0, 20), dbfs(9000.0), 0.1);
    EXPECT_LT(level(0.5, 20), dbfs(2.0));
}

TEST(item_analysis, shows_no_velocities_over_distance_for_few_sweeps)
{
    const test::temporary_directory directory;
    write_moving_echo(directory / "few", 0.0, 3);
    write_moving_echo(directory / "enough", 0.0, 4);
    recording_reader few(directory / "few");
    recording_reader enough(directory / "enough");
    EXPECT_TRUE(analyse_item(few, 0, std::nullopt).velocities.velocities.empty());
    EXPECT_EQ(analyse_item(enough, 0, std::nullopt).velocities.velocities.size(), 4U);
}

TEST(item_analysis, computes_velocities_between_sweeps)
{
    const test::temporary_directory directory;
    write_moving_echo(directory / "out", -0.5);
    recording_reader recording(directory / "out");
    const auto spectrum = analyse_item(recording, 0, 70 * 0.0025 + 0.2).spectrum;
    EXPECT_FALSE(spectrum.between_frames);
    EXPECT_EQ(spectrum.rate, 1000.0);
    EXPECT_NEAR(peak_velocity(spectrum), -0.5, 1e-9);
    EXPECT_NEAR(*std::max_element(spectrum.levels.begin(), spectrum.levels.end()), dbfs(2000.0), 0.1);
    // The bound.
    EXPECT_NEAR(spectrum.velocities.front(), -velocity_bound(1000.0), 1e-9);
    // An echo that does not move is left out.
    const auto still = analyse_item(recording, 0, 20 * 0.0025 + 0.2).spectrum;
    EXPECT_LT(*std::max_element(still.levels.begin(), still.levels.end()), dbfs(2.0));
}

/** Analyses an echo that moves at a velocity; at 1 kHz, the bound between sweeps is 1.25 m/s. */
item_analysis analyse_walk(double velocity, std::optional<double> distance = std::nullopt,
                           double amplitude = 5000.0)
{
    const test::temporary_directory directory;
    const json config = {{"start_point", 80},
                         {"num_points", 300},
                         {"step_length", 4},
                         {"sweep_rate", 1000},
                         {"sweeps_per_frame", 16}};
    test::noise_source noise(20.0);
    test::write_item(directory / "out", {.config = config, .points = 300, .sweeps = 16, .frame_ticks = 50000},
                     20, [&](int frame, size_t sweep, size_t point) {
                         const double seconds = frame * 0.05 + static_cast<double>(sweep) * 0.001;
                         const double place = 1.7 + velocity * (seconds - 0.5);
                         const double away = (0.2 + static_cast<double>(point) * 0.01 - place) / 0.08;
                         const double turns = place / metres_per_turn;
                         return noise() + std::polar(amplitude * std::exp(-away * away),
                                                     2.0 * std::numbers::pi * std::fmod(turns, 1.0));
                     });
    recording_reader recording(directory / "out");
    return analyse_item(recording, 0, distance);
}

TEST(item_analysis, notices_an_echo_that_passes_a_distance)
{
    const auto passed = analyse_walk(1.0, 1.5, 300.0);
    EXPECT_TRUE(passed.above_noise);
    EXPECT_TRUE(passed.mostly_noise);
    // The level is high within 0.1 m of 1.5 m, that is, for 0.2 of 1 s.
    EXPECT_NEAR(passed.share, 0.2, 0.1);
    const auto beside = analyse_walk(1.0, 3.0, 300.0);
    EXPECT_FALSE(beside.above_noise);
    EXPECT_FALSE(beside.mostly_noise);
    EXPECT_FALSE(analyse_walk(0.01, 1.7, 300.0).mostly_noise);
}

TEST(item_analysis, notices_velocities_that_are_aliased_between_sweeps)
{
    for (const double direction : {1.0, -1.0})
    {
        const auto alias = analyse_walk(1.6 * direction).alias;
        ASSERT_TRUE(alias);
        EXPECT_NEAR(alias->velocity, 1.6 * direction, 0.02);
        ASSERT_TRUE(alias->shown);
        EXPECT_NEAR(*alias->shown, -0.9 * direction, 0.02);
        EXPECT_DOUBLE_EQ(alias->bound, 1.25);
        EXPECT_FALSE(analyse_walk(1.1 * direction).alias);
        EXPECT_FALSE(analyse_walk(0.4 * direction).alias);
    }
}

TEST(item_analysis, follows_an_echo_past_a_stronger_one_that_rests)
{
    const test::temporary_directory directory;
    const json config = {{"start_point", 80}, {"num_points", 300}, {"step_length", 4}};
    const auto pulse = [](double amplitude, double away) {
        return amplitude * std::exp(-away * away / 100.0);
    };
    test::write_item(
        directory / "out", {.config = config, .points = 300}, 200, [&](int frame, size_t, size_t point) {
            const auto place = static_cast<double>(point);
            const double walker = frame < 100 ? 50.0 + 2.0 * frame : 450.0 - 2.0 * frame;
            return pulse(9000.0, place - 150.0) + std::polar(pulse(1000.0, place - walker), 1.0 * frame);
        });
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_NEAR(analysis.distance, 0.2 + 150 * 0.01, 0.01);
    EXPECT_TRUE(analysis.rests);
    // The phase of the echo at rest is not ambiguous because another one moves.
    EXPECT_FALSE(analysis.aliased);
    ASSERT_TRUE(analysis.alias);
    EXPECT_NEAR(std::fabs(analysis.alias->velocity), 1.0, 0.1);
    EXPECT_FALSE(analysis.alias->shown);
    ASSERT_TRUE(analysis.motion);
    EXPECT_NEAR(analysis.motion->nearest, 0.2 + 50 * 0.01, 0.02);
    EXPECT_NEAR(analysis.motion->farthest, 0.2 + 250 * 0.01, 0.02);
}

/** Whether the motion of an echo with this velocity is aliased; at 20 Hz the bound is 0.025 m/s. */
bool is_aliased(double velocity, double distance)
{
    const test::temporary_directory directory;
    write_moving_echo(directory / "out", velocity);
    recording_reader recording(directory / "out");
    return analyse_item(recording, 0, distance).aliased;
}

TEST(item_analysis, notices_motion_that_is_aliased)
{
    constexpr double moving = 70 * 0.0025 + 0.2;
    constexpr double still = 20 * 0.0025 + 0.2;
    EXPECT_FALSE(is_aliased(0.01, moving));
    EXPECT_TRUE(is_aliased(0.02, moving));
    // Half a turn more in each frame looks like no motion between frames, but not between sweeps.
    EXPECT_TRUE(is_aliased(0.5, moving));
    EXPECT_FALSE(is_aliased(0.5, still));
}

TEST(item_analysis, follows_an_echo_that_moves)
{
    const test::temporary_directory directory;
    const json config = {{"start_point", 80}, {"num_points", 300}, {"step_length", 4}};
    test::write_item(directory / "out", {.config = config, .points = 300}, 100,
                     [](int frame, size_t, size_t point) {
                         const double away = static_cast<double>(point) - 250.0 + 2.0 * frame;
                         return std::polar(5000.0 * std::exp(-away * away / 100.0), 1.0 * frame);
                     });
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    ASSERT_TRUE(analysis.motion);
    EXPECT_NEAR(analysis.motion->farthest, 0.2 + 250 * 0.01, 0.01);
    EXPECT_NEAR(analysis.motion->nearest, 0.2 + 52 * 0.01, 0.01);
    ASSERT_TRUE(analysis.motion->fastest);
    EXPECT_NEAR(analysis.motion->fastest->from_distance, -1.0, 0.05);
    // 1.98 m in 1.98 s at 50 Hz: the bound is 0.0625 m/s.
    EXPECT_TRUE(analysis.aliased);
}

} // namespace
} // namespace vantor
