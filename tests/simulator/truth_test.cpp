/** @file
 * The truth of a frame: compared with the samples, and with what follows from the scene by hand.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>
#include <vector>

#include "simulated_sensor.h"
#include "zet_config_internal.h"
#include "zet_config_subsweep.h"
#include "zet_hal_integration_k330.h"
#include "zet_simulator_truth.h"

namespace
{

constexpr double base_step_m = 0.0025;

/** What was observed. */
std::vector<zet_simulator_truth_t> observed;
std::vector<uint32_t> sessions;

void note_session(uint32_t number)
{
    sessions.push_back(number);
}

void note_frame(const zet_simulator_frame_t *frame)
{
    zet_simulator_truth_of(frame, &observed.emplace_back());
}

/** A simulator that is observed. */
class truth : public testing::Test
{
protected:
    truth()
    {
        observed.clear();
        sessions.clear();
    }

    /** Starts the simulator with a scene. */
    void start(const zet_simulator_scene_t &scene, uint16_t sensors = 1)
    {
        simulator.reset();
        seen = scene;
        simulator.emplace(sensors, &seen, 1, zet_simulator_virtual_clock(), nullptr,
                          zet_simulator_observer_t{note_session, note_frame});
    }

    /** Measures frames of the points around a distance, in steps of a base step, without errors of the
     * receiver except that of the delay line if it is not @p enhanced. */
    static std::vector<frame> frames_around(double distance_m, uint16_t points, uint16_t hwaas, int count,
                                            bool enhanced = true)
    {
        simulated_sensor sensor;
        const auto middle = static_cast<int32_t>(std::lround(distance_m / base_step_m));
        zet_config_subsweep_start_point_set(sensor.config, middle - points / 2, 0);
        zet_config_subsweep_num_points_set(sensor.config, points, 0);
        zet_config_subsweep_step_length_set(sensor.config, 1, 0);
        zet_config_subsweep_hwaas_set(sensor.config, hwaas, 0);
        zet_config_subsweep_phase_enhancement_set(sensor.config, enhanced, 0);
        zet_config_subsweep_iq_imbalance_compensation_set(sensor.config, true, 0);
        zet_config_subtract_in_buffer_set(sensor.config, true);
        EXPECT_TRUE(sensor.prepare()) << simulation::log();
        std::vector<frame> frames;
        for (int i = 0; i < count; ++i)
        {
            frames.push_back(sensor.measure());
        }
        return frames;
    }

    /** Measures frames, one every millisecond. */
    static void measure_frames(size_t count)
    {
        simulated_sensor sensor;
        zet_config_frame_rate_set(sensor.config, 1000.0F);
        zet_config_subsweep_num_points_set(sensor.config, 10, 0);
        ASSERT_TRUE(sensor.prepare());
        for (size_t i = 0; i < count; ++i)
        {
            sensor.measure();
        }
    }

    zet_simulator_scene_t seen = {};
    std::optional<simulation> simulator;
};

TEST_F(truth, amplitude_and_phase_are_those_of_the_sample_nearest_to_the_target)
{
    for (const bool enhanced : {true, false})
    {
        for (const float distance_m : {0.6F, 1.00071F, 1.4987F})
        {
            start(scene_with_target(distance_m, 1.0F));
            constexpr uint16_t points = 200;
            const auto measured =
                frames_around(static_cast<double>(distance_m), points, 500, 1, enhanced).front();
            const auto nearest = measured.samples.at(points / 2);
            const auto &found = observed.back();
            ASSERT_EQ(found.target_count, 1U);
            EXPECT_NEAR(found.targets[0].distance_m, static_cast<double>(distance_m), 1e-7);
            EXPECT_NEAR(found.targets[0].amplitude / static_cast<double>(std::abs(nearest)), 1.0, 0.01);
            const double difference = found.targets[0].phase_rad - static_cast<double>(std::arg(nearest));
            EXPECT_NEAR(std::remainder(difference, 2.0 * M_PI), 0.0, 0.01) << distance_m;
        }
    }
}

TEST_F(truth, amplitude_follows_the_radar_equation)
{
    // 1 m² at 1 m gives 8000 with profile 3 and gain 16; the amplitude is proportional to √σ / d².
    auto scene = scene_with_target(2.0F, 4.0F);
    scene.target_count = 2;
    scene.targets[1] = scene.targets[0];
    scene.targets[1].distance_m = 1.0F;
    scene.targets[1].strength_m2 = 1.0F;
    start(scene);
    simulated_sensor sensor;
    zet_config_subsweep_receiver_gain_set(sensor.config, 16, 0);
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    const auto &found = observed.back();
    ASSERT_EQ(found.target_count, 2U);
    EXPECT_NEAR(found.targets[0].amplitude, 8000.0 * 2.0 / 4.0, 1.0);
    EXPECT_NEAR(found.targets[1].amplitude, 8000.0, 1.0);
    EXPECT_EQ(found.targets[1].target, 1U);
}

