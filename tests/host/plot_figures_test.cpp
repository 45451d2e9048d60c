/** @file
 * Tests of the parts from which the figures and texts of pictures are computed.
 */
#include <chrono>
#include <cmath>
#include <limits>
#include <string>

#include <gmock/gmock.h>

#include "example_recording.h"
#include "plot/caption.h"
#include "plot/echo_search.h"
#include "plot/motion_tracker.h"
#include "plot/panels.h"
#include "plot/sensor_scale.h"
#include "recording/number_text.h"
#include "temporary_directory.h"
#include "written_recordings.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

TEST(sensor_scale, has_0_dbfs_at_full_scale)
{
    EXPECT_EQ(dbfs(32767.0), 0.0);
    EXPECT_NEAR(dbfs(3276.7), -20.0, 1e-9);
    EXPECT_TRUE(std::isfinite(dbfs(0.0)));
}

TEST(sensor_scale, follows_from_the_wavelength_of_5_mm)
{
    EXPECT_NEAR(metres_per_radian() * 2.0 * M_PI, 0.0025, 1e-12);
    EXPECT_NEAR(velocity_bound(20.0), 0.025, 1e-12);
}

/** An item of a single sub-sweep. */
recorded_item item_of(const json &config, size_t points)
{
    recorded_item item;
    item.configuration.document = {{"sensor_id", 1}, {"config", config}};
    item.configuration.subsweeps = {
        {.start_point = config.value("start_point", 80), .step_length = config.value("step_length", 1)}};
    item.layout.subsweeps = {{.offset = 0, .length = points}};
    item.layout.base_step_length_m = 0.0025;
    for (size_t i = 0; i < points; ++i)
    {
        item.layout.distances_m.push_back(
            0.0025 * (item.configuration.subsweeps[0].start_point +
                      static_cast<double>(i) * item.configuration.subsweeps[0].step_length));
    }
    return item;
}

TEST(sensor_scale, uses_settings_and_their_defaults)
{
    EXPECT_EQ(subsweep_setting(item_of({{"profile", 5}}, 1), 0, "profile"), 5);
    EXPECT_EQ(subsweep_setting(item_of(json::object(), 1), 0, "receiver_gain"), 16);
    EXPECT_EQ(subsweep_setting(item_of({{"subsweeps", {{{"hwaas", 7}}}}}, 1), 0, "hwaas"), 7);
    EXPECT_EQ(pulse_width(item_of({{"profile", 1}}, 1), 0), 0.0566);
}

TEST(sensor_scale, covers_the_distances_between_the_first_and_the_last_point)
{
    const auto item = item_of({{"step_length", 4}}, 11);
    EXPECT_TRUE(covers_distance(item, 0.2));
    EXPECT_TRUE(covers_distance(item, 0.304));
    EXPECT_FALSE(covers_distance(item, 0.306));
    EXPECT_FALSE(covers_distance(item, 0.194));
}

/** Levels with echoes: place in points, and height. */
std::vector<double> levels_with(size_t points, const std::vector<std::pair<double, double>> &echoes)
{
    std::vector<double> levels;
    for (size_t i = 0; i < points; ++i)
    {
        double level = 30.0;
        for (const auto &[place, height] : echoes)
        {
            const double away = static_cast<double>(i) - place;
            level += height * std::exp(-away * away / 200.0);
        }
        levels.push_back(level);
    }
    return levels;
}

TEST(strongest_echo, is_the_highest_maximum)
{
    const auto item = item_of({{"step_length", 4}}, 200);
    EXPECT_EQ(strongest_echo(item, levels_with(200, {{50, 1000}, {150, 2000}})), 150U);
    EXPECT_EQ(strongest_echo(item, levels_with(200, {{50, 3000}, {150, 2000}})), 50U);
}

TEST(strongest_echo, is_not_at_an_edge)
{
    const auto item = item_of({{"step_length", 4}}, 200);
    EXPECT_EQ(strongest_echo(item, levels_with(200, {{0, 9000}, {100, 1000}, {199, 9000}})), 100U);
    EXPECT_EQ(strongest_echo(item, levels_with(200, {{-5, 9000}, {100, 1000}, {205, 9000}})), 100U);
    EXPECT_EQ(strongest_echo(item, levels_with(200, {{2, 9000}, {198, 9000}})), std::nullopt);
}

TEST(strongest_echo, is_not_where_nothing_is)
{
    EXPECT_EQ(strongest_echo(item_of(json::object(), 9), std::vector<double>(9)), std::nullopt);
}

