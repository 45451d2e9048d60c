/** @file
 * The example scenes: what docs/simulator.md says a detector finds in them.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "scene/sight.h"
#include "scene_text.h"
#include "simulated_sensor.h"
#include "zet_config_subsweep.h"

namespace
{

using zet_simulator::scene_shows;
using zet_simulator::scene_sight;
using zet_simulator::sight;

/** What sensor 1 sees of the targets that are there, without those beyond a distance. */
std::vector<sight> seen_at(const zet_simulator_scene_t &scene, double time_s, double within_m)
{
    std::vector<sight> seen;
    for (uint32_t i = 0; i < scene.target_count; ++i)
    {
        const sight each = scene_sight(scene, scene.targets[i], 1, time_s);
        if (scene_shows(scene.targets[i], 1, time_s) && each.distance_m < within_m)
        {
            seen.push_back(each);
        }
    }
    return seen;
}

/** Amplitude of the sine of a frequency, in turns per value, in values around their mean. */
double amplitude_at(const std::vector<double> &values, double turns)
{
    double mean = 0.0;
    for (const double value : values)
    {
        mean += value / static_cast<double>(values.size());
    }
    double sine = 0.0;
    double cosine = 0.0;
    for (size_t i = 0; i < values.size(); ++i)
    {
        sine += (values[i] - mean) * std::sin(2.0 * M_PI * turns * static_cast<double>(i));
        cosine += (values[i] - mean) * std::cos(2.0 * M_PI * turns * static_cast<double>(i));
    }
    return 2.0 * std::hypot(sine, cosine) / static_cast<double>(values.size());
}

TEST(example, is_the_same_when_written_and_read_again)
{
    for (const std::string name :
         {"breathing_person", "crossing_persons", "room_with_fan", "stirred_tank", "visitor"})
    {
        const zet_simulator_scene_t scene = example_scene(name);
        const zet_simulator_scene_t again = scene_of(text_of(scene));
        ASSERT_EQ(again.target_count, scene.target_count) << name;
        for (uint32_t i = 0; i < scene.target_count; ++i)
        {
            EXPECT_EQ(again.targets[i].strength_m2, scene.targets[i].strength_m2);
            for (const double time_s : {0.0, 1.7, 12.3, 59.9})
            {
                const sight first = scene_sight(scene, scene.targets[i], 1, time_s);
                const sight second = scene_sight(again, again.targets[i], 1, time_s);
                EXPECT_EQ(second.distance_m, first.distance_m) << name << " " << i;
                EXPECT_EQ(second.velocity_m_s, first.velocity_m_s) << name << " " << i;
                EXPECT_EQ(scene_shows(again.targets[i], 1, time_s), scene_shows(scene.targets[i], 1, time_s));
            }
        }
    }
}

TEST(example, the_heart_of_the_breathing_person_can_be_measured)
{
    constexpr double frame_rate = 20.0;
    const zet_simulator_scene_t scene = example_scene("breathing_person");
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_subsweep_start_point_set(sensor.config, 480, 0);
    zet_config_subsweep_num_points_set(sensor.config, 1, 0);
    zet_config_subsweep_hwaas_set(sensor.config, 100, 0);
    zet_config_frame_rate_set(sensor.config, static_cast<float>(frame_rate));
    ASSERT_TRUE(sensor.prepare()) << simulation::log();
    std::vector<double> displacement;
    std::complex<float> before = sensor.measure().samples[0];
    double turns = 0.0;
    for (int i = 0; i < 1200; ++i)
    {
        const std::complex<float> now = sensor.measure().samples[0];
        turns += turns_between(before, now);
        before = now;
        displacement.push_back(turns * 0.0025);
    }
    const auto [nearest, farthest] = std::minmax_element(displacement.begin(), displacement.end());
    EXPECT_NEAR(*farthest - *nearest, 0.0085, 0.0005);
    const double heart = amplitude_at(displacement, 66.0 / 60.0 / frame_rate);
    EXPECT_NEAR(heart, 0.00025, 0.00004);
    // A rate at which there is neither breath nor heart.
    EXPECT_LT(amplitude_at(displacement, 80.0 / 60.0 / frame_rate), 0.2 * heart);
}

