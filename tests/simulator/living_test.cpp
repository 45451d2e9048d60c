/** @file
 * Targets that appear, follow tracks, oscillate, fluctuate and are at places in space.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "scene/sight.h"
#include "scene_text.h"
#include "simulated_sensor.h"
#include "zet_config_subsweep.h"

namespace
{

using zet_simulator::scene_sight;
using zet_simulator::sight;

/** What sensor 1 sees of the first target. */
sight sight_at(const zet_simulator_scene_t &scene, double time_s)
{
    return scene_sight(scene, scene.targets[0], 1, time_s);
}

/** Checks the velocity against the distances just before and just after. */
void expect_velocity_is_derivative(const zet_simulator_scene_t &scene, double time_s)
{
    constexpr double span_s = 1.0e-4;
    const double before = sight_at(scene, time_s - span_s / 2.0).distance_m;
    const double after = sight_at(scene, time_s + span_s / 2.0).distance_m;
    EXPECT_NEAR(sight_at(scene, time_s).velocity_m_s, (after - before) / span_s, 0.002) << time_s;
}

/** Level of the strongest sample of a frame. */
float highest_level(const frame &measured)
{
    return std::abs(measured.samples[strongest(measured.samples)]);
}

TEST(living, a_target_is_visible_only_between_its_times)
{
    const zet_simulator_scene_t scene = scene_of(
        R"({"targets": [{"distance_m": 0.4, "strength_m2": 0.01, "enter_s": 0.5, "leave_s": 1.2}]})");
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_frame_rate_set(sensor.config, 10.0F);
    ASSERT_TRUE(sensor.prepare());
    for (int tenth = 0; tenth < 20; ++tenth)
    {
        const frame measured = sensor.measure();
        const float level = std::abs(measured.samples[80]);
        // 8000 sqrt(0.01) / 0.4^2 = 5000.
        const bool is_there = tenth >= 5 && tenth < 12;
        EXPECT_NEAR(level, is_there ? 5000.0F : 0.0F, 800.0F) << tenth;
    }
}

/** Text of a scene with one target in front of the sensor. */
std::string one_target(const std::string &fields)
{
    return R"({"targets": [{"strength_m2": 1, )" + fields + "}]}";
}

TEST(living, a_track_is_a_hermite_spline_through_its_keyframes)
{
    const zet_simulator_scene_t scene = scene_of(one_target(
        R"("track": [{"time_s": 1, "distance_m": 4}, {"time_s": 3, "distance_m": 2}, {"time_s": 4, "distance_m": 2.5}])"));
    for (const auto &[time_s, distance_m] :
         {std::pair{0.0, 4.0}, {1.0, 4.0}, {3.0, 2.0}, {4.0, 2.5}, {100.0, 2.5}})
    {
        EXPECT_NEAR(sight_at(scene, time_s).distance_m, distance_m, 1.0e-12) << time_s;
    }
    // The slope at 3 s is (2.5 - 4) / (4 - 1) = -0.5, those at the ends are 0. In the middle of two
    // keyframes, the spline is at their mean plus an eighth of the time between them times the difference of
    // the slopes.
    EXPECT_NEAR(sight_at(scene, 3.0).velocity_m_s, -0.5, 1.0e-12);
    EXPECT_NEAR(sight_at(scene, 2.0).distance_m, 3.0 + 2.0 / 8.0 * 0.5, 1.0e-12);
    EXPECT_NEAR(sight_at(scene, 3.5).distance_m, 2.25 - 1.0 / 8.0 * 0.5, 1.0e-12);
    EXPECT_EQ(sight_at(scene, 0.5).velocity_m_s, 0.0);
    EXPECT_EQ(sight_at(scene, 5.0).velocity_m_s, 0.0);
    for (const double time_s : {1.0, 1.3, 2.9999, 3.0, 3.0001, 3.7, 4.0})
    {
        expect_velocity_is_derivative(scene, time_s);
    }
}