TEST(strongest_echo, is_not_the_direct_leakage)
{
    const auto item = item_of({{"start_point", -200}, {"step_length", 4}}, 200);
    EXPECT_EQ(strongest_echo(item, levels_with(200, {{50, 9000}, {150, 1000}})), 150U);
}

TEST(strongest_echo, is_not_a_ripple_on_the_flank_of_the_leakage)
{
    const auto item = item_of({{"step_length", 4}}, 200);
    auto levels = levels_with(200, {{-10, 20000}, {150, 1000}});
    levels[8] *= 1.2;
    EXPECT_EQ(strongest_echo(item, levels), 150U);
}

/** Follows an echo of which one position per second is known; a negative distance stands for none. */
std::optional<echo_motion> follow(const std::vector<double> &distances)
{
    path_follower follower(0.0);
    double seconds = 0.0;
    for (const double distance : distances)
    {
        const echo_position position{.seconds = seconds, .distance = distance, .width = 0.2, .turn = {}};
        follower.add(distance < 0.0 ? std::nullopt : std::optional(position));
        seconds += 1.0;
    }
    return follower.finish();
}

/** Matches a motion between two distances. */
auto is_between(double nearest, double farthest)
{
    return testing::Optional(
        testing::AllOf(testing::Field(&echo_motion::nearest, testing::DoubleNear(nearest, 1e-9)),
                       testing::Field(&echo_motion::farthest, testing::DoubleNear(farthest, 1e-9))));
}

TEST(path_follower, has_the_least_and_the_greatest_distance)
{
    EXPECT_THAT(follow({1.5, 1.6, 1.75, 1.6, 1.45, 1.3}), is_between(1.3, 1.75));
}

TEST(path_follower, needs_half_of_the_pulse_width)
{
    EXPECT_FALSE(follow({1.0, 1.05, 1.0, 1.05}));
    EXPECT_TRUE(follow({1.0, 1.05, 1.11}));
    EXPECT_FALSE(follow({}));
}

TEST(path_follower, does_not_take_a_change_between_two_echoes_for_motion)
{
    EXPECT_FALSE(follow({1.0, 1.0, 3.0, 1.0, 3.0, 3.0, 3.0, 1.0, 1.0}));
    EXPECT_THAT(follow({5.0, 5.0, 5.0, 5.0, 2.0, 1.9, 1.8, 5.0}), is_between(1.8, 2.0));
}

TEST(path_follower, follows_over_frames_in_which_the_echo_is_not_found)
{
    EXPECT_THAT(follow({1.0, 1.1, 1.2, -1.0, 1.45, 1.55}), is_between(1.0, 1.55));
    EXPECT_FALSE(follow({1.0, 1.0, 1.0, -1.0, -1.0, -1.0, -1.0, -1.0, 1.9, 1.9, 1.9}));
}

TEST(path_follower, follows_an_echo_that_is_faster_than_the_width_per_frame)
{
    EXPECT_THAT(follow({1.0, 1.5, 2.0, 2.5, 3.0}), is_between(1.0, 3.0));
    const auto motion = follow({5.0, 4.5, 4.0, 3.5, 3.0, 2.5});
    ASSERT_TRUE(motion && motion->fastest);
    EXPECT_NEAR(motion->fastest->from_distance, -0.5, 1e-9);
}

TEST(path_follower, knows_the_slope_where_the_echo_moves_evenly)
{
    const auto motion = follow({1.0, 1.0, 1.1, 1.2, 1.3, 1.4, 1.5, 1.6, 1.7, 1.7, 1.7, 1.6, 1.5});
    ASSERT_TRUE(motion && motion->fastest);
    EXPECT_NEAR(motion->fastest->from_distance, 0.1, 0.01);
    // One step is not a slope.
    EXPECT_FALSE(follow({1.0, 1.0, 1.0, 1.2, 1.2, 1.2})->fastest);
}

/** A motion with a slope and a velocity from phases. */
echo_motion motion_of(double slope, double from_phase)
{
    return {.nearest = 1.0, .farthest = 2.0, .fastest = echo_velocity{slope, from_phase}};
}

/** The velocity that an alias stands for, if the bound is 2 m/s; 0 if there is none. */
double alias_of(double slope, double from_phase)
{
    const auto found = find_alias(motion_of(slope, from_phase), 2.0);
    return found ? found->velocity : 0.0;
}