/** How far the torso of a walking person is from its mean motion, at a speed of 1 m/s. */
constexpr double body_sway_m = 0.02;
constexpr double body_sway_m_s = 0.2;

TEST(example, the_visitor_comes_sits_and_leaves)
{
    const zet_simulator_scene_t scene = example_scene("visitor");
    EXPECT_TRUE(seen_at(scene, 1.9, 5.9).empty());
    EXPECT_TRUE(seen_at(scene, 69.1, 5.9).empty());
    EXPECT_EQ(seen_at(scene, 4.0, 5.9).size(), 10U);
    EXPECT_NEAR(seen_at(scene, 4.0, 5.9)[0].distance_m, 3.0, body_sway_m);
    EXPECT_NEAR(seen_at(scene, 4.0, 5.9)[0].velocity_m_s, -1.0, body_sway_m_s);
    ASSERT_EQ(seen_at(scene, 30.0, 5.9).size(), 1U);
    EXPECT_NEAR(seen_at(scene, 30.0, 5.9)[0].distance_m, 1.5, 0.01);
    EXPECT_NEAR(seen_at(scene, 67.0, 5.9)[0].velocity_m_s, 1.0, body_sway_m_s);
}

TEST(example, two_persons_meet_and_cross)
{
    const zet_simulator_scene_t scene = example_scene("crossing_persons");
    for (const double time_s : {2.0, 6.0})
    {
        const std::vector<sight> seen = seen_at(scene, time_s, 100.0);
        ASSERT_EQ(seen.size(), 20U);
        EXPECT_NEAR(seen[0].distance_m, std::hypot(3.0, 0.4), body_sway_m);
        EXPECT_NEAR(seen[10].distance_m, std::hypot(3.0, 0.4), body_sway_m);
        EXPECT_NEAR(seen[0].velocity_m_s, time_s < 4.0 ? 1.0 : -1.0, body_sway_m_s);
        EXPECT_NEAR(seen[10].velocity_m_s, time_s < 4.0 ? -1.0 : 1.0, body_sway_m_s);
    }
    EXPECT_TRUE(seen_at(scene, 8.1, 100.0).empty());
}

/** Nearest and farthest distance and highest speed of a target in a minute. */
struct range
{
    double nearest_m = 1000.0;
    double farthest_m = 0.0;
    double fastest_m_s = 0.0;
};

/** Returns the range of a target. */
range range_of(const zet_simulator_scene_t &scene, uint32_t target)
{
    range range;
    for (double time_s = 0.0; time_s < 60.0; time_s += 0.003)
    {
        const sight seen = scene_sight(scene, scene.targets[target], 1, time_s);
        range.nearest_m = std::min(range.nearest_m, seen.distance_m);
        range.farthest_m = std::max(range.farthest_m, seen.distance_m);
        range.fastest_m_s = std::max(range.fastest_m_s, std::abs(seen.velocity_m_s));
    }
    return range;
}

TEST(example, the_stirrer_and_the_fan_have_their_speeds)
{
    const zet_simulator_scene_t tank = example_scene("stirred_tank");
    ASSERT_EQ(tank.target_count, 2U);
    EXPECT_NEAR(range_of(tank, 0).nearest_m, 1.6 - 0.0005, 0.0002);
    EXPECT_NEAR(range_of(tank, 0).farthest_m, 1.6 + 0.0005, 0.0002);
    EXPECT_NEAR(range_of(tank, 1).nearest_m, 1.225, 0.001);
    EXPECT_NEAR(range_of(tank, 1).farthest_m, 1.525, 0.001);
    EXPECT_NEAR(range_of(tank, 1).fastest_m_s, 0.63, 0.01);
    const zet_simulator_scene_t room = example_scene("room_with_fan");
    ASSERT_EQ(room.target_count, 3U + 6U + 8U);
    EXPECT_NEAR(range_of(room, 0).fastest_m_s, 2.6, 0.03);
    EXPECT_NEAR(range_of(room, 0).nearest_m, 2.25, 0.001);
}

} // namespace
