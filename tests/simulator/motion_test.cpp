/** @file
 * Moving targets: Doppler, breathing, reversing direction.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>

#include "scene/sight.h"
#include "simulated_sensor.h"
#include "zet_config_subsweep.h"

namespace
{

constexpr double wavelength_m = 0.005;

/** Distance of a target at a time, without lists of a scene. */
double distance_at(const zet_simulator_target_t &target, double time_s)
{
    static const zet_simulator_scene_t scene = {};
    return zet_simulator::scene_sight(scene, target, 1, time_s).distance_m;
}

/** Power of a series at a frequency, in turns from one value to the next. */
double power_at(const std::vector<std::complex<double>> &values, double turns)
{
    std::complex<double> sum;
    for (size_t i = 0; i < values.size(); ++i)
    {
        sum += values[i] * std::polar(1.0, -2.0 * M_PI * turns * static_cast<double>(i));
    }
    return std::norm(sum);
}

/** The bin of the discrete Fourier transform with the highest power. Bins of the upper half are negative. */
int strongest_bin(const std::vector<std::complex<double>> &values)
{
    const int count = static_cast<int>(values.size());
    int strongest = 0;
    double highest = 0.0;
    for (int bin = -count / 2; bin < count / 2; ++bin)
    {
        const double power = power_at(values, static_cast<double>(bin) / count);
        if (power > highest)
        {
            highest = power;
            strongest = bin;
        }
    }
    return strongest;
}

/** The values of all sweeps of a frame at one point. */
std::vector<std::complex<double>> sweeps_at(const frame &measured, size_t points, size_t point)
{
    std::vector<std::complex<double>> values;
    for (size_t i = point; i < measured.samples.size(); i += points)
    {
        values.emplace_back(measured.samples[i]);
    }
    return values;
}

/** Velocities, in bins. */
class doppler : public testing::TestWithParam<int>
{
};

TEST_P(doppler, peaks_in_the_right_bin)
{
    const int bin = GetParam();
    constexpr double sweep_rate = 1000.0;
    constexpr int sweeps = 64;
    const double velocity = bin * sweep_rate / sweeps * wavelength_m / 2.0;
    zet_simulator_scene_t scene = scene_with_target(1.0F, 0.5F);
    scene.targets[0].velocity_m_s = static_cast<float>(velocity);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_subsweep_start_point_set(sensor.config, 380, 0);
    zet_config_subsweep_num_points_set(sensor.config, 40, 0);
    zet_config_sweeps_per_frame_set(sensor.config, sweeps);
    zet_config_sweep_rate_set(sensor.config, static_cast<float>(sweep_rate));
    ASSERT_TRUE(sensor.prepare()) << simulation::log();
    EXPECT_EQ(strongest_bin(sweeps_at(sensor.measure(), 40, 20)), bin);
}

INSTANTIATE_TEST_SUITE_P(bins, doppler, testing::Values(-31, -17, -5, -1, 0, 1, 3, 12, 30),
                         [](const auto &tested) {
                             const std::string number = std::to_string(std::abs(tested.param));
                             return tested.param < 0 ? "minus_" + number : number;
                         });

TEST(motion, breathing_changes_the_phase_from_frame_to_frame)
{
    constexpr double breaths_per_s = 0.27;
    constexpr double frame_rate = 20.0;
    zet_simulator_scene_t scene = scene_with_target(1.0F, 0.5F);
    scene.targets[0].oscillation_amplitude_m = 0.004F;
    scene.targets[0].oscillation_frequency_hz = static_cast<float>(breaths_per_s);
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_subsweep_start_point_set(sensor.config, 400, 0);
    zet_config_subsweep_num_points_set(sensor.config, 1, 0);
    zet_config_frame_rate_set(sensor.config, static_cast<float>(frame_rate));
    ASSERT_TRUE(sensor.prepare());

    std::vector<std::complex<double>> displacement;
    std::complex<float> before;
    double turns = 0.0;
    double mean = 0.0;
    for (int i = 0; i < 1200; ++i)
    {
        const std::complex<float> now = sensor.measure().samples[0];
        turns += i > 0 ? turns_between(before, now) : 0.0;
        before = now;
        displacement.emplace_back(turns * wavelength_m / 2.0);
        mean += turns * wavelength_m / 2.0 / 1200.0;
    }
    double best = 0.0;
    double highest = 0.0;
    for (double frequency = 0.1; frequency < 1.0; frequency += 0.001)
    {
        std::vector<std::complex<double>> centred;
        for (const std::complex<double> &value : displacement)
        {
            centred.push_back(value - mean);
        }
        const double power = power_at(centred, frequency / frame_rate);
        if (power > highest)
        {
            highest = power;
            best = frequency;
        }
    }
    EXPECT_NEAR(best, breaths_per_s, 0.02 * breaths_per_s);
    EXPECT_NEAR(2.0 * std::sqrt(highest) / 1200.0, 0.004, 0.0002);
}

TEST(motion, a_target_continues_or_reverses_at_its_limits)
{
    zet_simulator_target_t target = {};
    target.distance_m = 2.0F;
    target.velocity_m_s = -0.5F;
    EXPECT_DOUBLE_EQ(distance_at(target, 1.0), 1.5);
    EXPECT_DOUBLE_EQ(distance_at(target, 6.0), -1.0);
    target.nearest_m = 1.0F;
    target.farthest_m = 3.0F;
    EXPECT_DOUBLE_EQ(distance_at(target, 1.0), 1.5);
    EXPECT_DOUBLE_EQ(distance_at(target, 2.0), 1.0);
    EXPECT_DOUBLE_EQ(distance_at(target, 3.0), 1.5);
    EXPECT_DOUBLE_EQ(distance_at(target, 6.0), 3.0);
    EXPECT_DOUBLE_EQ(distance_at(target, 7.0), 2.5);
    EXPECT_NEAR(distance_at(target, 808.0), 2.0, 1e-9);
}

TEST(motion, a_target_that_has_passed_the_sensor_is_not_measured)
{
    zet_simulator_scene_t scene = scene_with_target(0.1F, 1.0F);
    scene.targets[0].velocity_m_s = -10.0F;
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    zet_config_frame_rate_set(sensor.config, 10.0F);
    ASSERT_TRUE(sensor.prepare());
    EXPECT_GT(std::abs(sensor.measure().samples[0]), 10000.0F);
    EXPECT_LT(std::abs(sensor.measure().samples[159]), 500.0F);
}

} // namespace
