/** @file
 * The timing of sweeps, frames, interrupts and delays.
 */
#include <gtest/gtest.h>

#include <cmath>

#include "simulated_sensor.h"
#include "zet_config_cca.h"
#include "zet_config_subsweep.h"
#include "zet_hal_integration_k330.h"

namespace
{

/** Duration of a frame, from measure to interrupt, in microseconds. */
double frame_time_us(const simulated_sensor &sensor)
{
    const uint64_t start_us = now_us();
    EXPECT_TRUE(zet_sensor_measure(sensor.sensor));
    EXPECT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, 10000));
    return static_cast<double>(now_us() - start_us);
}

TEST(timing, highest_sweep_rate_follows_from_points_hwaas_and_prf)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    // 160 points of 8 pulses and 1 to settle, at 15.6 MHz; 2 us of set-up and 1 us to become ready.
    EXPECT_TRUE(sensor.metadata.high_speed_mode);
    EXPECT_NEAR(sensor.metadata.max_sweep_rate, 1.0e6 / (160.0 * 9.0 / 15.6 + 2.0 + 1.0), 1.0);

    zet_config_subsweep_hwaas_set(sensor.config, 100, 0);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(sensor.metadata.max_sweep_rate, 1.0e6 / (160.0 * 101.0 / 15.6 + 3.0), 1.0);

    zet_config_subsweep_prf_set(sensor.config, ZET_CONFIG_PRF_5_2_MHZ, 0);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(sensor.metadata.max_sweep_rate, 1.0e6 / (160.0 * 101.0 / 5.2 + 3.0), 1.0);
}

TEST(timing, high_speed_mode_needs_one_sub_sweep_that_is_always_ready)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_config_num_subsweeps_set(sensor.config, 2);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_FALSE(sensor.metadata.high_speed_mode);
    // Four pulses to settle and 10 us of set-up for each of the two.
    EXPECT_NEAR(sensor.metadata.max_sweep_rate, 1.0e6 / (2.0 * (160.0 * 12.0 / 15.6 + 10.0) + 1.0), 1.0);

    zet_config_num_subsweeps_set(sensor.config, 1);
    zet_config_inter_sweep_idle_state_set(sensor.config, ZET_CONFIG_IDLE_STATE_SLEEP);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_FALSE(sensor.metadata.high_speed_mode);
    EXPECT_NEAR(sensor.metadata.max_sweep_rate, 1.0e6 / (160.0 * 12.0 / 15.6 + 10.0 + 4.0), 1.0);
}

TEST(timing, a_deeper_idle_state_takes_longer_to_wake_from)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_config_inter_frame_idle_state_set(sensor.config, ZET_CONFIG_IDLE_STATE_READY);
    ASSERT_TRUE(sensor.prepare());
    const double ready = frame_time_us(sensor);
    zet_config_inter_frame_idle_state_set(sensor.config, ZET_CONFIG_IDLE_STATE_SLEEP);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(frame_time_us(sensor) - ready, 3.0, 1.0);
    zet_config_inter_frame_idle_state_set(sensor.config, ZET_CONFIG_IDLE_STATE_DEEP_SLEEP);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(frame_time_us(sensor) - ready, 299.0, 1.0);
}

TEST(timing, sweeps_are_spaced_by_the_sweep_rate)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_config_sweeps_per_frame_set(sensor.config, 11);
    zet_config_sweep_rate_set(sensor.config, 500.0F);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(frame_time_us(sensor), 10.0 * 2000.0 + 300.0 + 160.0 * 9.0 / 15.6 + 2.0, 2.0);
    zet_config_sweep_rate_set(sensor.config, 0.0F);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(frame_time_us(sensor),
                10.0 * 1.0e6 / static_cast<double>(sensor.metadata.max_sweep_rate) + 394.3, 2.0);
}

TEST(timing, the_reported_highest_sweep_rate_is_accepted_and_no_more)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    zet_config_sweep_rate_set(sensor.config, sensor.metadata.max_sweep_rate);
    EXPECT_TRUE(sensor.prepare());
    zet_config_sweep_rate_set(sensor.config, std::nextafter(sensor.metadata.max_sweep_rate, 1.0e6F));
    EXPECT_FALSE(sensor.prepare());
}

