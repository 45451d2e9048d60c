/** @file
 * The statistics of the noise. The seed is fixed, so the results are the same in every run; the bounds are
 * those that a perfect generator would keep with nearly every seed.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <iostream>

#include "simulated_sensor.h"
#include "zet_config_internal.h"
#include "zet_config_subsweep.h"

namespace
{

/** Deviations from the mean that a perfect generator exceeds with one of 16,000 seeds. */
constexpr double most_deviations = 4.0;

using samples = std::vector<std::complex<float>>;

/** Configures frames of nothing but noise that is strong compared with the step from one integer to the next.
 */
void configure_noise(const simulated_sensor &sensor)
{
    zet_config_enable_tx_set(sensor.config, false);
    zet_config_subtract_in_buffer_set(sensor.config, true);
    zet_config_sweeps_per_frame_set(sensor.config, 4);
    zet_config_subsweep_num_points_set(sensor.config, 4094, 0);
    zet_config_subsweep_step_length_set(sensor.config, 1, 0);
    zet_config_subsweep_start_point_set(sensor.config, -1000, 0);
    zet_config_subsweep_hwaas_set(sensor.config, 1, 0);
    zet_config_subsweep_receiver_gain_set(sensor.config, 23, 0);
    zet_config_subsweep_profile_set(sensor.config, ZET_CONFIG_PROFILE_5, 0);
    zet_config_subsweep_iq_imbalance_compensation_set(sensor.config, true, 0);
}

constexpr size_t samples_per_frame = 4U * 4094U;
constexpr size_t frame_count = 1000;

/** Sums over all values. */
struct moments
{
    double count = 0.0;
    double second = 0.0;
    double fourth = 0.0;

    void add(double value)
    {
        const double square = value * value;
        count += 1.0;
        second += square;
        fourth += square * square;
    }

    [[nodiscard]] double variance() const
    {
        return second / count;
    }

    [[nodiscard]] double kurtosis() const
    {
        return fourth / count / (variance() * variance());
    }
};

/** 16 million complex samples of noise, which all tests of the suite use. */
class noise : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        const zet_simulator_scene_t scene = empty_scene();
        const simulation simulation(1, &scene);
        simulated_sensor sensor;
        configure_noise(sensor);
        ASSERT_TRUE(sensor.prepare()) << simulation::log();
        all.reserve(frame_count * samples_per_frame);
        for (size_t i = 0; i < frame_count; ++i)
        {
            const frame measured = sensor.measure();
            ASSERT_FALSE(measured.result.data_saturated);
            all.insert(all.end(), measured.samples.begin(), measured.samples.end());
        }
    }

    static void TearDownTestSuite()
    {
        all = {};
    }

    static samples all;
};

samples noise::all;

/** The moments of the real and imaginary parts. */
moments moments_of(const samples &values)
{
    moments result;
    for (const std::complex<float> &value : values)
    {
        result.add(value.real());
        result.add(value.imag());
    }
    return result;
}

/** The correlation of two series of real numbers, in standard deviations of what independent ones have. */
template <typename left_t, typename right_t>
double correlation(size_t count, const left_t &left, const right_t &right)
{
    double products = 0.0;
    double left_squares = 0.0;
    double right_squares = 0.0;
    for (size_t i = 0; i < count; ++i)
    {
        products += left(i) * right(i);
        left_squares += left(i) * left(i);
        right_squares += right(i) * right(i);
    }
    return products / std::sqrt(left_squares * right_squares) * std::sqrt(static_cast<double>(count));
}

TEST_F(noise, power_exceeds_each_level_as_often_as_that_of_a_normal_distribution)
{
    // The power of a complex normal variable exceeds its mean by a factor of ln(1 / p) with probability p.
    constexpr size_t level_count = 6;
    const double mean_power = 2.0 * moments_of(all).variance();
    const double step = std::log(10.0) * mean_power;
    std::array<double, level_count> counts = {};
    for (const std::complex<float> &value : all)
    {
        const double power = std::norm(std::complex<double>(value));
        for (size_t i = 0; i < level_count && power > static_cast<double>(i + 1) * step; ++i)
        {
            counts[i] += 1.0;
        }
    }
    for (size_t i = 0; i < level_count; ++i)
    {
        const double expected = static_cast<double>(all.size()) * std::pow(10.0, -static_cast<double>(i + 1));
        EXPECT_NEAR(counts[i], expected, most_deviations * std::sqrt(expected)) << "level " << i;
    }
}

TEST_F(noise, reaches_five_standard_deviations_on_both_sides)
{
    const double deviation = std::sqrt(moments_of(all).variance());
    // One of 3.5 million values exceeds 5 deviations on one side, so about nine of each part do.
    for (const double sign : {-1.0, 1.0})
    {
        const auto beyond = [&](double part) { return sign * part > 5.0 * deviation; };
        EXPECT_TRUE(std::any_of(all.begin(), all.end(), [&](auto value) { return beyond(value.real()); }));
        EXPECT_TRUE(std::any_of(all.begin(), all.end(), [&](auto value) { return beyond(value.imag()); }));
    }
}