TEST(living, velocities_are_derivatives_of_the_distance)
{
    const zet_simulator_scene_t scenes[] = {
        scene_of(one_target(R"("distance_m": 2, "velocity_m_s": -0.5, "nearest_m": 1, "farthest_m": 3)")),
        scene_of(one_target(
            R"("distance_m": 2, "oscillation_amplitude_m": 0.1, "oscillation_frequency_hz": 0.7)")),
        scene_of(one_target(R"("distance_m": 2, "oscillations": [
            {"amplitude_m": 0.05, "frequency_hz": 0.4, "phase_turns": 0.3, "wander_turns": 0.5,
             "wander_frequency_hz": 0.09}, {"amplitude_m": -0.01, "frequency_hz": 1.7}])")),
        scene_of(one_target(R"("x_m": 1, "y_m": 2, "z_m": -0.5, "x_velocity_m_s": -0.4, "z_velocity_m_s": 0.2,
            "oscillations": [{"amplitude_y_m": 0.2, "amplitude_x_m": 0.1, "frequency_hz": 0.5},
                             {"amplitude_m": 0.01, "frequency_hz": 1}])")),
    };
    for (const zet_simulator_scene_t &scene : scenes)
    {
        for (double time_s = 0.05; time_s < 10.0; time_s += 0.37)
        {
            expect_velocity_is_derivative(scene, time_s);
        }
    }
}

TEST(living, oscillations_add_up_and_may_wander)
{
    const zet_simulator_scene_t scene = scene_of(one_target(R"("distance_m": 2, "oscillations": [
        {"amplitude_m": 0.05, "frequency_hz": 0.4, "phase_turns": 0.3, "wander_turns": 0.5, "wander_frequency_hz": 0.09},
        {"amplitude_m": 0.01, "frequency_hz": 1.7}])"));
    for (double time_s = 0.0; time_s < 20.0; time_s += 0.7)
    {
        const double wander = 0.5 * std::sin(2.0 * M_PI * 0.09 * time_s);
        const double expected = 2.0 + 0.05 * std::sin(2.0 * M_PI * (0.4 * time_s + 0.3 + wander)) +
                                0.01 * std::sin(2.0 * M_PI * 1.7 * time_s);
        EXPECT_NEAR(sight_at(scene, time_s).distance_m, expected, 1.0e-6) << time_s;
    }
}

TEST(living, each_sensor_sees_a_place_from_its_own)
{
    const zet_simulator_scene_t scene = scene_of(R"({
        "targets": [{"x_m": 1, "y_m": 2, "z_m": 2, "y_velocity_m_s": -1, "strength_m2": 1}],
        "sensors": [{"sensor": 2, "x_m": 1, "y_m": 5}]})");
    // Sensor 1 is at the origin: 3 m away, and 2/3 of the velocity are along the line of sight.
    const sight from_origin = scene_sight(scene, scene.targets[0], 1, 0.0);
    EXPECT_NEAR(from_origin.distance_m, 3.0, 1.0e-9);
    EXPECT_NEAR(from_origin.velocity_m_s, -2.0 / 3.0, 1.0e-9);
    EXPECT_EQ(from_origin.beam, 1.0F);
    const sight from_behind = scene_sight(scene, scene.targets[0], 2, 0.0);
    EXPECT_NEAR(from_behind.distance_m, std::sqrt(13.0), 1.0e-9);
    EXPECT_NEAR(from_behind.velocity_m_s, 3.0 / std::sqrt(13.0), 1.0e-9);
}