TEST(timing, the_sensor_keeps_the_frame_rate)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_config_frame_rate_set(sensor.config, 20.0F);
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    const uint64_t first_us = now_us();
    for (int i = 1; i <= 100; ++i)
    {
        EXPECT_FALSE(sensor.measure().result.frame_delayed);
        EXPECT_EQ(now_us() - first_us, static_cast<uint64_t>(i) * 50000U);
    }
}

TEST(timing, the_frame_schedule_continues_after_a_prepare)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_config_frame_rate_set(sensor.config, 20.0F);
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    const uint64_t first_us = now_us();
    advance_us(7000);
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    EXPECT_EQ(now_us() - first_us, 50000U);
}

TEST(timing, a_late_read_delays_the_frame)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_config_frame_rate_set(sensor.config, 20.0F);
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    ASSERT_TRUE(zet_sensor_measure(sensor.sensor));
    ASSERT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000));
    advance_us(60000);
    ASSERT_TRUE(zet_sensor_read(sensor.sensor, sensor.buffer.data(), sensor.buffer_size()));
    zet_processing_result_t result = {};
    zet_processing_execute(sensor.processing, sensor.buffer.data(), &result);
    EXPECT_TRUE(result.frame_delayed);
    // The next frame is already late and starts immediately; the one after it is on time again.
    EXPECT_TRUE(sensor.measure().result.frame_delayed);
    EXPECT_FALSE(sensor.measure().result.frame_delayed);
}

TEST(timing, the_frame_after_a_very_late_one_is_on_time_again)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_config_frame_rate_set(sensor.config, 20.0F);
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    const uint64_t first_us = now_us();
    advance_us(1020000);
    EXPECT_TRUE(sensor.measure().result.frame_delayed);
    EXPECT_FALSE(sensor.measure().result.frame_delayed);
    EXPECT_EQ(now_us() - first_us, 21U * 50000U);
}

/** The lines that the sensor library logs about two frames at 20 Hz, with this time between them. */
std::string log_of_a_pause(uint64_t pause_us, bool double_buffering)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_config_frame_rate_set(sensor.config, 20.0F);
    zet_config_double_buffering_set(sensor.config, double_buffering);
    EXPECT_TRUE(sensor.prepare());
    sensor.measure();
    simulation::clear_log();
    advance_us(pause_us);
    sensor.measure();
    return simulation::log();
}

TEST(timing, logs_how_many_frames_a_late_one_leaves_out)
{
    // The first frame ends 0.4 ms after it was due.
    EXPECT_EQ(log_of_a_pause(49000, false), "");
    EXPECT_EQ(log_of_a_pause(99000, false), "") << "late, but before the next one is due";
    EXPECT_EQ(log_of_a_pause(101000, false), "k330: sensor 1: frame 1 is late, 1 frames are left out\n");
    EXPECT_EQ(log_of_a_pause(1020000, false), "k330: sensor 1: frame 1 is late, 19 frames are left out\n");
    EXPECT_EQ(log_of_a_pause(99000, true), "");
    EXPECT_EQ(log_of_a_pause(101000, true), "k330: sensor 1: frame 1 is late, 1 frames are left out\n");
    EXPECT_EQ(log_of_a_pause(1020000, true), "k330: sensor 1: frame 1 is late, 19 frames are left out\n");
}

TEST(timing, a_frame_without_a_frame_rate_is_never_delayed)
{
    const simulation simulation;
    simulated_sensor sensor;
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    advance_us(10000000);
    EXPECT_FALSE(sensor.measure().result.frame_delayed);
}

TEST(timing, double_buffering_allows_one_period_of_delay)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_config_frame_rate_set(sensor.config, 20.0F);
    zet_config_double_buffering_set(sensor.config, true);
    ASSERT_TRUE(sensor.prepare());
    sensor.measure();
    advance_us(90000);
    const uint64_t late_us = now_us();
    EXPECT_FALSE(sensor.measure().result.frame_delayed);
    // It was measured on time and was waiting.
    EXPECT_EQ(now_us(), late_us);
    advance_us(150000);
    EXPECT_TRUE(sensor.measure().result.frame_delayed);
}

