/** @file
 * Compares the signal with the physical model, within tolerances.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>

#include "simulated_sensor.h"
#include "zet_config_internal.h"
#include "zet_config_subsweep.h"

namespace
{

constexpr float meters_per_step = 0.0025F;

/** Sets the points of the first sub-sweep. */
void set_range(const simulated_sensor &sensor, int32_t start_point, uint16_t num_points, uint16_t step_length)
{
    zet_config_subsweep_start_point_set(sensor.config, start_point, 0);
    zet_config_subsweep_num_points_set(sensor.config, num_points, 0);
    zet_config_subsweep_step_length_set(sensor.config, step_length, 0);
}

void set_profile(const simulated_sensor &sensor, uint8_t profile)
{
    zet_config_subsweep_profile_set(sensor.config, static_cast<zet_config_profile_t>(profile), 0);
}

/** Removes all distortions of the receiver except its noise. */
void make_ideal(const simulated_sensor &sensor)
{
    zet_config_subsweep_phase_enhancement_set(sensor.config, true, 0);
    zet_config_subsweep_iq_imbalance_compensation_set(sensor.config, true, 0);
    zet_config_subtract_in_buffer_set(sensor.config, true);
}

/** The noise in an empty scene, from many frames. */
double noise_with(uint16_t hwaas, uint8_t gain, uint8_t profile)
{
    const zet_simulator_scene_t scene = empty_scene();
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_range(sensor, 2000, 10, 1);
    zet_config_subsweep_hwaas_set(sensor.config, hwaas, 0);
    zet_config_subsweep_receiver_gain_set(sensor.config, gain, 0);
    set_profile(sensor, profile);
    EXPECT_TRUE(sensor.prepare());
    std::vector<std::complex<float>> samples;
    for (int i = 0; i < 1000; ++i)
    {
        const frame measured = sensor.measure();
        samples.insert(samples.end(), measured.samples.begin(), measured.samples.end());
    }
    return deviation(samples);
}

/** Amplitude of the echo of a target, with very little noise. */
double amplitude_of(float distance_m, float strength_m2, uint8_t profile, uint8_t gain)
{
    const zet_simulator_scene_t scene = scene_with_target(distance_m, strength_m2);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_range(sensor, static_cast<int32_t>(distance_m / meters_per_step), 1, 1);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    zet_config_subsweep_receiver_gain_set(sensor.config, gain, 0);
    set_profile(sensor, profile);
    make_ideal(sensor);
    EXPECT_TRUE(sensor.prepare());
    return static_cast<double>(std::abs(sensor.measure().samples[0]));
}

/** Profiles and step lengths. */
class target_position : public testing::TestWithParam<std::tuple<int, int>>
{
};

