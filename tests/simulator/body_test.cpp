/** @file
 * Bodies: what they are expanded into, and how that moves.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "scene/sight.h"
#include "scene_text.h"

namespace
{

using zet_simulator::scene_sight;
using zet_simulator::sight;

/** Reads a scene with one body, which must be valid. */
zet_simulator_scene_t scene_with_body(const std::string &body)
{
    return scene_of(R"({"bodies": [{)" + body + "}]}");
}

/** Sum of the cross-sections of all targets. */
double strength_of(const zet_simulator_scene_t &scene)
{
    double sum = 0.0;
    for (uint32_t i = 0; i < scene.target_count; ++i)
    {
        sum += static_cast<double>(scene.targets[i].strength_m2);
    }
    return sum;
}

/** Distances of a target at equally spaced times, from 0 on. */
std::vector<double> distances(const zet_simulator_scene_t &scene, uint32_t target, double step_s, int count)
{
    std::vector<double> values;
    for (int i = 0; i < count; ++i)
    {
        values.push_back(scene_sight(scene, scene.targets[target], 1, step_s * i).distance_m);
    }
    return values;
}

/** Amplitude of the sine of a frequency in values over a multiple of its period. */
double sine_amplitude(const std::vector<double> &values, double turns)
{
    double sine = 0.0;
    double cosine = 0.0;
    for (size_t i = 0; i < values.size(); ++i)
    {
        sine += values[i] * std::sin(2.0 * M_PI * turns * static_cast<double>(i));
        cosine += values[i] * std::cos(2.0 * M_PI * turns * static_cast<double>(i));
    }
    return 2.0 * std::hypot(sine, cosine) / static_cast<double>(values.size());
}

TEST(body, a_chest_breathes_in_faster_than_out)
{
    const zet_simulator_scene_t scene = scene_with_body(
        R"("kind": "breathing", "distance_m": 1, "rate_per_min": 15, "amplitude_m": 0.01, "variability": 0, "heart_amplitude_m": 0)");
    ASSERT_EQ(scene.target_count, 1U);
    const std::vector<double> breath = distances(scene, 0, 0.01, 400);
    const auto [in, out] = std::minmax_element(breath.begin(), breath.end());
    EXPECT_NEAR(*out - *in, 0.01, 0.0003);
    // The chest is out farthest after 40 % of the four seconds of a breath.
    EXPECT_NEAR(0.01 * static_cast<double>(in - breath.begin()), 1.6, 0.1);
    const double far = 0.01 * static_cast<double>(out - breath.begin());
    EXPECT_NEAR(std::remainder(far, 4.0), 0.0, 0.15);
}

TEST(body, the_heart_moves_the_chest_far_less_than_the_breath)
{
    const zet_simulator_scene_t scene =
        scene_with_body(R"("kind": "breathing", "distance_m": 1, "variability": 0)");
    const std::vector<double> minute = distances(scene, 0, 0.02, 3000);
    // 15 breaths and 66 heartbeats in a minute; the heart moves by 0.5 mm from end to end.
    EXPECT_NEAR(sine_amplitude(minute, 66.0 / 3000.0), 0.00025, 0.00001);
    // The first term of half a cosine each way of 40 and 60 % is 0.4968 of 8 mm, by numeric integration.
    EXPECT_NEAR(sine_amplitude(minute, 15.0 / 3000.0), 0.008 * 0.4968, 0.00002);
    EXPECT_EQ(scene.targets[0].strength_m2, 0.5F);
}

TEST(body, the_rate_of_breathing_differs_by_the_variability)
{
    const zet_simulator_scene_t scene = scene_with_body(
        R"("kind": "breathing", "distance_m": 1, "variability": 0.2, "heart_amplitude_m": 0)");
    const std::vector<double> values = distances(scene, 0, 0.01, 60000);
    std::vector<double> periods;
    double last = -1.0;
    for (size_t i = 1; i < values.size(); ++i)
    {
        if (values[i - 1] < 0.996 && values[i] >= 0.996)
        {
            periods.push_back(0.01 * static_cast<double>(i) - last);
            last = 0.01 * static_cast<double>(i);
        }
    }
    const auto [shortest, longest] = std::minmax_element(periods.begin() + 1, periods.end());
    // 4 s at the mean rate; the mean over a period is a little less extreme than the rate itself.
    EXPECT_NEAR(*shortest, 4.0 / 1.2, 0.15);
    EXPECT_NEAR(*longest, 4.0 / 0.8, 0.3);
}