TEST(find_alias, compares_the_slope_of_the_distance_with_the_phase)
{
    EXPECT_NEAR(alias_of(2.3, -1.6), 2.4, 1e-9);
    EXPECT_NEAR(alias_of(-2.5, 1.6), -2.4, 1e-9);
    EXPECT_NEAR(alias_of(6.2, -1.6), 6.4, 1e-9);
    EXPECT_NEAR(alias_of(1.95, -1.95), 2.05, 1e-9);
    EXPECT_EQ(alias_of(1.9, 1.95), 0.0);
    EXPECT_EQ(alias_of(2.1, 1.95), 0.0);
    // Another echo may disturb the phase of a slow one.
    EXPECT_EQ(alias_of(0.5, -1.9), 0.0);
}

TEST(find_alias, prints_the_slope_if_the_phase_does_not_fit)
{
    EXPECT_NEAR(alias_of(3.9, 1.6), 3.9, 1e-9);
}

TEST(find_alias, needs_a_slope_and_a_bound)
{
    EXPECT_FALSE(find_alias({.nearest = 1.0, .farthest = 2.0, .fastest = {}}, 2.0));
    EXPECT_FALSE(find_alias(motion_of(2.3, -1.6), 0.0));
}

TEST(path_follower, ends_at_a_gap)
{
    path_follower follower(0.0);
    for (const double distance : {1.0, 1.0, 1.0, 1.1, 1.1, 1.1})
    {
        follower.add(echo_position{.seconds = 0.0, .distance = distance, .width = 0.2, .turn = {}});
        follower.interrupt();
    }
    EXPECT_FALSE(follower.finish());
}

