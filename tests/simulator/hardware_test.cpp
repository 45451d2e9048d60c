/** @file
 * What is not ideal in a sensor, compared with its laws.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "scene_text.h"
#include "simulated_sensor.h"
#include "zet_config_subsweep.h"
#include "zet_hal_integration_k330.h"
#include "zet_simulator_truth.h"

namespace
{

using testing::HasSubstr;

constexpr double pi = 3.14159265358979323846;
constexpr double meters_per_step = 0.0025;

/** A scene for one kind of disturbance: hardware that is ideal otherwise. */
zet_simulator_scene_t scene_with(const std::function<void(zet_simulator_hardware_t &)> &disturb,
                                 float distance_m = 0.0F, float strength_m2 = 1.0F)
{
    zet_simulator_scene_t scene =
        distance_m > 0.0F ? scene_with_target(distance_m, strength_m2) : empty_scene();
    scene.hardware_count = 1;
    disturb(scene.hardware[0]);
    return scene;
}

/** Configures one point at a distance, without distortions of the receiver. */
void set_point(const simulated_sensor &sensor, double distance_m, uint16_t hwaas)
{
    const auto start = static_cast<int32_t>(std::lround(distance_m / meters_per_step));
    zet_config_subsweep_start_point_set(sensor.config, start, 0);
    zet_config_subsweep_num_points_set(sensor.config, 1, 0);
    zet_config_subsweep_step_length_set(sensor.config, 1, 0);
    zet_config_subsweep_hwaas_set(sensor.config, hwaas, 0);
    zet_config_subsweep_iq_imbalance_compensation_set(sensor.config, true, 0);
    zet_config_subsweep_phase_enhancement_set(sensor.config, true, 0);
}

/** Samples at the distance of the target of a scene, frame by frame. */
std::vector<std::complex<double>> samples_of(const zet_simulator_scene_t &scene, double distance_m,
                                             uint16_t hwaas, int count, float frame_rate = 0.0F)
{
    const simulation simulation(2, &scene);
    simulated_sensor sensor;
    set_point(sensor, distance_m, hwaas);
    zet_config_frame_rate_set(sensor.config, frame_rate);
    EXPECT_TRUE(sensor.prepare());
    std::vector<std::complex<double>> samples;
    samples.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
    {
        samples.emplace_back(sensor.measure().samples[0]);
    }
    return samples;
}

/** Mean of samples. */
std::complex<double> mean_of(const std::vector<std::complex<double>> &samples)
{
    return std::accumulate(samples.begin(), samples.end(), std::complex<double>()) /
           static_cast<double>(samples.size());
}

/** Mean square of the differences from the mean: what remains when still things are subtracted. */
double remainder_of(const std::vector<std::complex<double>> &samples)
{
    const std::complex<double> mean = mean_of(samples);
    return std::accumulate(samples.begin(), samples.end(), 0.0,
                           [&](double sum, const auto &each) { return sum + std::norm(each - mean); }) /
           static_cast<double>(samples.size());
}

/** Standard deviation of the phases from that of the mean, in radians. */
double phase_deviation(const std::vector<std::complex<double>> &samples)
{
    const std::complex<double> mean = mean_of(samples);
    double squares = 0.0;
    for (const auto &each : samples)
    {
        squares += std::pow(std::arg(each / mean), 2.0);
    }
    return std::sqrt(squares / static_cast<double>(samples.size()));
}

TEST(hardware, phase_noise_grows_with_the_distance_and_falls_with_the_pulses)
{
    // Echoes of 16000, whose phase the receiver's noise of 150 / sqrt(n) turns by less than 0.01 / sqrt(n).
    const auto measured = [](float distance_m, uint16_t hwaas) {
        const zet_simulator_scene_t scene =
            scene_with([](auto &hardware) { hardware.phase_noise_rad_per_m = 0.2F; }, distance_m,
                       4.0F * std::pow(distance_m, 4.0F));
        return phase_deviation(samples_of(scene, static_cast<double>(distance_m), hwaas, 4000));
    };
    // The deviation of a deviation from n numbers is 1 / sqrt(2 n), 1.1 %.
    EXPECT_NEAR(measured(0.25F, 1), 0.2 * 0.25, 0.05 * 0.2 * 0.25);
    EXPECT_NEAR(measured(1.0F, 1), 0.2, 0.05 * 0.2);
    EXPECT_NEAR(measured(2.0F, 1), 0.4, 0.05 * 0.4);
    EXPECT_NEAR(measured(2.0F, 16), 0.1, 0.05 * 0.1);
}