TEST(body, a_chest_breathes_in_towards_the_sensor_from_its_distance)
{
    const zet_simulator_scene_t scene = scene_with_body(
        R"("kind": "breathing", "distance_m": 1.2, "amplitude_m": 0.01, "variability": 0, "heart_amplitude_m": 0)");
    double nearest = 10.0;
    double farthest = 0.0;
    for (double time_s = 0.0; time_s < 8.0; time_s += 0.01)
    {
        const double distance_m = scene_sight(scene, scene.targets[0], 1, time_s).distance_m;
        nearest = std::min(nearest, distance_m);
        farthest = std::max(farthest, distance_m);
    }
    // The first terms of the series overshoot a little.
    EXPECT_NEAR(nearest, 1.19, 0.0002);
    EXPECT_NEAR(farthest, 1.2, 0.0002);
}

TEST(body, a_walker_has_feet_that_rest_and_overtake)
{
    constexpr double speed = 1.2;
    const zet_simulator_scene_t scene = scene_with_body(
        R"("kind": "walker", "y_m": 2, "to_y_m": 8, "enter_s": 1, "height_m": 1.8, "legs": 2)");
    ASSERT_EQ(scene.target_count, 20U);
    EXPECT_NEAR(strength_of(scene), 2 * 0.6, 0.001);
    // Boulic: a cycle of two steps lasts 1.346 / sqrt(relative speed), here 1.2 m/s over 0.53 1.8 m.
    const double cycle_s = 1.346 / std::sqrt(speed / (0.53 * 1.8));
    zet_simulator_pose_t far = {};
    for (const uint32_t foot : {8U, 9U, 18U, 19U})
    {
        const zet_simulator_target_t &target = scene.targets[foot];
        const double direction = foot < 10U ? 1.0 : -1.0;
        // Seen from far away on the path, so that the line of sight is the path.
        zet_simulator_scene_t seen = scene;
        seen.pose_count = 1;
        seen.poses[0] = far;
        seen.poses[0].place_m[1] = -1000.0F;
        double slowest = 100.0;
        double fastest = -100.0;
        for (double part = 0.0; part < 1.0; part += 0.005)
        {
            const double time_s = static_cast<double>(target.enter_s) + part * cycle_s;
            const double velocity = direction * scene_sight(seen, target, 1, time_s).velocity_m_s;
            slowest = std::min(slowest, velocity);
            fastest = std::max(fastest, velocity);
        }
        EXPECT_NEAR(slowest, 0.0, 0.35 * speed) << foot;
        EXPECT_GT(fastest, 3.0 * speed) << foot;
        EXPECT_LT(fastest, 4.6 * speed) << foot;
        const double start_m = scene_sight(seen, target, 1, static_cast<double>(target.enter_s)).distance_m;
        const double after_m =
            scene_sight(seen, target, 1, static_cast<double>(target.enter_s) + cycle_s).distance_m;
        EXPECT_NEAR(after_m - start_m, direction * speed * cycle_s, 0.001) << foot;
    }
}

/** Half of the way of a point of a walker relative to its mean motion in a cycle, seen from far away. */
double amplitude_from(const zet_simulator_scene_t &scene, uint32_t index, const float (&place)[3],
                      double cycle_s)
{
    zet_simulator_scene_t seen = scene;
    seen.pose_count = 1;
    std::copy(std::begin(place), std::end(place), seen.poses[0].place_m);
    const zet_simulator_target_t &target = seen.targets[index];
    const auto distance_at = [&](double part) {
        return scene_sight(seen, target, 1, static_cast<double>(target.enter_s) + part * cycle_s).distance_m;
    };
    const double mean_speed = distance_at(1.0) - distance_at(0.0);
    double least = 1.0e9;
    double most = -1.0e9;
    for (double part = 0.0; part < 1.0; part += 0.002)
    {
        const double relative = distance_at(part) - mean_speed * part;
        least = std::min(least, relative);
        most = std::max(most, relative);
    }
    return (most - least) / 2.0;
}

