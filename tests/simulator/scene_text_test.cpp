/** @file
 * Scenes as text: that they are read as they were written.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "scene_text.h"

namespace
{

/** Fills a list with an entry. */
template <typename entry_t, size_t size> uint16_t fill(entry_t (&list)[size], const entry_t &entry)
{
    for (auto &each : list)
    {
        each = entry;
    }
    return size;
}

/** The longest number that a scene can have as text. */
constexpr float longest = -1.23456789e-15F;

/** A target in space with the longest text. */
zet_simulator_target_t longest_target()
{
    return {4294967295U,
            longest,
            longest,
            longest,
            longest,
            longest,
            longest,
            longest,
            longest,
            longest,
            longest,
            ZET_SIMULATOR_FLUCTUATION_SWERLING_3,
            true,
            {longest, longest, longest},
            {longest, longest, longest},
            0,
            0,
            0,
            0,
            4294967295U};
}

/** Gives each target the same number of oscillations and keyframes. */
void share_lists(zet_simulator_scene_t &scene)
{
    constexpr uint16_t oscillations = ZET_SIMULATOR_MAX_OSCILLATIONS / ZET_SIMULATOR_MAX_TARGETS;
    constexpr uint16_t keyframes = ZET_SIMULATOR_MAX_KEYFRAMES / ZET_SIMULATOR_MAX_TARGETS;
    for (uint16_t i = 0; i < ZET_SIMULATOR_MAX_TARGETS; ++i)
    {
        scene.targets[i].first_oscillation = static_cast<uint16_t>(i * oscillations);
        scene.targets[i].oscillation_count = oscillations;
        scene.targets[i].first_keyframe = static_cast<uint16_t>(i * keyframes);
        scene.targets[i].keyframe_count = keyframes;
    }
    scene.oscillation_count = ZET_SIMULATOR_MAX_OSCILLATIONS;
    scene.keyframe_count = ZET_SIMULATOR_MAX_KEYFRAMES;
}

TEST(scene_text, is_read_as_the_same_scene)
{
    auto scene = *zet_simulator_default_scene();
    scene.interferer_count = 1;
    scene.interferers[0] = {2, 3.3F, 0.1F, 0.25F, 1.5F};
    scene.temperature_count = 1;
    scene.temperatures[0] = {0, -12.5F, 0.001F};
    scene.fault_count = 1;
    scene.faults[0] = {1, ZET_SIMULATOR_FAULT_SLOW_LINK, 100000000, 7, 99999999};
    const std::string text = text_of(scene);
    EXPECT_EQ(text.substr(0, 60), R"({"targets":[{"distance_m":0.5,"strength_m2":0.05},{"distance)");
    const auto again = scene_of(text);
    EXPECT_EQ(text_of(again), text);
    EXPECT_EQ(again.targets[1].oscillation_amplitude_m, 0.004F);
    EXPECT_EQ(again.faults[0].bytes_per_second, 99999999U);
    EXPECT_EQ(again.interferers[0].strength, 3.3F);
}

TEST(scene_text, has_every_field)
{
    const std::string text =
        R"({"targets":[{"sensor":2,"distance_m":1.2,"strength_m2":0.5,"velocity_m_s":-0.3,)"
        R"("oscillation_amplitude_m":0.004,"oscillation_frequency_hz":0.25,"nearest_m":0,"farthest_m":2.5,)"
        R"("enter_s":1.5,"leave_s":60,"fluctuation":"swerling_1"},)"
        R"({"reflectivity":0.2,"x_m":0,"y_m":0,"z_m":0,"x_velocity_m_s":0.1,"y_velocity_m_s":-0.2,)"
        R"("z_velocity_m_s":0.3,"body":64,"oscillations":[{"amplitude_m":0.01,"frequency_hz":0.2,"phase_turns":-0.25,)"
        R"("wander_turns":0.125,"wander_frequency_hz":0.01,"amplitude_x_m":0.1,"amplitude_y_m":0.2,)"
        R"("amplitude_z_m":0.3},{"frequency_hz":0}],"track":[{"time_s":0,"x_m":0,"y_m":1,"z_m":0},)"
        R"({"time_s":2,"x_m":-1,"y_m":0,"z_m":0.5}]},)"
        R"({"strength_m2":1,"oscillations":[{"amplitude_m":1,"frequency_hz":2}],)"
        R"("track":[{"time_s":0,"distance_m":0},{"time_s":10,"distance_m":3}]}],)"
        R"("interferers":[{"sensor":1,"strength":2,"start_s":3,"duration_s":4,"period_s":5}],)"
        R"("temperatures":[{"celsius":0},{"sensor":1,"celsius":20,"drift_celsius_per_s":-0.5}],)"
        R"("faults":[{"sensor":1,"kind":"slow_link","skip":2,"count":3,"bytes_per_second":4}],)"
        R"("hardware":[{"sensor":1,"phase_noise_rad_per_m":0.5,"phase_drift_rad_per_m":0,"sidelobe_level":0.25,)"
        R"("ringing_level":0.125,"delay_drift_mm_per_k":-2,"gain_drift_per_k":0.01,"bursts_per_s":4,)"
        R"("burst_s":0.25,"burst_strength":100}],)"
        R"("sensors":[{},{"sensor":1,"board":2,"x_m":1,"y_m":2,"z_m":3,"direction_x":0.1,"direction_y":0.2,)"
        R"("direction_z":0.3,"beam_deg":70}]})";
    EXPECT_EQ(text_of(scene_of(text)), text);
}

TEST(scene_text, has_hardware_or_the_word_for_none)
{
    EXPECT_EQ(text_of(scene_of(R"({"hardware":"ideal"})")), text_of({}));
    const std::string usual = text_of(scene_of("{}"));
    EXPECT_NE(usual.find(R"("hardware":[{"phase_noise_rad_per_m":0.01,)"), std::string::npos) << usual;
    EXPECT_EQ(text_of(scene_of(usual)), usual);
}

TEST(scene_text, has_numbers_that_are_read_as_the_same_ones)
{
    auto scene = scene_of(R"({"targets":[{"distance_m":1,"strength_m2":1}]})");
    for (float value = 0.011F; value < 999.0F; value = std::nextafter(value * 1.001F, 1e9F))
    {
        scene.targets[0].distance_m = value;
        EXPECT_EQ(scene_of(text_of(scene)).targets[0].distance_m, value);
    }
}

TEST(scene_text, has_room_for_every_scene)
{
    zet_simulator_scene_t scene = {};
    scene.target_count = fill(scene.targets, longest_target());
    share_lists(scene);
    fill(scene.oscillations, {longest, longest, longest, longest, longest, {longest, longest, longest}});
    fill(scene.keyframes, {longest, {longest, longest, longest}});
    scene.pose_count =
        fill(scene.poses,
             {4294967295U, 4294967295U, {longest, longest, longest}, {longest, longest, longest}, longest});
    scene.interferer_count = fill(scene.interferers, {4294967295U, longest, longest, longest, longest});
    scene.temperature_count = fill(scene.temperatures, {4294967295U, longest, longest});
    scene.hardware_count = fill(scene.hardware, {4294967295U, longest, longest, longest, longest, longest,
                                                 longest, longest, longest, longest});
    scene.fault_count = fill(scene.faults, {4294967295U, ZET_SIMULATOR_FAULT_FAILING_CALIBRATION, 4294967295U,
                                            4294967295U, 4294967295U});
    const std::string text = text_of(scene);
    EXPECT_TRUE(text.ends_with("}]}")) << text.size();
    // A server reads it again.
    EXPECT_LT(text.size(), size_t{2} << 20);
}

} // namespace