TEST_F(truth, amplitude_includes_beam_mirroring_and_fluctuation)
{
    auto in_beam = scene_with_target(0.0F, 1.0F);
    in_beam.targets[0].has_place = true;
    in_beam.targets[0].place_m[0] = 0.6F;
    in_beam.targets[0].place_m[1] = 0.8F;
    in_beam.pose_count = 1;
    in_beam.poses[0].beam_deg = 70.0F;
    auto mirroring = scene_with_target(1.0F, 0.0F);
    mirroring.targets[0].reflectivity = 0.4F;
    auto fluctuating = scene_with_target(1.0F, 1.0F);
    fluctuating.targets[0].fluctuation = ZET_SIMULATOR_FLUCTUATION_SWERLING_3;
    for (const auto &scene : {in_beam, mirroring, fluctuating})
    {
        start(scene);
        constexpr uint16_t points = 200;
        const auto frames = frames_around(1.0, points, 500, 10);
        for (size_t i = 0; i < frames.size(); ++i)
        {
            ASSERT_EQ(observed.at(i).target_count, 1U);
            const auto &found = observed[i].targets[0];
            const auto nearest = frames[i].samples.at(points / 2);
            EXPECT_NEAR(found.amplitude, static_cast<double>(std::abs(nearest)),
                        0.01 * found.amplitude + 5.0 * std::sqrt(found.noise_power));
        }
        observed.clear();
    }
}

TEST_F(truth, noise_power_is_that_of_the_samples)
{
    for (const uint16_t hwaas : {uint16_t{1}, uint16_t{100}})
    {
        auto scene = empty_scene();
        scene.interferer_count = 1;
        scene.interferers[0] = {0, 3.0F, 0.0F, 0.0F, 0.0F};
        start(scene);
        double power = 0.0;
        size_t samples = 0;
        for (const auto &measured : frames_around(5.0, 2000, hwaas, 20))
        {
            for (const auto value : measured.samples)
            {
                power += std::norm(std::complex<double>(value));
                ++samples;
            }
        }
        // The relative deviation of a mean of n powers is 1 / √n: 0.005.
        const double expected = power / static_cast<double>(samples);
        EXPECT_NEAR(observed.back().noise_power / expected, 1.0, 0.025);
        EXPECT_NEAR(observed.back().interference, 3.0, 1e-6);
    }
}

TEST_F(truth, is_that_of_the_middle_of_the_frame)
{
    auto scene = scene_with_target(1.0F, 1.0F);
    scene.targets[0].velocity_m_s = 0.5F;
    start(scene);
    simulated_sensor sensor;
    zet_config_sweeps_per_frame_set(sensor.config, 11);
    zet_config_sweep_rate_set(sensor.config, 100.0F);
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    const auto &found = observed.back();
    // Waking takes less than a millisecond.
    EXPECT_GE(found.time_s, 0.0);
    EXPECT_LT(found.time_s, 0.001);
    EXPECT_NEAR(found.targets[0].distance_m, 1.0 + 0.5 * (found.time_s + 0.05), 1e-6);
    EXPECT_NEAR(found.targets[0].velocity_m_s, 0.5, 1e-6);
}

TEST_F(truth, velocity_is_the_derivative_of_the_distance)
{
    auto scene = scene_with_target(1.0F, 1.0F);
    scene.target_count = 2;
    scene.targets[0].oscillation_amplitude_m = 0.01F;
    scene.targets[0].oscillation_frequency_hz = 2.0F;
    scene.targets[1] = scene_with_target(0.5F, 1.0F).targets[0];
    scene.targets[1].velocity_m_s = -2.0F;
    scene.targets[1].nearest_m = 0.4F;
    scene.targets[1].farthest_m = 0.6F;
    start(scene);
    constexpr size_t frames = 300;
    measure_frames(frames);
    ASSERT_EQ(observed.size(), frames);
    int reversals = 0;
    for (size_t i = 1; i + 1 < frames; ++i)
    {
        const auto &now = observed[i];
        for (uint32_t target = 0; target < 2; ++target)
        {
            const double span = observed[i + 1].time_s - observed[i - 1].time_s;
            const double velocity =
                (observed[i + 1].targets[target].distance_m - observed[i - 1].targets[target].distance_m) /
                span;
            const bool reverses = std::fabs(velocity) < 1.9 && target == 1;
            reversals += reverses ? 1 : 0;
            EXPECT_TRUE(reverses || std::fabs(now.targets[target].velocity_m_s - velocity) < 0.002)
                << i << " " << target;
        }
    }
    // 0.6 m of way at 2 m/s: three times 0.1 s from one turning point to the other.
    EXPECT_LE(reversals, 3 * 2);
}