TEST(hardware, phase_noise_is_independent_from_sweep_to_sweep)
{
    const zet_simulator_scene_t scene =
        scene_with([](auto &hardware) { hardware.phase_noise_rad_per_m = 0.2F; }, 1.0F, 4.0F);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_point(sensor, 1.0, 4);
    zet_config_sweeps_per_frame_set(sensor.config, 2000);
    ASSERT_TRUE(sensor.prepare());
    const frame measured = sensor.measure();
    const std::vector<std::complex<double>> samples(measured.samples.begin(), measured.samples.end());
    const std::complex<double> mean = mean_of(samples);
    double product = 0.0;
    for (size_t i = 1; i < samples.size(); ++i)
    {
        product += std::arg(samples[i] / mean) * std::arg(samples[i - 1] / mean);
    }
    // The correlation of independent numbers of variance v has the deviation v / sqrt(n).
    EXPECT_NEAR(product / 2000.0, 0.0, 4.0 * 0.01 / std::sqrt(2000.0));
    EXPECT_NEAR(phase_deviation(samples), 0.1, 0.01);
}

TEST(hardware, the_leakage_has_no_phase_noise)
{
    const zet_simulator_scene_t scene = scene_with([](auto &hardware) {
        hardware.phase_noise_rad_per_m = 1.0F;
        hardware.phase_drift_rad_per_m = 1.0F;
    });
    EXPECT_LT(phase_deviation(samples_of(scene, 0.0, 400, 200)), 0.001);
}

TEST(hardware, drift_is_slow_and_has_the_same_power_in_each_octave)
{
    const zet_simulator_scene_t scene =
        scene_with([](auto &hardware) { hardware.phase_drift_rad_per_m = 0.02F; }, 1.0F, 4.0F);
    const auto samples = samples_of(scene, 1.0, 400, 20000, 40.0F);
    // Ten octaves, each with the power 0.02^2, over 500 s, eight times the longest period.
    EXPECT_NEAR(phase_deviation(samples), 0.02 * std::sqrt(10.0), 0.1 * 0.02 * std::sqrt(10.0));
    // From frame to frame, 25 ms, the sine of the frequency f and power s^2 differs by 2 s |sin(pi f 25 ms)|,
    // where f is between 2^k / 64 and 2^(k + 1) / 64 Hz, for k from 0 to 9.
    double least = 0.0;
    double most = 0.0;
    for (int octave = 0; octave < 10; ++octave)
    {
        const double lowest_hz = std::pow(2.0, octave) / 64.0;
        least += std::pow(2.0 * 0.02 * std::sin(pi * lowest_hz * 0.025), 2.0);
        most += std::pow(2.0 * 0.02 * std::sin(pi * 2.0 * lowest_hz * 0.025), 2.0);
    }
    double squares = 0.0;
    for (size_t i = 1; i < samples.size(); ++i)
    {
        squares +=
            std::pow(std::arg(samples[i] / samples[i - 1]), 2.0) / static_cast<double>(samples.size() - 1);
    }
    EXPECT_GT(squares, least);
    EXPECT_LT(squares, most);
}

TEST(hardware, still_things_cancel_to_the_documented_depth_and_not_deeper)
{
    // Echoes of 16000 at 1 m and at 2 m, 400 pulses a sample, for 64 s.
    const zet_simulator_hardware_t usual = zet_simulator_default_hardware();
    for (const float distance_m : {1.0F, 2.0F})
    {
        zet_simulator_scene_t scene = scene_with_target(distance_m, 4.0F * std::pow(distance_m, 4.0F));
        const auto ideal = samples_of(scene, static_cast<double>(distance_m), 400, 1280, 20.0F);
        const double receiver = 2.0 * (150.0 * 150.0 + 10.0 * 10.0) / 400.0 + 2.0 / 12.0;
        EXPECT_NEAR(remainder_of(ideal), receiver, 0.1 * receiver);
        scene.hardware_count = 1;
        scene.hardware[0] = usual;
        const auto noise = static_cast<double>(usual.phase_noise_rad_per_m);
        const auto drift = static_cast<double>(usual.phase_drift_rad_per_m);
        const double depth =
            (noise * noise / 400.0 + 10.0 * drift * drift) * std::pow(static_cast<double>(distance_m), 2.0);
        const auto real = samples_of(scene, static_cast<double>(distance_m), 400, 1280, 20.0F);
        const double level_db = 10.0 * std::log10((remainder_of(real) - receiver) / std::norm(mean_of(real)));
        EXPECT_NEAR(level_db, 10.0 * std::log10(depth), 1.0) << distance_m;
    }
}

