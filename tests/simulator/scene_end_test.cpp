/** @file
 * When the last thing happens in a scene.
 */
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "scene_text.h"

namespace
{

/** When the last thing happens; nothing if it never does. */
std::optional<double> end_of(const std::string &text)
{
    const zet_simulator_scene_t scene = scene_of(text);
    double end_s = -1.0;
    return zet_simulator_scene_end(&scene, &end_s) ? std::optional(end_s) : std::nullopt;
}

/** When the last thing happens to a target with these fields. */
std::optional<double> end_of_target(const std::string &fields)
{
    return end_of(R"({"targets": [{"strength_m2": 1, )" + fields + "}]}");
}

TEST(scene_end, is_the_last_change_of_targets)
{
    EXPECT_EQ(end_of("{}"), 0.0);
    EXPECT_EQ(end_of_target(R"("distance_m": 1)"), 0.0);
    EXPECT_EQ(end_of_target(R"("distance_m": 1, "enter_s": 3)"), 3.0);
    EXPECT_EQ(end_of_target(R"("distance_m": 1, "enter_s": 3, "leave_s": 4.5)"), 4.5);
    EXPECT_EQ(end_of_target(R"("track": [{"time_s": 0, "distance_m": 1}, {"time_s": 7, "distance_m": 2}])"),
              7.0);
    EXPECT_EQ(end_of_target(R"("distance_m": 1, "oscillations": [{"frequency_hz": 3}])"), 0.0);
    EXPECT_EQ(end_of_target(R"("distance_m": 1, "oscillations": [{"frequency_hz": 0, "amplitude_m": 1}])"),
              0.0);
    EXPECT_EQ(end_of_target(R"("distance_m": 1, "oscillation_amplitude_m": 1)"), 0.0);
}

TEST(scene_end, does_not_exist_if_a_target_stays_and_moves_or_fluctuates)
{
    for (const std::string fields :
         {R"("distance_m": 1, "velocity_m_s": 0.1)", R"("distance_m": 1, "fluctuation": "swerling_1")",
          R"("distance_m": 1, "oscillation_amplitude_m": 1, "oscillation_frequency_hz": 1)",
          R"("x_m": 1, "y_velocity_m_s": 1)",
          R"("distance_m": 1, "oscillations": [{"frequency_hz": 1, "amplitude_m": 0.1}])",
          R"("x_m": 1, "oscillations": [{"frequency_hz": 1, "amplitude_z_m": 0.1}])",
          R"("distance_m": 1, "oscillations": [{"frequency_hz": 0, "amplitude_m": 1, "wander_turns": 1,
              "wander_frequency_hz": 1}])"})
    {
        EXPECT_EQ(end_of_target(fields), std::nullopt) << fields;
        EXPECT_EQ(end_of_target(fields + R"(, "leave_s": 5)"), 5.0) << fields;
    }
}

TEST(scene_end, considers_interferers_and_temperatures)
{
    EXPECT_EQ(
        end_of(
            R"({"interferers": [{"strength": 1, "start_s": 2}, {"strength": 1, "start_s": 1, "duration_s": 4}]})"),
        5.0);
    EXPECT_EQ(end_of(R"({"interferers": [{"strength": 1, "duration_s": 1, "period_s": 2}]})"), std::nullopt);
    EXPECT_EQ(end_of(R"({"temperatures": [{"celsius": 1}]})"), 0.0);
    EXPECT_EQ(end_of(R"({"temperatures": [{"celsius": 1, "drift_celsius_per_s": 0.1}]})"), std::nullopt);
}

} // namespace