TEST(timing, double_buffering_measures_while_a_frame_waits)
{
    zet_simulator_scene_t scene = scene_with_target(0.5F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_double_buffering_set(sensor.config, true);
    ASSERT_TRUE(sensor.prepare());
    ASSERT_TRUE(zet_sensor_measure(sensor.sensor));
    ASSERT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000));
    ASSERT_TRUE(zet_sensor_measure(sensor.sensor));
    EXPECT_TRUE(zet_sensor_read(sensor.sensor, sensor.buffer.data(), sensor.buffer_size()));
    EXPECT_FALSE(zet_sensor_read(sensor.sensor, sensor.buffer.data(), sensor.buffer_size()));
    ASSERT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000));
    EXPECT_TRUE(zet_sensor_read(sensor.sensor, sensor.buffer.data(), sensor.buffer_size()));
}

TEST(timing, continuous_sweep_mode_spaces_sweeps_evenly_across_frames)
{
    constexpr uint16_t sweeps = 8;
    zet_simulator_scene_t scene = scene_with_target(1.0F, 0.5F);
    // 40 turns a second: 0.1 turn from sweep to sweep.
    scene.targets[0].velocity_m_s = 0.1F;
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_subsweep_start_point_set(sensor.config, 400, 0);
    zet_config_subsweep_num_points_set(sensor.config, 1, 0);
    zet_config_sweeps_per_frame_set(sensor.config, sweeps);
    zet_config_frame_rate_set(sensor.config, 50.0F);
    zet_config_sweep_rate_set(sensor.config, 400.0F);
    zet_config_continuous_sweep_mode_set(sensor.config, true);
    ASSERT_TRUE(sensor.prepare()) << simulation::log();
    std::vector<std::complex<float>> values;
    for (int i = 0; i < 4; ++i)
    {
        const frame measured = sensor.measure();
        EXPECT_FALSE(measured.result.frame_delayed);
        values.insert(values.end(), measured.samples.begin(), measured.samples.end());
    }
    for (size_t i = 1; i < values.size(); ++i)
    {
        EXPECT_NEAR(turns_between(values[i - 1], values[i]), 0.1, 0.02) << i;
    }
}

TEST(timing, continuous_sweep_mode_has_no_seam_if_the_sweep_rate_is_a_little_higher)
{
    constexpr uint16_t sweeps = 1000;
    zet_simulator_scene_t scene = scene_with_target(0.75F, 0.5F);
    // 100 turns a second: 0.1 turn from sweep to sweep; at 1 metre when the second frame starts.
    scene.targets[0].velocity_m_s = 0.25F;
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_subsweep_start_point_set(sensor.config, 400, 0);
    zet_config_subsweep_num_points_set(sensor.config, 1, 0);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    zet_config_sweeps_per_frame_set(sensor.config, sweeps);
    zet_config_frame_rate_set(sensor.config, 1.0F);
    zet_config_sweep_rate_set(sensor.config, 1000.9F);
    zet_config_continuous_sweep_mode_set(sensor.config, true);
    ASSERT_TRUE(sensor.prepare()) << simulation::log();
    std::vector<std::complex<float>> values = sensor.measure().samples;
    const frame following = sensor.measure();
    values.insert(values.end(), following.samples.begin(), following.samples.end());
    for (size_t i = sweeps - 20; i < sweeps + 20; ++i)
    {
        EXPECT_NEAR(turns_between(values[i - 1], values[i]), 0.1, 0.005) << i;
    }
}

TEST(timing, an_interrupt_is_raised_once_and_not_early)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_config_sweeps_per_frame_set(sensor.config, 11);
    zet_config_sweep_rate_set(sensor.config, 100.0F);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_FALSE(zet_hal_integration_wait_for_sensor_interrupt(1, 10));
    ASSERT_TRUE(zet_sensor_measure(sensor.sensor));
    uint64_t start_us = now_us();
    EXPECT_FALSE(zet_hal_integration_wait_for_sensor_interrupt(1, 50));
    EXPECT_EQ(now_us() - start_us, 50000U);
    start_us = now_us();
    EXPECT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, 500));
    EXPECT_NEAR(static_cast<double>(now_us() - start_us), 50394.0, 2.0);
    EXPECT_FALSE(zet_hal_integration_wait_for_sensor_interrupt(1, 500));
}