/** Samples from 0.25 m in steps of one point, with little noise. */
std::vector<std::complex<double>> range_of(const zet_simulator_scene_t &scene, int32_t start, uint16_t count,
                                           zet_config_profile_t profile)
{
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_point(sensor, 0.0, 500);
    zet_config_subsweep_start_point_set(sensor.config, start, 0);
    zet_config_subsweep_num_points_set(sensor.config, count, 0);
    zet_config_subsweep_profile_set(sensor.config, profile, 0);
    EXPECT_TRUE(sensor.prepare());
    const frame measured = sensor.measure();
    return {measured.samples.begin(), measured.samples.end()};
}

TEST(hardware, a_pulse_has_two_sidelobes_with_its_phase)
{
    // Profile 1: responses 22.6 base steps wide, sidelobes 45.3 base steps away.
    const auto lobes = [](std::complex<double> peak, std::complex<double> lobe) {
        EXPECT_NEAR(std::abs(lobe) / std::abs(peak), 0.1, 0.005);
        EXPECT_NEAR(std::arg(lobe / peak), 0.0, 0.05);
    };
    const zet_simulator_scene_t scene =
        scene_with([](auto &hardware) { hardware.sidelobe_level = 0.1F; }, 2.0F, 1000.0F);
    const auto samples = range_of(scene, 700, 200, ZET_CONFIG_PROFILE_1);
    lobes(samples[100], samples[55]);
    lobes(samples[100], samples[145]);
    const auto ideal = range_of(scene_with_target(2.0F, 1000.0F), 700, 200, ZET_CONFIG_PROFILE_1);
    EXPECT_LT(std::abs(ideal[55]), 50.0);
}

TEST(hardware, the_leakage_rings_with_a_decaying_amplitude)
{
    const zet_simulator_scene_t scene = scene_with([](auto &hardware) { hardware.ringing_level = 0.1F; });
    const auto samples = range_of(scene, 0, 300, ZET_CONFIG_PROFILE_1);
    const auto ideal = range_of(empty_scene(), 0, 300, ZET_CONFIG_PROFILE_1);
    const double leakage = std::abs(ideal[0]);
    EXPECT_NEAR(std::abs(samples[0]), leakage, 30.0);
    // The response of profile 1 is 22.6 base steps wide.
    for (const size_t steps : {60U, 100U, 150U, 200U})
    {
        const double expected = 0.1 * leakage * std::exp(-pi * (static_cast<double>(steps) - 22.6) / 100.0);
        EXPECT_NEAR(samples[steps].real(), expected, 30.0) << steps;
        EXPECT_NEAR(ideal[steps].real(), 0.0, 30.0) << steps;
    }
}

TEST(hardware, warmth_delays_and_weakens_echoes_until_the_next_calibration)
{
    zet_simulator_scene_t scene = scene_with(
        [](auto &hardware) {
            hardware.delay_drift_mm_per_k = 0.02F;
            hardware.gain_drift_per_k = 0.005F;
        },
        1.0F, 4.0F);
    scene.temperature_count = 1;
    scene.temperatures[0].celsius = 20.0F;
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_point(sensor, 1.0, 500);
    ASSERT_TRUE(sensor.prepare());
    const std::complex<float> cold = sensor.measure().samples[0];
    scene.temperatures[0].celsius = 30.0F;
    const std::complex<float> warm = sensor.measure().samples[0];
    // 0.2 mm, of 2.5 mm for a turn, less what the carrier's change of one or two 1/8192 in 400 turns adds.
    const double carrier_turns = 400.0 / 8192.0;
    const double turns = turns_between(cold, warm);
    const double from_carrier = turns - 0.08;
    EXPECT_NEAR(from_carrier / carrier_turns, std::round(from_carrier / carrier_turns), 0.1);
    EXPECT_NEAR(static_cast<double>(std::abs(warm) / std::abs(cold)), 0.95, 0.005);
    ASSERT_GT(sensor.calibrate(), 0);
    ASSERT_TRUE(sensor.prepare());
    const std::complex<float> calibrated = sensor.measure().samples[0];
    EXPECT_NEAR(turns_between(cold, calibrated), 0.0, 0.01);
    EXPECT_NEAR(static_cast<double>(std::abs(calibrated) / std::abs(cold)), 1.0, 0.005);
}