TEST(body, a_walker_moves_as_the_model_says)
{
    const double hip_m = 0.53 * 1.8;
    for (const double speed : {0.4, 1.2, 2.0})
    {
        const zet_simulator_scene_t scene = scene_with_body(
            R"("kind": "walker", "y_m": 2, "to_y_m": 12, "height_m": 1.8, "legs": 1, "speed_m_s": )" +
            std::to_string(speed));
        const double relative = speed / hip_m;
        const double cycle_s = 1.346 / std::sqrt(relative);
        const float above[3] = {0.0F, 2.0F, 1000.0F};
        const float behind[3] = {0.0F, -1000.0F, 0.0F};
        const uint32_t head = 1;
        EXPECT_NEAR(amplitude_from(scene, head, above, cycle_s), 0.015 * relative * hip_m, 0.001) << speed;
        const double slow = std::min(relative, 0.5);
        EXPECT_NEAR(amplitude_from(scene, head, behind, cycle_s), 0.084 * slow * (1.0 - slow) * hip_m, 0.001)
            << speed;
        // Upper arm 0.186, forearm to the middle of the hand 0.2, angles of 9.88 and up to 7 degrees.
        const uint32_t hand = 4;
        const double arm = 1.8 * M_PI / 180.0 * (0.386 * 9.88 * relative + 0.2 * 14.0 * slow);
        EXPECT_NEAR(amplitude_from(scene, hand, behind, cycle_s), arm, 0.03) << speed;
    }
}

TEST(body, the_arm_and_the_leg_of_a_side_swing_in_opposite_directions)
{
    const zet_simulator_scene_t scene = scene_with_body(R"("kind": "walker", "y_m": 2, "to_y_m": 12)");
    const uint32_t torso = 0;
    const uint32_t hand = 4;
    const uint32_t foot = 9;
    double product = 0.0;
    for (double time_s = 0.0; time_s < 5.0; time_s += 0.01)
    {
        const auto ahead = [&](uint32_t point) {
            return scene_sight(scene, scene.targets[point], 1, time_s).velocity_m_s -
                   scene_sight(scene, scene.targets[torso], 1, time_s).velocity_m_s;
        };
        product += ahead(hand) * ahead(foot);
    }
    EXPECT_LT(product, 0.0);
}

TEST(body, a_walker_turns_at_the_ends_of_the_path)
{
    const zet_simulator_scene_t scene = scene_with_body(
        R"("kind": "walker", "y_m": 2, "to_y_m": 8, "z_m": -1, "enter_s": 1, "speed_m_s": 1.5, "legs": 3)");
    ASSERT_EQ(scene.target_count, 30U);
    for (const double time_s : {1.5, 4.5, 5.5, 8.5, 9.5, 12.5})
    {
        // Six metres are walked in four seconds.
        const double walked = std::fmod(time_s - 1.0, 8.0) * 1.5;
        const double expected = 2.0 + (walked < 6.0 ? walked : 12.0 - walked);
        int torsos = 0;
        for (const uint32_t torso : {0U, 10U, 20U})
        {
            const zet_simulator_target_t &target = scene.targets[torso];
            if (zet_simulator::scene_shows(target, 1, time_s))
            {
                const double height = -1.0 + 0.7 * 1.75;
                // To and fro by 0.021 heights of the hip, up and down by 0.015 heights times a relative speed
                // of 1.6.
                EXPECT_NEAR(scene_sight(scene, target, 1, time_s).distance_m, std::hypot(expected, height),
                            0.02 + 0.023);
                ++torsos;
            }
        }
        EXPECT_EQ(torsos, 1) << time_s;
    }
    EXPECT_FALSE(zet_simulator::scene_shows(scene.targets[20], 1, 13.5));
}

TEST(body, a_fan_has_blades_with_a_speed_of_the_tip)
{
    const zet_simulator_scene_t scene = scene_with_body(
        R"("kind": "fan", "distance_m": 2, "radius_m": 0.3, "rate_per_min": 90, "points": 4)");
    ASSERT_EQ(scene.target_count, 4U);
    EXPECT_NEAR(strength_of(scene), 0.03, 1.0e-6);
    double fastest = 0.0;
    for (double time_s = 0.0; time_s < 1.0; time_s += 0.001)
    {
        fastest = std::max(fastest, scene_sight(scene, scene.targets[1], 1, time_s).velocity_m_s);
    }
    EXPECT_NEAR(fastest, 2.0 * M_PI * 1.5 * 0.3, 0.001);
    EXPECT_NEAR(scene_sight(scene, scene.targets[1], 1, 0.0).distance_m, 2.3, 1.0e-5);
}