TEST(echo_distance, is_between_the_points)
{
    const auto item = item_of({{"step_length", 4}}, 100);
    // Points are 0.01 m apart, from 0.2 m.
    EXPECT_NEAR(echo_distance(item, levels_with(100, {{50.3, 100'000}}), 50), 0.703, 1e-5);
    EXPECT_NEAR(echo_distance(item, levels_with(100, {{49.6, 100'000}}), 50), 0.696, 1e-5);
    EXPECT_NEAR(echo_distance(item, levels_with(100, {{50, 100'000}}), 50), 0.7, 1e-9);
    EXPECT_EQ(echo_distance(item, std::vector<double>(100, 1.0), 50), item.layout.distances_m[50]);
    EXPECT_EQ(echo_distance(item, std::vector<double>(100, 1.0), 99), item.layout.distances_m[99]);
}

TEST(is_echo, depends_on_noise_and_offset)
{
    EXPECT_FALSE(is_echo(1000.0, {}, 100));
    // The mean magnitude of this noise is 100.
    const double noise = 200.0 / std::sqrt(M_PI);
    EXPECT_FALSE(is_echo(190.0, {.noise = noise}, 100));
    EXPECT_TRUE(is_echo(210.0, {.noise = noise}, 100));
    EXPECT_FALSE(is_echo(210.0, {.noise = 0.0, .offset = 110.0}, 100));
    EXPECT_TRUE(is_echo(230.0, {.noise = 0.0, .offset = 110.0}, 100));
    // The highest of many levels of a few sweeps.
    EXPECT_FALSE(is_echo(370.0, {.noise = noise}, 2));
    EXPECT_TRUE(is_echo(390.0, {.noise = noise}, 2));
}

TEST(caption, describes_recording_and_settings)
{
    const test::temporary_directory directory;
    const json config = {
        {"profile", 5}, {"receiver_gain", 12}, {"sweeps_per_frame", 8}, {"sweep_rate", 2000}};
    test::write_item(directory / "out", {.config = config, .sweeps = 8}, 20,
                     [](int, size_t, size_t point) { return point == 50 ? 2000.0 : 1.0; });
    recording_reader recording(directory / "out");
    EXPECT_THAT(describe_recording(recording, {}),
                testing::MatchesRegex(
                    "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} UTC  ·  sensor k330  ·  20 frames"
                    "  ·  0 dBFS is amplitude 32767"));
    const auto &item = recording.items()[0];
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    EXPECT_EQ(item_title(item), "Sensor 1 (group 1, item 1)");
    EXPECT_EQ(describe_settings(item, analysis),
              "profile 5  ·  gain 12  ·  hwaas 8  ·  8 sweeps per frame at 2000 Hz (±2.50 m/s)  ·  "
              "50.0 frames/s (±0.0625 m/s)");
    EXPECT_EQ(describe_echo(item, analysis), "strongest echo at 0.325 m");
    EXPECT_THAT(aliasing_warnings(analysis), testing::IsEmpty());
}

TEST(caption, says_when_the_first_frame_was_measured)
{
    const test::temporary_directory directory;
    test::write_example_recording(directory / "out", 1);
    const utc_time utc{.moment = std::chrono::sys_seconds(std::chrono::seconds(1795455600)),
                       .bound = std::chrono::microseconds(250)};
    time_figures times;
    frame_row row;
    row.utc = utc;
    times.add(row);
    EXPECT_THAT(describe_recording(recording_reader(directory / "out"), times),
                testing::StartsWith("2026-11-23 17:40:00.000000 UTC ± 0.250 ms  ·  sensor k330"));
}

/** The times of frames from some second to another one, whose table begins with another second. */
time_figures times_between(int first, int last, double seconds)
{
    const auto at = [&](int second) {
        frame_row row;
        row.seconds = seconds + second - first;
        row.utc = utc_time{.moment = std::chrono::sys_seconds(std::chrono::seconds(second))};
        return row;
    };
    time_figures times;
    times.add(at(first));
    times.add(at(last));
    return times;
}

TEST(shared_axis, goes_from_the_first_to_the_last_frame_of_all_boards)
{
    const auto late = times_between(103, 110, 0.0);
    const auto early = times_between(100, 105, 2.0);
    const auto axis = find_shared_axis({late, {}, early});
    ASSERT_TRUE(axis);
    EXPECT_EQ(axis->start.time_since_epoch(), std::chrono::seconds(100));
    EXPECT_EQ(axis->length, 10.0);
    EXPECT_EQ(window_of(*axis, late).begin, -3.0);
    EXPECT_EQ(window_of(*axis, late).end, 7.0);
    EXPECT_EQ(window_of(*axis, early).begin, 2.0);
    EXPECT_EQ(window_of(*axis, early).end, 12.0);
    EXPECT_FALSE(find_shared_axis({{}, {}}));
}

TEST(panels_of_boards, count_time_from_the_start_of_a_shared_axis)
{
    const test::temporary_directory directory;
    test::write_turning_recording(directory / "out", 100, 0.1);
    recording_reader recording(directory / "out");
    const auto analysis = analyse_item(recording, 0, std::nullopt);
    const page sheet(1, 4);
    panel_row place{
        .sheet = sheet, .row = 0, .item = recording.items()[0], .analysis = analysis, .base = "x"};
    EXPECT_THAT(draw_panels(place), testing::AllOf(HasSubstr("'time in s'"), Not(HasSubstr("set xtics ("))));
    place.window = time_window{.begin = -3.0, .end = 7.0, .start = "17:40:00.000000Z"};
    const auto text = draw_panels(place);
    EXPECT_THAT(text, HasSubstr("'time in s since 17:40:00.000000Z'"));
    const std::string tics = "set xrange [-3.000000000:7.000000000]\n"
                             "set xtics ('0' -3.000000000, '2' -1.000000000, '4' 1.000000000, "
                             "'6' 3.000000000, '8' 5.000000000, '10' 7.000000000)\n";
    const auto map = text.find(tics);
    ASSERT_NE(map, std::string::npos);
    const auto phase = text.find(tics, map + 1);
    ASSERT_NE(phase, std::string::npos);
    // The velocities have tics of their own again.
    EXPECT_NE(text.find("set xtics nomirror autofreq", phase), std::string::npos);
}

TEST(caption, counts_one_frame)
{
    const test::temporary_directory directory;
    test::write_item(directory / "out", {.config = json::object()}, 1,
                     [](int, size_t, size_t) { return 1.0; });
    EXPECT_THAT(describe_recording(recording_reader(directory / "out"), {}),
                testing::EndsWith("  ·  1 frame  ·  0 dBFS is amplitude 32767"));
}

TEST(caption, describes_each_sub_sweep)
{
    auto item = item_of({{"subsweeps", {{{"profile", 1}}, {{"profile", 4}}}}}, 1);
    item.configuration.subsweeps.resize(2);
    EXPECT_THAT(describe_settings(item, {}), testing::StartsWith("profile 1/4  ·  gain 16  ·  "));
}

TEST(caption, describes_motion_and_doubtful_frames)
{
    const auto item = item_of(json::object(), 10);
    item_analysis analysis;
    EXPECT_EQ(describe_echo(item, analysis), "no echo above the noise");
    analysis.above_noise = true;
    EXPECT_EQ(describe_echo(item, analysis), "highest level at 0.200 m");
    analysis.found = true;
    analysis.distance = 0.2004;
    EXPECT_EQ(describe_echo(item, analysis), "strongest echo at 0.200 m");
    analysis.distance = 0.2009;
    EXPECT_EQ(describe_echo(item, analysis), "strongest echo at 0.201 m (nearest point 0.200 m)");
    analysis.clipped = true;
    EXPECT_EQ(describe_echo(item, analysis), "strongest echo at 0.201 m (saturated)");
    analysis.distance = 0.2004;
    analysis.clipped = true;
    EXPECT_EQ(describe_echo(item, analysis), "strongest echo at 0.200 m (saturated)");
    analysis.clipped = false;
    analysis.found = false;
    analysis.given = true;
    EXPECT_EQ(describe_echo(item, analysis), "echo at 0.200 m");
    analysis.mostly_noise = true;
    analysis.share = 0.123;
    EXPECT_EQ(describe_echo(item, analysis), "echo at 0.200 m in 12 % of the frames");
    analysis.share = 0.004;
    EXPECT_EQ(describe_echo(item, analysis), "echo at 0.200 m in less than 1 % of the frames");
    analysis.above_noise = false;
    EXPECT_EQ(describe_echo(item, analysis), "no echo above the noise at 0.200 m");
    analysis.above_noise = true;
    analysis.mostly_noise = false;
    analysis.noise_known = false;
    EXPECT_EQ(describe_echo(item, analysis), "noise unknown: too few sweeps");
    analysis.noise_known = true;
    analysis.figures.channel.invalid = 3;
    analysis.map.strips = {{.levels = {1.0F}}, {.levels = {1.0F}}};
    EXPECT_EQ(describe_echo(item, analysis), "echo at 0.200 m  ·  displacement begins at 0 after a gap");
    analysis.map.strips.emplace_back();
    analysis.figures.saturated = 2;
    analysis.spectrum.between_frames = true;
    analysis.spectrum.segments = 2;
    analysis.spectrum.segment_length = 40;
    analysis.spectrum.levels = {0.0};
    analysis.motion = {.nearest = 0.8, .farthest = 4.0, .fastest = {}};
    EXPECT_EQ(describe_echo(item, analysis),
              "the strongest moving echo was found between 0.80 m and 4.00 m  ·  white: no valid frame; "
              "displacement begins at 0 "
              "after it  ·  velocities from 2 × 40 consecutive frames  ·  red dots: saturated");
    analysis.rests = true;
    EXPECT_THAT(describe_echo(item, analysis),
                testing::StartsWith("echo at 0.200 m  ·  the strongest moving echo was found between"));
}

TEST(caption, joins_warnings)
{
    EXPECT_EQ(joined({}), "");
    EXPECT_EQ(joined({"a", "b"}), "a  ·  b");
    const std::string line(100, 'x');
    EXPECT_EQ(joined({line, line, line, line}), line + "  ·  " + line + "  ·  and 2 more");
    EXPECT_EQ(joined({std::string(300, 'x')}), std::string(300, 'x'));
}

TEST(caption, warns_of_aliased_motion)
{
    item_analysis analysis;
    analysis.time.rate = 20.0;
    analysis.aliased = true;
    EXPECT_THAT(aliasing_warnings(analysis),
                testing::ElementsAre("the motion is too fast for 20.0 frames/s: displacement, and velocity "
                                     "between frames, are ambiguous beyond ±0.0250 m/s"));
    analysis.alias = {.velocity = 2.4, .bound = 2.0, .shown = -1.6};
    EXPECT_EQ(aliasing_warnings(analysis).at(0), "aliased: an echo moves at about +2.40 m/s, beyond ±2.00 "
                                                 "m/s, and is shown at -1.60 m/s between sweeps");
    analysis.alias = {.velocity = -0.8, .bound = 0.025, .shown = {}};
    EXPECT_EQ(aliasing_warnings(analysis).at(0),
              "aliased: an echo moves at about -0.800 m/s, beyond ±0.0250 m/s between frames");
}

TEST(number_text, has_three_significant_digits)
{
    EXPECT_EQ(three_digits(0.025), "0.0250");
    EXPECT_EQ(three_digits(12345.6), "12346");
    EXPECT_EQ(three_digits(0.0), "0");
}

TEST(number_text, has_numbers_of_any_length)
{
    EXPECT_EQ(fixed(0.125, 2), "0.12");
    const auto longest = fixed(std::numeric_limits<double>::lowest(), 9);
    EXPECT_EQ(longest.size(), 1 + 309 + 1 + 9U);
    EXPECT_EQ(longest.find_first_not_of("-.0123456789"), std::string::npos);
}

} // namespace
} // namespace vantor