TEST_F(truth, velocity_in_space_is_the_derivative_of_the_distance)
{
    zet_simulator_scene_t scene = scene_with_target(0.0F, 1.0F);
    auto &target = scene.targets[0];
    target.has_place = true;
    target.place_m[2] = 0.5F;
    scene.keyframe_count = target.keyframe_count = 3;
    scene.keyframes[0] = {0.0F, {-1.0F, 1.0F, 0.0F}};
    scene.keyframes[1] = {0.1F, {0.0F, 1.2F, 0.0F}};
    scene.keyframes[2] = {0.25F, {1.0F, 0.8F, 0.0F}};
    scene.oscillation_count = target.oscillation_count = 1;
    scene.oscillations[0] = {0.01F, 3.0F, 0.1F, 0.2F, 1.0F, {0.0F, 0.02F, 0.0F}};
    start(scene);
    constexpr size_t frames = 300;
    measure_frames(frames);
    double fastest_m_s = 0.0;
    for (size_t i = 1; i + 1 < frames; ++i)
    {
        const auto &before = observed.at(i - 1);
        const auto &after = observed.at(i + 1);
        const double velocity =
            (after.targets[0].distance_m - before.targets[0].distance_m) / (after.time_s - before.time_s);
        EXPECT_NEAR(observed[i].targets[0].velocity_m_s, velocity, 0.01) << i;
        fastest_m_s = std::max(fastest_m_s, std::fabs(velocity));
    }
    EXPECT_GT(fastest_m_s, 2.0);
}

TEST_F(truth, has_only_targets_that_the_sensor_can_see)
{
    auto scene = scene_with_target(1.0F, 1.0F);
    scene.target_count = 5;
    scene.targets[1] = scene.targets[0];
    scene.targets[1].sensor_id = 2;
    scene.targets[2] = scene.targets[0];
    scene.targets[2].distance_m = 0.02F;
    scene.targets[2].velocity_m_s = -100.0F;
    scene.targets[3] = scene.targets[0];
    scene.targets[3].enter_s = 1000.0F;
    scene.targets[4] = {};
    scene.targets[4].strength_m2 = 1.0F;
    scene.targets[4].has_place = true;
    scene.targets[4].place_m[1] = -1.0F;
    scene.pose_count = 1;
    scene.poses[0].beam_deg = 60.0F;
    start(scene, 2);
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    sensor.measure();
    ASSERT_EQ(observed.back().target_count, 1U);
    EXPECT_EQ(observed.back().targets[0].target, 0U);
}

TEST_F(truth, has_the_number_of_the_body_of_each_target)
{
    auto scene = scene_with_target(1.0F, 1.0F);
    scene.target_count = 2;
    scene.targets[1] = scene.targets[0];
    scene.targets[1].body = 3;
    start(scene);
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    ASSERT_EQ(observed.back().target_count, 2U);
    EXPECT_EQ(observed.back().targets[0].body, 0U);
    EXPECT_EQ(observed.back().targets[1].body, 3U);
}

TEST_F(truth, has_no_echo_without_transmitter)
{
    start(scene_with_target(1.0F, 1.0F));
    simulated_sensor sensor;
    zet_config_subsweep_enable_tx_set(sensor.config, false, 0);
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    ASSERT_EQ(observed.back().target_count, 1U);
    EXPECT_EQ(observed.back().targets[0].amplitude, 0.0);
}

TEST_F(truth, has_the_first_tick_after_the_interrupt_of_the_sensor)
{
    start(scene_with_target(1.0F, 1.0F), 2);
    simulated_sensor first(1);
    simulated_sensor second(2);
    ASSERT_TRUE(first.prepare());
    ASSERT_TRUE(second.prepare());
    ASSERT_TRUE(zet_sensor_measure(first.sensor));
    ASSERT_TRUE(zet_sensor_measure(second.sensor));
    zet_simulator_note_tick(1);
    ASSERT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(2, 1000));
    zet_simulator_note_tick(20);
    zet_simulator_note_tick(21);
    ASSERT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000));
    zet_simulator_note_tick(10);
    ASSERT_TRUE(zet_sensor_read(first.sensor, first.buffer.data(), first.buffer_size()));
    ASSERT_TRUE(zet_sensor_read(second.sensor, second.buffer.data(), second.buffer_size()));
    ASSERT_EQ(observed.size(), 2U);
    EXPECT_EQ(observed[0].sensor_id, 1U);
    EXPECT_EQ(observed[0].tick, 10U);
    EXPECT_EQ(observed[1].sensor_id, 2U);
    EXPECT_EQ(observed[1].tick, 20U);
}

TEST_F(truth, counts_sessions_from_the_first_handle_on)
{
    start(scene_with_target(1.0F, 1.0F), 2);
    {
        const simulated_sensor first(1);
        const simulated_sensor second(2);
        EXPECT_EQ(sessions, std::vector<uint32_t>{1});
    }
    simulated_sensor third(2);
    EXPECT_EQ(sessions, (std::vector<uint32_t>{1, 2}));
    ASSERT_TRUE(third.prepare());
    third.measure();
    EXPECT_EQ(observed.back().session, 2U);
}

} // namespace