TEST(body, a_surface_can_have_a_stirrer)
{
    const zet_simulator_scene_t still =
        scene_with_body(R"("kind": "surface", "distance_m": 1.5, "amplitude_m": 0)");
    ASSERT_EQ(still.target_count, 1U);
    EXPECT_EQ(still.targets[0].reflectivity, 0.5F);
    EXPECT_EQ(scene_sight(still, still.targets[0], 1, 0.77).distance_m, 1.5);
    const zet_simulator_scene_t stirred = scene_with_body(
        R"("kind": "surface", "distance_m": 1.5, "stirrer_m2": 0.02, "stirrer_rate_per_min": 30, "stirrer_radius_m": 0.2)");
    ASSERT_EQ(stirred.target_count, 2U);
    EXPECT_NEAR(scene_sight(stirred, stirred.targets[1], 1, 0.5).distance_m, 1.5 - 0.3 + 0.2, 1.0e-5);
    EXPECT_NEAR(scene_sight(stirred, stirred.targets[1], 1, 1.5).distance_m, 1.5 - 0.3 - 0.2, 1.0e-5);
}

TEST(body, a_curtain_sways_around_its_distance)
{
    const zet_simulator_scene_t scene = scene_with_body(
        R"("kind": "curtain", "distance_m": 3, "points": 5, "amplitude_m": 0.02, "leave_s": 9)");
    ASSERT_EQ(scene.target_count, 5U);
    EXPECT_NEAR(strength_of(scene), 0.3, 1.0e-5);
    for (uint32_t i = 0; i < 5U; ++i)
    {
        const std::vector<double> values = distances(scene, i, 0.1, 600);
        const auto [nearest, farthest] = std::minmax_element(values.begin(), values.end());
        EXPECT_NEAR(*farthest - *nearest, 0.04, 0.001) << i;
        EXPECT_NEAR((*farthest + *nearest) / 2.0, 3.0, 0.021) << i;
        EXPECT_EQ(scene.targets[i].leave_s, 9.0F);
    }
}

TEST(body, clutter_is_the_same_for_the_same_seed)
{
    const std::string text = R"("kind": "clutter", "nearest_m": 1, "farthest_m": 4, "points": 40, "seed": )";
    const zet_simulator_scene_t scene = scene_with_body(text + "5");
    const zet_simulator_scene_t same = scene_with_body(text + "5");
    const zet_simulator_scene_t other = scene_with_body(text + "6");
    ASSERT_EQ(scene.target_count, 40U);
    double sum = 0.0;
    for (uint32_t i = 0; i < 40U; ++i)
    {
        const float distance = scene.targets[i].distance_m;
        EXPECT_GE(distance, 1.0F);
        EXPECT_LE(distance, 4.0F);
        EXPECT_EQ(distance, same.targets[i].distance_m);
        EXPECT_NE(distance, other.targets[i].distance_m);
        sum += static_cast<double>(distance);
    }
    // The mean of n numbers between 1 and 4 has the deviation 3 / sqrt(12 n).
    EXPECT_NEAR(sum / 40.0, 2.5, 4.0 * 3.0 / std::sqrt(12.0 * 40.0));
    EXPECT_NEAR(strength_of(scene) / 40.0, 0.05, 4.0 * 0.05 / std::sqrt(40.0));
}

/** The number of the body of each target. */
std::vector<uint32_t> bodies_of(const zet_simulator_scene_t &scene)
{
    std::vector<uint32_t> bodies;
    for (uint32_t i = 0; i < scene.target_count; ++i)
    {
        bodies.push_back(scene.targets[i].body);
    }
    return bodies;
}

TEST(body, all_its_targets_have_its_number)
{
    const auto scene = scene_of(R"({"targets": [{"distance_m": 1, "strength_m2": 1}], "bodies": [
        {"kind": "fan", "distance_m": 1}, {"kind": "walker", "y_m": 2, "to_y_m": 8, "legs": 2}]})");
    std::vector<uint32_t> expected = {0, 1, 1, 1};
    // Both legs are the same person.
    expected.insert(expected.end(), 20, 2);
    EXPECT_EQ(bodies_of(scene), expected);
    EXPECT_EQ(bodies_of(scene_of(text_of(scene))), expected);
}

TEST(body, of_several_things_has_no_number)
{
    const auto scene =
        scene_of(R"({"bodies": [{"kind": "clutter", "nearest_m": 1, "farthest_m": 2, "points": 2},
        {"kind": "surface", "distance_m": 1, "stirrer_m2": 0.1}, {"kind": "breathing", "distance_m": 1}]})");
    EXPECT_EQ(bodies_of(scene), (std::vector<uint32_t>{0, 0, 0, 0, 1}));
}