TEST_F(noise, has_the_kurtosis_of_a_normal_distribution)
{
    // The variance of the kurtosis of n normal values is 24 / n.
    const double count = 2.0 * static_cast<double>(all.size());
    EXPECT_NEAR(moments_of(all).kurtosis(), 3.0, most_deviations * std::sqrt(24.0 / count));
}

TEST_F(noise, has_no_correlation_between_parts_and_neighbours)
{
    constexpr size_t count = 1000000;
    const double part_power = moments_of(all).variance();
    const auto real = [](size_t i) { return static_cast<double>(all[i].real()); };
    const auto imag = [](size_t i) { return static_cast<double>(all[i].imag()); };
    const auto real_power = [&](size_t i) { return real(i) * real(i) - part_power; };
    const auto imag_power = [&](size_t i) { return imag(i) * imag(i) - part_power; };
    EXPECT_NEAR(correlation(count, real, imag), 0.0, most_deviations);
    EXPECT_NEAR(correlation(count, real_power, imag_power), 0.0, most_deviations);
    for (const size_t lag : {1U, 2U, 4U, 8U, 64U, 4094U})
    {
        const auto later = [lag](const auto &part) {
            return [&part, lag](size_t i) { return part(i + lag); };
        };
        EXPECT_NEAR(correlation(count, real, later(real)), 0.0, most_deviations) << lag;
        EXPECT_NEAR(correlation(count, imag, later(imag)), 0.0, most_deviations) << lag;
        EXPECT_NEAR(correlation(count, real, later(imag)), 0.0, most_deviations) << lag;
        EXPECT_NEAR(correlation(count, real_power, later(real_power)), 0.0, most_deviations) << lag;
        EXPECT_NEAR(correlation(count, real_power, later(imag_power)), 0.0, most_deviations) << lag;
    }
}

/** The first frame of noise of a sensor in a session; sessions are counted from 0. */
samples first_frame(uint64_t seed, uint32_t session, zet_sensor_id_t sensor_id)
{
    const zet_simulator_scene_t scene = empty_scene();
    const simulation simulation(4, &scene, seed);
    for (uint32_t i = 0; i < session; ++i)
    {
        const simulated_sensor earlier(sensor_id);
    }
    simulated_sensor sensor(sensor_id);
    configure_noise(sensor);
    EXPECT_TRUE(sensor.prepare());
    return sensor.measure().samples;
}

TEST(noise_streams, are_independent_for_each_seed_session_and_sensor)
{
    std::vector<samples> streams;
    for (const uint64_t seed : {uint64_t{0}, uint64_t{1}, uint64_t{2}, uint64_t{3}, UINT64_MAX})
    {
        for (const uint32_t session : {0U, 1U, 2U, 3U})
        {
            for (const zet_sensor_id_t sensor_id : {1U, 2U, 3U, 4U})
            {
                streams.push_back(first_frame(seed, session, sensor_id));
            }
        }
    }
    for (size_t i = 0; i < streams.size(); ++i)
    {
        for (size_t j = 0; j < i; ++j)
        {
            const auto left = [&](size_t k) { return static_cast<double>(streams[i][k].real()); };
            const auto right = [&](size_t k) { return static_cast<double>(streams[j][k].real()); };
            // One of 500 million pairs of independent streams exceeds 6 deviations.
            EXPECT_NEAR(correlation(samples_per_frame, left, right), 0.0, 6.0) << i << " and " << j;
        }
    }
}

/** Cells on both sides of the tested one, from which the detector estimates the noise. */
constexpr size_t reference_cells = 16;
constexpr size_t window = reference_cells + 1;

/** A cell-averaging detector: an alarm if a cell has more than a multiple of the mean power of its
 * references. */
class detector
{
public:
    /**
     * Designs a detector. If the power of the noise is exponentially distributed, the mean of N references
     * times alpha is exceeded with the probability (1 + alpha / N)^-N.
     */
    explicit detector(double false_alarm_rate)
        : rate_(false_alarm_rate),
          alpha_(reference_cells * (std::pow(false_alarm_rate, -1.0 / reference_cells) - 1.0))
    {
    }

    /** Tests the middle of a window of cells. */
    void test(const double *powers)
    {
        constexpr size_t tested = reference_cells / 2;
        double sum = -powers[tested];
        for (size_t i = 0; i < window; ++i)
        {
            sum += powers[i];
        }
        ++cells_;
        alarms_ += powers[tested] > alpha_ * sum / reference_cells ? 1U : 0U;
    }

    /** Share of the tests with an alarm. */
    [[nodiscard]] double alarm_rate() const
    {
        return static_cast<double>(alarms_) / static_cast<double>(cells_);
    }