TEST(timing, sensors_of_a_group_measure_at_the_same_time)
{
    const simulation simulation(2);
    simulated_sensor first(1);
    simulated_sensor second(2);
    for (simulated_sensor *sensor : {&first, &second})
    {
        zet_config_sweeps_per_frame_set(sensor->config, 11);
        zet_config_sweep_rate_set(sensor->config, 100.0F);
        ASSERT_TRUE(sensor->prepare());
    }
    ASSERT_TRUE(zet_sensor_measure(first.sensor));
    ASSERT_TRUE(zet_sensor_measure(second.sensor));
    ASSERT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000));
    const uint64_t first_us = now_us();
    ASSERT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(2, 1000));
    EXPECT_EQ(now_us(), first_us);
}

/** The deadlines passed to the late clock. */
std::vector<uint64_t> late_clock_deadlines;

/** Sleeps like on a busy machine: too long, by a different time in every call. */
void sleep_too_long(uint64_t time_us)
{
    late_clock_deadlines.push_back(time_us);
    const uint64_t lateness_us = 7919 * late_clock_deadlines.size() % 30000;
    zet_simulator_virtual_clock().sleep_until_us(time_us + lateness_us);
}

constexpr uint64_t frame_period_us = 50000;

/** Frames of a moving scene at 20 Hz, without delays. */
std::vector<std::vector<std::complex<float>>> paced_frames(zet_simulator_clock_t clock, size_t count)
{
    const simulation simulation(1, nullptr, 3, clock);
    simulated_sensor sensor;
    zet_config_sweeps_per_frame_set(sensor.config, 4);
    zet_config_frame_rate_set(sensor.config, 20.0F);
    zet_config_subsweep_start_point_set(sensor.config, 400, 0);
    EXPECT_TRUE(sensor.prepare());
    late_clock_deadlines.clear();
    std::vector<std::vector<std::complex<float>>> frames;
    for (size_t i = 0; i < count; ++i)
    {
        const frame measured = sensor.measure();
        EXPECT_FALSE(measured.result.frame_delayed) << i;
        frames.push_back(measured.samples);
    }
    return frames;
}

TEST(timing, a_clock_that_wakes_late_gives_the_same_frames_at_the_same_times)
{
    constexpr size_t count = 101;
    const zet_simulator_clock_t late_clock = {now_us, sleep_too_long};
    const auto late = paced_frames(late_clock, count);
    ASSERT_EQ(late_clock_deadlines.size(), count);
    for (size_t i = 1; i < count; ++i)
    {
        EXPECT_EQ(late_clock_deadlines[i] - late_clock_deadlines[0], i * frame_period_us);
    }
    EXPECT_EQ(late, paced_frames(zet_simulator_virtual_clock(), count));
}

TEST(timing, a_frame_that_is_read_after_the_next_is_due_is_delayed)
{
    const simulation simulation;
    simulated_sensor sensor;
    zet_config_frame_rate_set(sensor.config, 20.0F);
    ASSERT_TRUE(sensor.prepare());
    const uint64_t first_due_us = now_us();
    const auto is_delayed = [&](uint64_t read_us) {
        EXPECT_TRUE(zet_sensor_measure(sensor.sensor));
        EXPECT_TRUE(zet_hal_integration_wait_for_sensor_interrupt(1, 1000));
        zet_simulator_virtual_clock().sleep_until_us(read_us);
        EXPECT_TRUE(zet_sensor_read(sensor.sensor, sensor.buffer.data(), sensor.buffer_size()));
        zet_processing_result_t result = {};
        zet_processing_execute(sensor.processing, sensor.buffer.data(), &result);
        return result.frame_delayed;
    };
    EXPECT_FALSE(is_delayed(first_due_us + frame_period_us));
    EXPECT_TRUE(is_delayed(first_due_us + 2 * frame_period_us + 1));
}

} // namespace