TEST(body, has_a_number_that_no_other_target_has)
{
    const auto scene = scene_of(R"({"bodies": [{"kind": "breathing", "distance_m": 1},
        {"kind": "breathing", "distance_m": 2}], "targets": [{"distance_m": 1, "strength_m2": 1, "body": 1},
        {"distance_m": 2, "strength_m2": 1, "body": 0}, {"distance_m": 3, "strength_m2": 1, "body": 64}]})");
    EXPECT_EQ(bodies_of(scene), (std::vector<uint32_t>{1, 0, 64, 2, 3}));
}

TEST(body, number_of_a_target_is_checked)
{
    const auto refusal = [](const std::string &number) {
        return reason_of(R"({"targets": [{"distance_m": 1, "strength_m2": 1, "body": )" + number + "}]}");
    };
    EXPECT_EQ(refusal("65"), "targets[0].body is 65, but must be a number from 0 to 64");
    EXPECT_EQ(refusal("-1"), "targets[0].body is -1, but must be a number from 0 to 64");
    EXPECT_EQ(refusal("1.5"), "targets[0].body is 1.5, but must be a whole number from 0 to 64");
    EXPECT_EQ(refusal("\"a\""), "targets[0].body is \"a\", but must be a whole number from 0 to 64");
}

TEST(body, wrong_bodies_are_refused_with_their_place)
{
    const std::string kinds = R"(one of "breathing", "walker", "surface", "fan", "curtain", "clutter")";
    EXPECT_EQ(reason_of(R"({"bodies": {}})"), "bodies is an object, but must be an array, [{ ... }]");
    EXPECT_EQ(reason_of(R"({"bodies": [1]})"), "bodies[0] is 1, but must be an object");
    EXPECT_EQ(reason_of(R"({"bodies": [{"distance_m": 1}]})"),
              "bodies[0] has no key \"kind\", but must have it: " + kinds);
    EXPECT_EQ(reason_of(R"({"bodies": [{"kind": "dog"}]})"),
              "bodies[0].kind is \"dog\", but must be " + kinds);
    EXPECT_EQ(reason_of(R"({"bodies": [{"kind": "breathing", "distance_m": 1, "rate_per_min": 61}]})"),
              "bodies[0].rate_per_min is 61, but must be a number from 3 to 60");
    EXPECT_EQ(reason_of(R"({"bodies": [{"kind": "breathing"}]})"),
              "bodies[0] has no key \"distance_m\", but must have it: a number from 0.05 to 1000");
    EXPECT_EQ(reason_of(R"({"bodies": [{"kind": "curtain", "distance_m": 1, "legs": 2}]})"),
              "bodies[0] has the unknown key \"legs\"; the keys are sensor, kind, distance_m, "
              "strength_m2, enter_s, leave_s, rate_per_min, amplitude_m, points");
    EXPECT_EQ(reason_of(R"({"bodies": [{"kind": "walker", "y_m": 1, "to_y_m": 1.05}]})"),
              "bodies[0] walks 0.05 m, but to_x_m and to_y_m must be at least 0.1 m away from x_m and y_m");
    EXPECT_EQ(reason_of(R"({"bodies": [{"kind": "clutter", "nearest_m": 2, "farthest_m": 2}]})"),
              "bodies[0].farthest_m is 2, but must be more than nearest_m, which is 2");
    EXPECT_EQ(
        reason_of(
            R"({"bodies": [{"kind": "surface", "distance_m": 1, "stirrer_m2": 1, "stirrer_radius_m": 1}]})"),
        "bodies[0].stirrer_radius_m is 1, but must be at most distance_m / 2.6, which is 0.385");
    EXPECT_EQ(reason_of(R"({"bodies": [{"kind": "fan", "distance_m": 1, "enter_s": 5, "leave_s": 4}]})"),
              "bodies[0].leave_s is 4, but must be more than enter_s, which is 5");
    const std::string clutter = R"({"kind": "clutter", "nearest_m": 1, "farthest_m": 4, "points": 40})";
    EXPECT_EQ(
        reason_of(R"({"bodies": [)" + clutter + ", " + clutter + "]}"),
        "bodies[1] makes the scene have 80 targets and 0 oscillations, but there must be at most 64 and "
        "256");
}

TEST(body, names_a_sensor_of_the_board)
{
    const std::string text = R"({"bodies": [{"kind": "fan", "distance_m": 1, "sensor": 6}]})";
    EXPECT_EQ(refusal_of(text, 6), "");
    EXPECT_EQ(refusal_of(text, 5),
              "bodies[0].sensor is 6, but the number of sensors on the board is 5 (line 1, column 56)");
}

} // namespace