    /** Probability of detection of a target of type Swerling 1: its power has the same distribution as that
     * of noise, so with a signal-to-noise ratio s it is (1 + alpha / (N (1 + s)))^-N. */
    [[nodiscard]] double detection_rate(double signal_to_noise) const
    {
        return std::pow(1.0 + alpha_ / (reference_cells * (1.0 + signal_to_noise)),
                        -static_cast<double>(reference_cells));
    }

    /** Compares the number of alarms with the designed one; sampling errors above 4 deviations are failures.
     */
    void check() const
    {
        const double expected = rate_ * static_cast<double>(cells_);
        const double deviation = std::sqrt(expected * (1.0 - rate_));
        std::cout << "designed rate " << rate_ << ": " << alarms_ << " alarms in " << cells_
                  << " cells, expected " << expected << " +- " << deviation << '\n';
        EXPECT_NEAR(static_cast<double>(alarms_), expected, 4.0 * deviation);
    }

private:
    double rate_;
    double alpha_;
    size_t cells_ = 0;
    size_t alarms_ = 0;
};

/** A million cells; with VANTOR_CAMPAIGN=whole ten million: `scripts/soak noise`. */
TEST(false_alarms, have_the_designed_rate)
{
    const size_t frames = std::getenv("VANTOR_CAMPAIGN") != nullptr ? 10400 : 1040;
    const zet_simulator_scene_t scene = empty_scene();
    const simulation simulation(1, &scene);
    simulated_sensor sensor;
    configure_noise(sensor);
    ASSERT_TRUE(sensor.prepare()) << simulation::log();
    detector detectors[] = {detector(1.0e-2), detector(1.0e-3), detector(1.0e-4)};
    std::vector<double> powers(samples_per_frame);
    for (size_t i = 0; i < frames; ++i)
    {
        const frame measured = sensor.measure();
        for (size_t j = 0; j < powers.size(); ++j)
        {
            powers[j] = static_cast<double>(std::norm(measured.samples[j]));
        }
        // No cell is in two windows, so that all decisions are independent.
        for (size_t first = 0; first + window <= powers.size(); first += window)
        {
            for (detector &each : detectors)
            {
                each.test(&powers[first]);
            }
        }
    }
    for (const detector &each : detectors)
    {
        each.check();
    }
}

/** Cells next to the tested one that contain a part of its echo. */
constexpr size_t guard_cells = 2;

/** Powers of the window around a fluctuating target at 2 m, without the guard cells. */
void test_target(simulated_sensor &sensor, detector &tested)
{
    const frame measured = sensor.measure();
    std::vector<double> powers;
    for (size_t i = 0; i < measured.samples.size(); ++i)
    {
        const size_t middle = measured.samples.size() / 2;
        const size_t away = i > middle ? i - middle : middle - i;
        if (away == 0 || away > guard_cells)
        {
            powers.push_back(static_cast<double>(std::norm(measured.samples[i])));
        }
    }
    ASSERT_EQ(powers.size(), window);
    tested.test(powers.data());
}

TEST(detections, of_a_fluctuating_target_have_the_probability_of_the_closed_formula)
{
    // Profile 1 at the reference gain: pulses of 4 cycles instead of 14.
    const double pulse = 4.0 / 14.0;
    const double noise_power = 2.0 * (150.0 * 150.0 * pulse + 10.0 * 10.0) / 8.0 + 2.0 / 12.0;
    for (const double signal_db : {7.0, 13.0, 20.0})
    {
        const double signal_to_noise = std::pow(10.0, signal_db / 10.0);
        const double amplitude = std::sqrt(signal_to_noise * noise_power) / (8000.0 * pulse);
        zet_simulator_scene_t scene =
            scene_with_target(2.0F, static_cast<float>(amplitude * amplitude * 16.0));
        scene.targets[0].fluctuation = ZET_SIMULATOR_FLUCTUATION_SWERLING_1;
        const simulation simulation(1, &scene);
        simulated_sensor sensor;
        const uint16_t points = window + 2 * guard_cells;
        zet_config_subsweep_start_point_set(sensor.config, 800 - 24 * (points / 2), 0);
        zet_config_subsweep_num_points_set(sensor.config, points, 0);
        zet_config_subsweep_step_length_set(sensor.config, 24, 0);
        zet_config_subsweep_profile_set(sensor.config, ZET_CONFIG_PROFILE_1, 0);
        zet_config_subsweep_hwaas_set(sensor.config, 8, 0);
        zet_config_subsweep_iq_imbalance_compensation_set(sensor.config, true, 0);
        zet_config_subtract_in_buffer_set(sensor.config, true);
        ASSERT_TRUE(sensor.prepare()) << simulation::log();
        detector tested(1.0e-3);
        for (int i = 0; i < 20000; ++i)
        {
            test_target(sensor, tested);
        }
        const double expected = tested.detection_rate(signal_to_noise);
        std::cout << signal_db << " dB: probability of detection " << tested.alarm_rate()
                  << ", by the formula " << expected << '\n';
        // The deviation of a share of 20,000 is at most 0.0035.
        EXPECT_NEAR(tested.alarm_rate(), expected, 0.012);
    }
}

} // namespace