TEST(living, a_track_in_space_is_added_to_the_place)
{
    const zet_simulator_scene_t scene = scene_of(one_target(R"("x_m": 0.5, "y_m": 1,
        "track": [{"time_s": 0, "x_m": 0, "y_m": 0}, {"time_s": 2, "x_m": 2.5, "y_m": 3}])"));
    EXPECT_NEAR(sight_at(scene, 0.0).distance_m, std::hypot(0.5, 1.0), 1.0e-6);
    EXPECT_NEAR(sight_at(scene, 1.0).distance_m, std::hypot(1.75, 2.5), 1.0e-6);
    EXPECT_NEAR(sight_at(scene, 3.0).distance_m, std::hypot(3.0, 4.0), 1.0e-6);
}

TEST(living, a_beam_halves_the_power_at_half_its_width_on_each_way)
{
    const auto beam_at = [](double degrees, const std::string &sensor) {
        const double angle = degrees * M_PI / 180.0;
        const zet_simulator_scene_t scene = scene_of(
            R"({"targets": [{"strength_m2": 1, "x_m": )" + std::to_string(std::sin(angle)) + R"(, "y_m": )" +
            std::to_string(std::cos(angle)) + R"(}], "sensors": [{)" + sensor + "}]}");
        return static_cast<double>(sight_at(scene, 0.0).beam);
    };
    const std::string beam = R"("beam_deg": 60)";
    EXPECT_NEAR(beam_at(0.0, beam), 1.0, 1.0e-5);
    // The power is halved twice, so the amplitude is halved once.
    EXPECT_NEAR(beam_at(30.0, beam), 0.5, 1.0e-4);
    EXPECT_NEAR(beam_at(-30.0, beam), 0.5, 1.0e-4);
    const double exponent = std::log(0.5) / std::log(std::cos(M_PI / 6.0));
    EXPECT_NEAR(beam_at(50.0, beam), std::pow(std::cos(50.0 * M_PI / 180.0), exponent), 1.0e-4);
    EXPECT_EQ(beam_at(120.0, beam), 0.0);
    EXPECT_EQ(beam_at(120.0, R"("sensor": 1)"), 1.0);
    EXPECT_NEAR(beam_at(75.0, beam + R"(, "direction_x": 0.5, "direction_y": 0.5)"), 0.5, 1.0e-4);
}

/** Levels of a target with fluctuation "kind" in many frames, squared and divided by those without. */
std::vector<double> relative_powers(const char *kind, zet_sensor_id_t sensor_id = 1, uint64_t seed = 1)
{
    const zet_simulator_scene_t scene = scene_of(
        std::string(
            R"({"hardware": "ideal", "targets": [{"distance_m": 0.5, "strength_m2": 0.04, "fluctuation": ")") +
        kind + "\"}]}");
    const simulation simulation(2, &scene, seed);
    simulated_sensor sensor(sensor_id);
    zet_config_subsweep_start_point_set(sensor.config, 200, 0);
    zet_config_subsweep_num_points_set(sensor.config, 1, 0);
    zet_config_subsweep_hwaas_set(sensor.config, 100, 0);
    zet_config_sweeps_per_frame_set(sensor.config, 2);
    EXPECT_TRUE(sensor.prepare());
    std::vector<double> powers;
    for (int i = 0; i < 4000; ++i)
    {
        const frame measured = sensor.measure();
        // The echo of 8000 sqrt(0.04) / 0.5^2 = 6400 is constant within a frame.
        EXPECT_NEAR(std::abs(measured.samples[0] - measured.samples[1]), 0.0F, 200.0F) << i;
        powers.push_back(std::norm(std::complex<double>(measured.samples[0])) / (6400.0 * 6400.0));
    }
    return powers;
}

/** Largest difference between the distribution of values and a law (Kolmogorov and Smirnov). */
template <typename law_t> double distance_to(std::vector<double> values, law_t law)
{
    std::sort(values.begin(), values.end());
    const auto count = static_cast<double>(values.size());
    double largest = 0.0;
    for (size_t i = 0; i < values.size(); ++i)
    {
        const double expected = law(values[i]);
        largest = std::max({largest, expected - static_cast<double>(i) / count,
                            static_cast<double>(i + 1) / count - expected});
    }
    return largest;
}

TEST(living, cross_sections_fluctuate_as_swerling_has_described)
{
    // A sample of this size exceeds 1.95 / sqrt(n) with a probability of 0.001.
    const double limit = 1.95 / std::sqrt(4000.0);
    const std::vector<double> first = relative_powers("swerling_1");
    EXPECT_LT(distance_to(first, [](double x) { return 1.0 - std::exp(-x); }), limit);
    EXPECT_LT(distance_to(relative_powers("swerling_3"),
                          [](double x) { return 1.0 - std::exp(-2.0 * x) * (1.0 + 2.0 * x); }),
              limit);
    EXPECT_GT(distance_to(relative_powers("none"), [](double x) { return 1.0 - std::exp(-x); }), 0.3);
    EXPECT_EQ(relative_powers("swerling_1"), first);
    EXPECT_NE(relative_powers("swerling_1", 2), first);
    EXPECT_NE(relative_powers("swerling_1", 1, 2), first);
    double product = 0.0;
    for (size_t i = 1; i < first.size(); ++i)
    {
        product += (first[i] - 1.0) * (first[i - 1] - 1.0) / 4000.0;
    }
    // The correlation of independent numbers of variance 1 has the deviation 1 / sqrt(n).
    EXPECT_NEAR(product, 0.0, 4.0 / std::sqrt(4000.0));
}

TEST(living, the_echo_of_a_surface_falls_with_the_distance_only)
{
    const auto level_at = [](const char *distance) {
        const zet_simulator_scene_t scene = scene_of(
            std::string(R"({"hardware": "ideal", "targets": [{"reflectivity": 0.2, "distance_m": )") +
            distance + "}]}");
        const simulation simulation(1, &scene);
        simulated_sensor sensor;
        const auto start = static_cast<int32_t>(std::lround(std::stod(distance) / 0.0025));
        zet_config_subsweep_start_point_set(sensor.config, start, 0);
        zet_config_subsweep_num_points_set(sensor.config, 1, 0);
        zet_config_subsweep_hwaas_set(sensor.config, 400, 0);
        zet_config_subsweep_iq_imbalance_compensation_set(sensor.config, true, 0);
        EXPECT_TRUE(sensor.prepare());
        return highest_level(sensor.measure());
    };
    // sigma = pi rho^2 d^2, so 8000 sqrt(sigma) / d^2 = 8000 sqrt(pi) rho / d.
    EXPECT_NEAR(level_at("0.5"), 8000.0 * std::sqrt(M_PI) * 0.2 / 0.5, 60.0);
    EXPECT_NEAR(level_at("1"), 8000.0 * std::sqrt(M_PI) * 0.2, 60.0);
    EXPECT_NEAR(level_at("2"), 8000.0 * std::sqrt(M_PI) * 0.2 / 2.0, 60.0);
}

TEST(living, wrong_targets_are_refused_with_their_place)
{
    EXPECT_EQ(reason_of(one_target(R"("velocity_m_s": 1)")),
              "targets[0] has no position, but must have distance_m, a place (x_m, y_m, z_m) or track");
    EXPECT_EQ(reason_of(R"({"targets": [{"distance_m": 1, "strength_m2": 1, "reflectivity": 1}]})"),
              "targets[0] has both of strength_m2 and reflectivity, but needs one");
    EXPECT_EQ(reason_of(one_target(R"("distance_m": 1, "leave_s": 2, "enter_s": 3)")),
              "targets[0].leave_s is 2, but must be more than enter_s, which is 3");
    EXPECT_EQ(
        reason_of(one_target(R"("y_m": 1, "distance_m": 2)")),
        "targets[0].distance_m is 2, but must be absent, because the target has a place (x_m, y_m, z_m)");
    EXPECT_EQ(reason_of(one_target(R"("distance_m": 2, "z_velocity_m_s": 2)")),
              "targets[0].z_velocity_m_s is 2, but must be absent, because the target has no place (x_m, "
              "y_m, z_m)");
    EXPECT_EQ(
        refusal_of(
            one_target(R"("distance_m": 2, "oscillations": [{"frequency_hz": 1, "amplitude_y_m": 3}])")),
        "targets[0].oscillations[0].amplitude_y_m is 3, but must be absent, because the target has no place "
        "(x_m, y_m, z_m) (line 1, column 104)");
    EXPECT_EQ(reason_of(one_target(R"("distance_m": 2, "fluctuation": "some")")),
              R"(targets[0].fluctuation is "some", but must be one of "none", "swerling_1", "swerling_3")");
    EXPECT_EQ(reason_of(one_target(R"("distance_m": 2, "oscillations": 3)")),
              "targets[0].oscillations is 3, but must be an array, [{ ... }]");
    EXPECT_EQ(refusal_of(one_target(R"("distance_m": 2, "oscillations": [], "oscillations": [])")),
              "targets[0] has the key \"oscillations\" twice, but must have it once (line 1, column 70)");
    EXPECT_EQ(reason_of(one_target(R"("distance": 2)")),
              "targets[0] has the unknown key \"distance\"; the keys are sensor, distance_m, strength_m2, "
              "reflectivity, velocity_m_s, oscillation_amplitude_m, oscillation_frequency_hz, nearest_m, "
              "farthest_m, enter_s, leave_s, fluctuation, x_m, y_m, z_m, x_velocity_m_s, y_velocity_m_s, "
              "z_velocity_m_s, body, oscillations, track, track_file");
    EXPECT_EQ(
        reason_of(one_target(R"("distance_m": 2, "oscillations": [{"amplitude_m": 11, "frequency_hz": 1}])")),
        "targets[0].oscillations[0].amplitude_m is 11, but must be a number from -10 to 10");
    EXPECT_EQ(
        reason_of(one_target(R"("distance_m": 2, "oscillations": [{"amplitude_m": 1}])")),
        "targets[0].oscillations[0] has no key \"frequency_hz\", but must have it: a number from 0 to 1000");
}

TEST(living, wrong_tracks_are_refused_with_their_place)
{
    EXPECT_EQ(refusal_of(
                  one_target(R"("track": [{"time_s": 1, "distance_m": 2}, {"time_s": 1, "distance_m": 3}])")),
              "targets[0].track[1].time_s is 1, but must be more than that of the entry before, which is 1 "
              "(line 1, "
              "column 86)");
    EXPECT_EQ(reason_of(one_target(R"("track": [{"time_s": 1, "distance_m": 2}, {"time_s": 2, "x_m": 3}])")),
              "targets[0].track[1] has x_m, but must have distance_m, and no place, like the target and its "
              "other keyframes");
    EXPECT_EQ(reason_of(one_target(R"("x_m": 1, "track": [{"time_s": 1, "distance_m": 2}])")),
              "targets[0].track[0] has distance_m, but must have x_m and y_m, and no distance_m, like the "
              "target and its other keyframes");
    EXPECT_EQ(reason_of(one_target(R"("x_m": 1, "track": [{"time_s": 1}])")),
              "targets[0].track[0] has no position, but must have x_m and y_m, and no distance_m, like the "
              "target and its other keyframes");
    EXPECT_EQ(reason_of(one_target(R"("track": [7])")), "targets[0].track[0] is 7, but must be an object");
    std::string many;
    for (int i = 0; i <= 8192; ++i)
    {
        many += (i > 0 ? ", " : "") + (R"({"distance_m": 1, "time_s": )" + std::to_string(i) + "}");
    }
    EXPECT_EQ(reason_of(one_target(R"("track": [)" + many + "]")),
              "targets[0].track[8192] is entry 8193 of all targets together, but there must be at most 8192");
}

TEST(living, lists_beyond_those_of_the_scene_are_refused)
{
    zet_simulator_scene_t scene = scene_with_target(1.0F, 1.0F);
    char error[256];
    scene.targets[0].first_keyframe = 1;
    EXPECT_FALSE(zet_simulator_scene_is_valid(&scene, error, sizeof(error)));
    EXPECT_STREQ(error, "targets[0] has oscillations or keyframes that the scene does not have");
    scene.keyframe_count = 1;
    EXPECT_TRUE(zet_simulator_scene_is_valid(&scene, error, sizeof(error)));
    scene.keyframe_count = 8193;
    EXPECT_FALSE(zet_simulator_scene_is_valid(&scene, error, sizeof(error)));
    EXPECT_STREQ(error, "track[8192] is one of 8193 entries, but the most is 8192");
}

} // namespace