TEST(hardware, bursts_take_their_share_of_the_time_and_are_heard_by_the_assessment)
{
    const zet_simulator_scene_t scene = scene_with([](auto &hardware) {
        hardware.bursts_per_s = 20.0F;
        hardware.burst_s = 0.01F;
        hardware.burst_strength = 15.0F;
    });
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    set_point(sensor, 5.0, 8);
    zet_config_subsweep_num_points_set(sensor.config, 100, 0);
    sensor.enable_cca();
    ASSERT_TRUE(sensor.prepare());
    int disturbed = 0;
    int heard = 0;
    for (int i = 0; i < 4000; ++i)
    {
        const frame measured = sensor.measure();
        // Sixteen times the power, so four times the deviation of 53.
        disturbed += deviation(measured.samples) > 106.0 ? 1 : 0;
        heard += measured.cca_value > 7.0F ? 1 : 0;
    }
    // A share of 0.2 of slots that last several frames.
    EXPECT_NEAR(disturbed, 800, 160);
    EXPECT_NEAR(heard, 800, 160);
}

zet_simulator_truth_t last_truth;

/** The interference in the truth, and the number of disturbed sweeps, of frames with two kinds of sweeps. */
TEST(hardware, bursts_begin_at_any_time_and_the_truth_has_their_mean)
{
    const zet_simulator_scene_t scene = scene_with([](auto &hardware) {
        hardware.bursts_per_s = 20.0F;
        hardware.burst_s = 0.002F;
        hardware.burst_strength = 400.0F;
    });
    const auto keep = [](const zet_simulator_frame_t *frame) { zet_simulator_truth_of(frame, &last_truth); };
    const simulation simulation(2, &scene, 1, zet_simulator_virtual_clock(), nullptr, {nullptr, keep});
    simulated_sensor sensor;
    constexpr uint16_t sweeps = 40;
    constexpr size_t points = 40;
    set_point(sensor, 5.0, 8);
    zet_config_subsweep_num_points_set(sensor.config, points, 0);
    zet_config_sweeps_per_frame_set(sensor.config, sweeps);
    // Frames begin at multiples of the duration of a burst.
    zet_config_frame_rate_set(sensor.config, 50.0F);
    ASSERT_TRUE(sensor.prepare());
    int partly = 0;
    for (int i = 0; i < 1000; ++i)
    {
        const frame measured = sensor.measure();
        const double interference = last_truth.interference;
        int disturbed = 0;
        for (size_t sweep = 0; sweep < sweeps; ++sweep)
        {
            const auto first = measured.samples.begin() + static_cast<ptrdiff_t>(sweep * points);
            disturbed += deviation({first, first + points}) > 300.0 ? 1 : 0;
        }
        partly += disturbed > 0 && disturbed < sweeps ? 1 : 0;
        EXPECT_NEAR(interference, 400.0 * disturbed / sweeps, 1.0e-3) << i;
    }
    EXPECT_GT(partly, 10);
}

TEST(hardware, all_sensors_of_a_board_hear_the_same_bursts)
{
    const zet_simulator_scene_t scene = scene_with([](auto &hardware) {
        hardware.bursts_per_s = 20.0F;
        hardware.burst_s = 0.01F;
        hardware.burst_strength = 100.0F;
    });
    const auto keep = [](const zet_simulator_frame_t *frame) { zet_simulator_truth_of(frame, &last_truth); };
    const simulation simulation(2, &scene, 1, zet_simulator_virtual_clock(), nullptr, {nullptr, keep});
    simulated_sensor sensors[] = {simulated_sensor(1), simulated_sensor(2)};
    for (simulated_sensor &each : sensors)
    {
        set_point(each, 5.0, 8);
        ASSERT_TRUE(each.prepare());
    }
    int disturbed = 0;
    for (int i = 0; i < 500; ++i)
    {
        ASSERT_TRUE(zet_sensor_measure(sensors[0].sensor));
        ASSERT_TRUE(zet_sensor_measure(sensors[1].sensor));
        double heard[2] = {};
        for (size_t each = 0; each < 2; ++each)
        {
            ASSERT_TRUE(
                zet_hal_integration_wait_for_sensor_interrupt(static_cast<zet_sensor_id_t>(each + 1), 1000));
            ASSERT_TRUE(zet_sensor_read(sensors[each].sensor, sensors[each].buffer.data(),
                                        sensors[each].buffer_size()));
            heard[each] = last_truth.interference;
        }
        EXPECT_EQ(heard[0], heard[1]) << i;
        disturbed += heard[0] > 0.0 ? 1 : 0;
    }
    EXPECT_GT(disturbed, 20);
}