/** Distance between the strongest point and the point of a target at 2 metres, in points. */
double position_error(int profile, int step_length, bool ideal)
{
    const float distance_m = 2.0F;
    const zet_simulator_scene_t scene = scene_with_target(distance_m, 30.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    const int32_t start_point = 500;
    set_range(sensor, start_point, static_cast<uint16_t>(600 / step_length),
              static_cast<uint16_t>(step_length));
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    set_profile(sensor, static_cast<uint8_t>(profile));
    if (ideal)
    {
        make_ideal(sensor);
    }
    EXPECT_TRUE(sensor.prepare());
    // The peak of the longest profile is flat. The mean of many frames prevents that noise decides.
    std::vector<std::complex<float>> mean(sensor.metadata.frame_data_length);
    for (int i = 0; i < 200; ++i)
    {
        const frame measured = sensor.measure();
        for (size_t point = 0; point < mean.size(); ++point)
        {
            mean[point] += measured.samples[point];
        }
    }
    const double expected = static_cast<double>(distance_m / meters_per_step - start_point) / step_length;
    return static_cast<double>(strongest(mean)) - expected;
}

TEST_P(target_position, is_within_one_point)
{
    const auto [profile, step_length] = GetParam();
    EXPECT_NEAR(position_error(profile, step_length, true), 0.0, 1.0);
}

TEST_P(target_position, is_almost_as_good_without_compensation)
{
    // The receiver's imbalance raises some phases by 1.5 percent, and the delay line's error turns the phase
    // along the distance. Together they move the peak of a pulse by up to 5 percent of its width.
    const auto [profile, step_length] = GetParam();
    const double widths_in_points[] = {22.6, 45.3, 79.2, 113.1, 181.0};
    const double tolerance = 0.05 * widths_in_points[profile - 1] / step_length;
    EXPECT_NEAR(position_error(profile, step_length, false), 0.0, std::max(1.0, tolerance));
}

INSTANTIATE_TEST_SUITE_P(profiles_and_steps, target_position,
                         testing::Combine(testing::Range(1, 6), testing::Range(1, 25)),
                         [](const auto &tested) {
                             return "profile_" + std::to_string(std::get<0>(tested.param)) + "_step_" +
                                    std::to_string(std::get<1>(tested.param));
                         });

TEST(signal, an_eighth_of_a_wavelength_changes_the_phase_by_a_quarter_turn)
{
    zet_simulator_scene_t scene = scene_with_target(1.0F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_range(sensor, 400, 1, 1);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    ASSERT_TRUE(sensor.prepare());
    const std::complex<float> before = sensor.measure().samples[0];
    scene.targets[0].distance_m += 0.005F / 8.0F;
    const std::complex<float> after = sensor.measure().samples[0];
    EXPECT_NEAR(turns_between(before, after), 0.25, 0.02 * 0.25);
}

TEST(signal, a_target_that_moves_away_increases_the_phase_at_any_distance)
{
    for (const float distance_m : {0.4F, 1.0003F, 3.3337F, 9.0F})
    {
        zet_simulator_scene_t scene = scene_with_target(distance_m, std::pow(distance_m, 4.0F));
        const simulation simulation(1, &scene);
        simulated_sensor sensor;
        set_range(sensor, static_cast<int32_t>(distance_m / meters_per_step), 1, 1);
        zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
        make_ideal(sensor);
        ASSERT_TRUE(sensor.prepare());
        const std::complex<float> before = sensor.measure().samples[0];
        scene.targets[0].distance_m += 0.1F * meters_per_step;
        const std::complex<float> after = sensor.measure().samples[0];
        EXPECT_NEAR(turns_between(before, after), 0.1, 0.004) << distance_m;
    }
}

TEST(signal, two_targets_are_separate_with_the_shortest_profile_and_merged_with_the_longest)
{
    zet_simulator_scene_t scene = scene_with_target(1.0F, 1.0F);
    scene.target_count = 2;
    scene.targets[1] = scene.targets[0];
    scene.targets[1].distance_m = 1.15F;
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_range(sensor, 300, 300, 1);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    make_ideal(sensor);
    const size_t near_point = 100;
    const size_t far_point = 160;
    const size_t between = 130;

    set_profile(sensor, 1);
    ASSERT_TRUE(sensor.prepare());
    const frame fine = sensor.measure();
    EXPECT_LT(std::abs(fine.samples[between]), 0.2F * std::abs(fine.samples[near_point]));
    EXPECT_LT(std::abs(fine.samples[between]), 0.2F * std::abs(fine.samples[far_point]));

    set_profile(sensor, 5);
    ASSERT_TRUE(sensor.prepare());
    const frame coarse = sensor.measure();
    EXPECT_GT(std::abs(coarse.samples[between]), 0.9F * std::abs(coarse.samples[near_point]));
    EXPECT_GT(std::abs(coarse.samples[between]), std::abs(coarse.samples[far_point]));
}

TEST(signal, amplitude_decreases_with_the_square_of_the_distance)
{
    const double near = amplitude_of(1.0F, 1.0F, 3, 16);
    EXPECT_NEAR(near / amplitude_of(2.0F, 1.0F, 3, 16), 4.0, 0.04);
    EXPECT_NEAR(near / amplitude_of(4.0F, 1.0F, 3, 16), 16.0, 0.8);
}

TEST(signal, amplitude_grows_with_the_root_of_the_radar_cross_section)
{
    EXPECT_NEAR(amplitude_of(2.0F, 4.0F, 3, 16) / amplitude_of(2.0F, 1.0F, 3, 16), 2.0, 0.02);
}

TEST(signal, a_step_of_the_receiver_gain_is_1_decibel)
{
    EXPECT_NEAR(amplitude_of(2.0F, 1.0F, 3, 20) / amplitude_of(2.0F, 1.0F, 3, 0), std::pow(10.0, 1.0), 0.1);
}

TEST(signal, a_longer_profile_is_stronger)
{
    double weaker = 0.0;
    for (uint8_t profile = 1; profile <= 5; ++profile)
    {
        const double amplitude = amplitude_of(2.0F, 1.0F, profile, 10);
        EXPECT_GT(amplitude, 1.3 * weaker) << static_cast<int>(profile);
        weaker = amplitude;
    }
}

TEST(signal, noise_halves_with_four_times_the_hwaas)
{
    const double noise_8 = noise_with(8, 16, 3);
    const double noise_32 = noise_with(32, 16, 3);
    const double noise_128 = noise_with(128, 16, 3);
    EXPECT_NEAR(noise_8 / noise_32, 2.0, 0.05 * 2.0);
    EXPECT_NEAR(noise_32 / noise_128, 2.0, 0.05 * 2.0);
}

TEST(signal, noise_grows_with_the_gain_and_the_window)
{
    EXPECT_NEAR(noise_with(8, 20, 3) / noise_with(8, 10, 3), std::sqrt(10.0), 0.05 * std::sqrt(10.0));
    EXPECT_NEAR(noise_with(8, 20, 5) / noise_with(8, 20, 2), 2.0, 0.05 * 2.0);
}

/** The distance in metres at which the echo of a target of 1 square metre is as weak as the noise. */
double range_with(uint16_t hwaas, uint8_t profile)
{
    // The echo decreases with the square of the distance.
    return std::sqrt(amplitude_of(1.5F, 1.0F, profile, 12) * 1.5 * 1.5 / noise_with(hwaas, 12, profile));
}

TEST(signal, range_grows_with_profile_and_hwaas)
{
    EXPECT_GT(range_with(32, 3), 1.3 * range_with(8, 3));
    EXPECT_GT(range_with(8, 5), 1.1 * range_with(8, 3));
    EXPECT_GT(range_with(8, 3), 1.1 * range_with(8, 1));
}

TEST(signal, without_transmitter_there_is_only_noise)
{
    const double noise = noise_with(8, 16, 3);
    const zet_simulator_scene_t scene = scene_with_target(0.4F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_range(sensor, 0, 300, 1);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_GT(deviation(sensor.measure().samples), 5000.0);

    zet_config_enable_tx_set(sensor.config, false);
    ASSERT_TRUE(sensor.prepare());
    const double silent = deviation(sensor.measure().samples);
    EXPECT_NEAR(silent, noise, 0.1 * noise);

    zet_config_enable_tx_set(sensor.config, true);
    zet_config_subsweep_enable_tx_set(sensor.config, false, 0);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(deviation(sensor.measure().samples), noise, 0.1 * noise);
}

TEST(signal, the_transmitter_can_be_off_in_one_sub_sweep)
{
    const zet_simulator_scene_t scene = scene_with_target(0.4F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_num_subsweeps_set(sensor.config, 2);
    zet_config_subsweep_enable_tx_set(sensor.config, false, 1);
    ASSERT_TRUE(sensor.prepare());
    const std::vector<std::complex<float>> samples = sensor.measure().samples;
    const std::vector<std::complex<float>> on(samples.begin(), samples.begin() + 160);
    const std::vector<std::complex<float>> off(samples.begin() + 160, samples.end());
    EXPECT_GT(deviation(on), 5000.0);
    EXPECT_LT(deviation(off), 200.0);
}

TEST(signal, contains_direct_leakage_near_zero_distance)
{
    const zet_simulator_scene_t scene = empty_scene();
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_range(sensor, -100, 400, 1);
    make_ideal(sensor);
    ASSERT_TRUE(sensor.prepare());
    const frame measured = sensor.measure();
    EXPECT_NEAR(static_cast<double>(strongest(measured.samples)), 100.0, 5.0);
    EXPECT_NEAR(std::abs(measured.samples[100]), 20000.0F, 400.0F);
    EXPECT_LT(std::abs(measured.samples[399]), 400.0F);
}

TEST(signal, loopback_measures_only_the_transmitter)
{
    const double noise = noise_with(8, 16, 3);
    zet_simulator_scene_t scene = scene_with_target(0.9F, 1.0F);
    scene.interferer_count = 1;
    scene.interferers[0].strength = 1000.0F;
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_range(sensor, 0, 2300, 1);
    zet_config_subsweep_enable_loopback_set(sensor.config, true, 0);
    make_ideal(sensor);
    ASSERT_TRUE(sensor.prepare());
    const frame measured = sensor.measure();
    EXPECT_NEAR(static_cast<double>(strongest(measured.samples)), 0.0, 5.0);
    EXPECT_NEAR(std::abs(measured.samples[0]), 16000.0F, 400.0F);
    const std::vector<std::complex<float>> at_target(measured.samples.begin() + 300, measured.samples.end());
    EXPECT_NEAR(deviation(at_target), noise, 0.1 * noise);
}

TEST(signal, saturates_at_16_bits_and_reports_it)
{
    const zet_simulator_scene_t scene = scene_with_target(0.4F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_subsweep_receiver_gain_set(sensor.config, 0, 0);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_FALSE(sensor.measure().result.data_saturated);

    zet_config_subsweep_receiver_gain_set(sensor.config, 23, 0);
    ASSERT_TRUE(sensor.prepare());
    const frame measured = sensor.measure();
    EXPECT_TRUE(measured.result.data_saturated);
    float largest = 0.0F;
    for (const std::complex<float> &sample : measured.samples)
    {
        largest = std::max({largest, std::abs(sample.real()), std::abs(sample.imag())});
    }
    EXPECT_GE(largest, 32767.0F);
    EXPECT_LE(largest, 32768.0F);
}

TEST(signal, interferers_increase_the_noise)
{
    zet_simulator_scene_t scene = empty_scene();
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_range(sensor, 1000, 1000, 1);
    ASSERT_TRUE(sensor.prepare());
    const double quiet = deviation(sensor.measure().samples);
    scene.interferer_count = 1;
    scene.interferers[0].strength = 99.0F;
    EXPECT_NEAR(deviation(sensor.measure().samples) / quiet, 10.0, 0.7);
}

TEST(signal, phase_enhancement_corrects_the_phase_along_the_distance)
{
    const zet_simulator_scene_t scene = scene_with_target(1.0F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_range(sensor, 384, 24, 1);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    make_ideal(sensor);
    ASSERT_TRUE(sensor.prepare());
    const frame coherent = sensor.measure();
    EXPECT_NEAR(turns_between(coherent.samples[0], coherent.samples[23]), 0.0, 0.005);

    zet_config_subsweep_phase_enhancement_set(sensor.config, false, 0);
    ASSERT_TRUE(sensor.prepare());
    const frame raw = sensor.measure();
    EXPECT_NEAR(turns_between(raw.samples[0], raw.samples[23]), -0.125 * 23.0 / 24.0, 0.005);
}

TEST(signal, imbalance_compensation_removes_the_imbalance)
{
    zet_simulator_scene_t scene = scene_with_target(1.0F, 1.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_range(sensor, 400, 1, 1);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    make_ideal(sensor);
    const auto roundness = [&] {
        scene.targets[0].distance_m = 1.0F;
        const std::complex<float> in_phase = sensor.measure().samples[0];
        scene.targets[0].distance_m = 1.0F + 0.25F * meters_per_step;
        const std::complex<float> in_quadrature = sensor.measure().samples[0];
        return std::abs(in_phase) / std::abs(in_quadrature);
    };
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(roundness(), 1.0F, 0.004F);
    zet_config_subsweep_iq_imbalance_compensation_set(sensor.config, false, 0);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(roundness(), 1.015F, 0.004F);
}

TEST(signal, subtraction_in_the_buffer_removes_the_offset)
{
    const zet_simulator_scene_t scene = empty_scene();
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_range(sensor, 1000, 2000, 1);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    const auto mean = [&] {
        std::complex<float> sum;
        for (const std::complex<float> &sample : sensor.measure().samples)
        {
            sum += sample;
        }
        return sum / 2000.0F;
    };
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(mean().real(), 5.0F, 0.8F);
    EXPECT_NEAR(mean().imag(), -5.0F, 0.8F);
    zet_config_subtract_in_buffer_set(sensor.config, true);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_NEAR(std::abs(mean()), 0.0F, 1.0F);
}

TEST(signal, a_target_beyond_the_unambiguous_range_appears_closer)
{
    // At 19.5 MHz an echo from beyond 7.687 metres arrives after the next pulse.
    const zet_simulator_scene_t scene = scene_with_target(7.68699F + 1.0F, 1000.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_range(sensor, 300, 200, 1);
    zet_config_subsweep_hwaas_set(sensor.config, 511, 0);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_LT(deviation(sensor.measure().samples), 100.0);
    zet_config_subsweep_prf_set(sensor.config, ZET_CONFIG_PRF_19_5_MHZ, 0);
    ASSERT_TRUE(sensor.prepare());
    const frame measured = sensor.measure();
    EXPECT_NEAR(static_cast<double>(strongest(measured.samples)), 100.0, 3.0);
    EXPECT_GT(std::abs(measured.samples[100]), 1000.0F);
}

TEST(signal, a_target_crosses_the_unambiguous_range_gradually)
{
    constexpr double range_steps = 3074.794;
    constexpr int32_t near_point = 20;
    constexpr int32_t far_point = 3050;
    // Profile 3: the response ends 137.46 base steps from the target.
    const auto bell = [](double offset) {
        const double inside = 1.0 - std::pow(offset / 137.46, 2.0);
        return inside > 0.0 ? std::pow(inside, 8.0) : 0.0;
    };
    zet_simulator_scene_t scene = scene_with_target(1.0F, 1000.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_num_subsweeps_set(sensor.config, 2);
    for (uint8_t i = 0; i < 2; ++i)
    {
        zet_config_subsweep_start_point_set(sensor.config, i == 0 ? near_point : far_point, i);
        zet_config_subsweep_num_points_set(sensor.config, 1, i);
        zet_config_subsweep_hwaas_set(sensor.config, 511, i);
        zet_config_subsweep_prf_set(sensor.config, ZET_CONFIG_PRF_19_5_MHZ, i);
        zet_config_subsweep_iq_imbalance_compensation_set(sensor.config, true, i);
    }
    zet_config_subtract_in_buffer_set(sensor.config, true);
    ASSERT_TRUE(sensor.prepare());
    scene.targets[0].sensor_id = 2;
    const std::vector<std::complex<float>> without_target = sensor.measure().samples;
    scene.targets[0].sensor_id = 0;
    for (double past = -200.0; past <= 200.0; past += 5.0)
    {
        const double distance_m = (range_steps + past) * static_cast<double>(meters_per_step);
        scene.targets[0].distance_m = static_cast<float>(distance_m);
        const double amplitude = 8000.0 * std::sqrt(1000.0) / (distance_m * distance_m);
        const frame measured = sensor.measure();
        const auto level = [&](size_t i) {
            return static_cast<double>(std::abs(measured.samples[i] - without_target[i]));
        };
        EXPECT_NEAR(level(0), amplitude * bell(near_point - past), 60.0) << past;
        EXPECT_NEAR(level(1), amplitude * bell(far_point - range_steps - past), 60.0) << past;
    }
}

TEST(signal, each_sensor_measures_its_own_targets)
{
    zet_simulator_scene_t scene = scene_with_target(0.5F, 1.0F);
    scene.targets[0].sensor_id = 2;
    const simulation simulation(2, &scene);
    simulated_sensor first(1);
    simulated_sensor second(2);
    ASSERT_TRUE(first.prepare());
    ASSERT_TRUE(second.prepare());
    EXPECT_LT(std::abs(first.measure().samples[120]), 500.0F);
    EXPECT_GT(std::abs(second.measure().samples[120]), 5000.0F);
}

} // namespace