TEST(hardware, without_effects_is_ideal)
{
    const zet_simulator_scene_t none = scene_with([](auto &) {}, 1.0F);
    EXPECT_EQ(samples_of(none, 1.0, 8, 20), samples_of(scene_with_target(1.0F, 1.0F), 1.0, 8, 20));
    zet_simulator_scene_t other = scene_with_target(1.0F, 1.0F);
    other.hardware_count = 1;
    other.hardware[0] = zet_simulator_default_hardware();
    other.hardware[0].sensor_id = 2;
    EXPECT_EQ(samples_of(other, 1.0, 8, 20), samples_of(none, 1.0, 8, 20));
    other.hardware[0].sensor_id = 1;
    EXPECT_NE(samples_of(other, 1.0, 8, 20), samples_of(none, 1.0, 8, 20));
}

TEST(hardware, has_assumed_values_unless_a_scene_file_gives_others)
{
    const zet_simulator_hardware_t usual = zet_simulator_default_hardware();
    const zet_simulator_scene_t plain = scene_of("{}");
    ASSERT_EQ(plain.hardware_count, 1);
    EXPECT_EQ(plain.hardware[0].phase_noise_rad_per_m, usual.phase_noise_rad_per_m);
    EXPECT_EQ(zet_simulator_default_scene()->hardware_count, 1);
    EXPECT_EQ(scene_of(R"({"hardware": "ideal"})").hardware_count, 0);
    EXPECT_EQ(scene_of(R"({"hardware": []})").hardware_count, 0);
    const zet_simulator_scene_t partly = scene_of(R"({"hardware": [{"sensor": 2, "ringing_level": 0}]})");
    ASSERT_EQ(partly.hardware_count, 1);
    EXPECT_EQ(partly.hardware[0].sensor_id, 2U);
    EXPECT_EQ(partly.hardware[0].ringing_level, 0.0F);
    EXPECT_EQ(partly.hardware[0].sidelobe_level, usual.sidelobe_level);
}

TEST(hardware, is_read_as_it_was_written)
{
    for (const char *text :
         {R"({"hardware": "ideal"})", R"({"hardware": [{"phase_noise_rad_per_m": 0}]})", "{}"})
    {
        const zet_simulator_scene_t scene = scene_of(text);
        const zet_simulator_scene_t again = scene_of(text_of(scene));
        EXPECT_EQ(text_of(again), text_of(scene));
        EXPECT_EQ(again.hardware_count, scene.hardware_count);
        EXPECT_EQ(again.hardware[0].phase_noise_rad_per_m, scene.hardware[0].phase_noise_rad_per_m);
    }
    EXPECT_THAT(text_of(empty_scene()), HasSubstr(R"("hardware":"ideal")"));
}

TEST(hardware, that_is_wrong_is_refused)
{
    EXPECT_EQ(reason_of(R"({"hardware": "perfect"})"),
              "hardware is \"perfect\", but must be an array, [{ ... }], or \"ideal\"");
    EXPECT_EQ(reason_of(R"({"hardware": [{"sidelobe_level": 2}]})"),
              "hardware[0].sidelobe_level is 2, but must be a number from 0 to 0.5");
    EXPECT_EQ(reason_of(R"({"hardware": [{"bursts_per_s": 10, "burst_s": 0}]})"),
              "hardware[0].burst_s is 0, but must be more than 0 and at most 1 / bursts_per_s, which is 0.1");
    EXPECT_EQ(
        reason_of(R"({"hardware": [{"bursts_per_s": 10, "burst_s": 0.2}]})"),
        "hardware[0].burst_s is 0.2, but must be more than 0 and at most 1 / bursts_per_s, which is 0.1");
}

} // namespace
