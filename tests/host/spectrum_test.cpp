/** @file
 * Tests of power spectra.
 */
#include "plot/spectrum.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <random>
#include <stdexcept>

#include <gmock/gmock.h>

namespace vantor
{
namespace
{

TEST(spectrum, has_its_peak_at_the_frequency_of_a_tone)
{
    constexpr size_t length = 64;
    for (const int bin : {-32, -7, 5, 31})
    {
        spectrum result(length);
        std::vector<std::complex<double>> tone;
        for (size_t n = 0; n < length; ++n)
        {
            tone.push_back(std::polar(3.0, 2.0 * std::numbers::pi * bin * static_cast<double>(n) / length));
        }
        result.add(tone);
        const auto powers = result.powers();
        const auto peak = std::max_element(powers.begin(), powers.end()) - powers.begin();
        EXPECT_EQ(peak - static_cast<int>(length) / 2, bin);
    }
}

TEST(spectrum, ignores_constant_samples)
{
    spectrum result(16);
    result.add(std::vector<std::complex<double>>(16, {100.0, -50.0}));
    EXPECT_EQ(result.count(), 1U);
    for (const double power : result.powers())
    {
        EXPECT_NEAR(power, 0.0, 1e-18);
    }
}

/** Samples with noise, some tones and a mean, the same in every run. */
std::vector<std::complex<double>> make_segment(size_t length, uint32_t seed)
{
    std::mt19937 noise(seed);
    const auto draw = [&noise] { return static_cast<double>(noise()) / 0x1p32 * 2000.0 - 1000.0; };
    std::vector<std::complex<double>> segment;
    for (size_t n = 0; n < length; ++n)
    {
        const auto time = static_cast<double>(n);
        segment.push_back(std::complex(700.0, -300.0) + std::polar(20000.0, 0.7 * time) +
                          std::polar(400.0, -2.1 * time) + std::complex(draw(), draw()));
    }
    return segment;
}

/** The power at a frequency, in turns per sample, of a segment without its mean in a Hann window: the
 * definition. */
double direct_power(const std::vector<std::complex<double>> &segment, double frequency)
{
    constexpr double pi = std::numbers::pi;
    const auto length = static_cast<double>(segment.size());
    const auto mean = std::accumulate(segment.begin(), segment.end(), std::complex<double>()) / length;
    std::complex<double> sum;
    for (size_t n = 0; n < segment.size(); ++n)
    {
        const auto time = static_cast<double>(n);
        const double weight = std::pow(std::sin(pi * (time + 0.5) / length), 2);
        sum += weight * (segment[n] - mean) * std::polar(1.0, -2.0 * pi * frequency * time);
    }
    return std::norm(sum);
}

/** Compares a spectrum of two segments with direct sums. */
class spectrum_of_length : public testing::TestWithParam<size_t>
{
};

TEST_P(spectrum_of_length, is_the_mean_of_direct_sums)
{
    const auto length = GetParam();
    const auto first = make_segment(length, 1);
    const auto second = make_segment(length, 2);
    spectrum result(length);
    result.add(first);
    result.add(second);
    const auto powers = result.powers();
    ASSERT_EQ(powers.size(), length);
    const double rounding = 1e-12 * *std::max_element(powers.begin(), powers.end());
    for (size_t k = 0; k < length; ++k)
    {
        const double frequency =
            (static_cast<double>(k) - static_cast<double>(length / 2)) / static_cast<double>(length);
        const double expected = (direct_power(first, frequency) + direct_power(second, frequency)) / 2.0;
        EXPECT_NEAR(powers[k], expected, rounding) << k;
    }
}

// 1; powers of 2, 3 and 5; products of small primes; primes, which have a code of their own from 7 on.
INSTANTIATE_TEST_SUITE_P(lengths, spectrum_of_length,
                         testing::Values(1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 12, 15, 16, 25, 27, 31, 49, 60, 77,
                                         125, 256, 480, 509, 511, 512));

TEST(spectrum, has_no_power_without_a_segment)
{
    EXPECT_THAT(spectrum(3).powers(), testing::Each(0.0));
}

TEST(spectrum, refuses_segments_that_are_empty_or_of_another_length)
{
    EXPECT_THROW(spectrum(0), std::invalid_argument);
    spectrum result(16);
    EXPECT_THROW(result.add(make_segment(15, 1)), std::invalid_argument);
    EXPECT_THROW(result.add(make_segment(17, 1)), std::invalid_argument);
    EXPECT_EQ(result.count(), 0U);
}

TEST(spectrum, gives_the_amplitude_of_a_tone_and_the_power_of_noise)
{
    constexpr size_t length = 64;
    spectrum result(length);
    std::mt19937 source(1);
    std::normal_distribution<double> part(0.0, 100.0 / std::numbers::sqrt2);
    for (int count = 0; count < 2000; ++count)
    {
        std::vector<std::complex<double>> segment;
        for (size_t n = 0; n < length; ++n)
        {
            const auto time = static_cast<double>(n);
            const auto tone = std::polar(3000.0, 2.0 * std::numbers::pi * 20.0 * time / length);
            segment.push_back(tone + std::complex(part(source), part(source)));
        }
        result.add(segment);
    }
    const auto powers = result.powers();
    EXPECT_NEAR(std::sqrt(powers[length / 2 + 20] / result.tone_power()), 3000.0, 10.0);
    EXPECT_NEAR(std::sqrt(powers[length / 2 - 20] / result.noise_power()), 100.0, 3.0);
}

TEST(spectrum, keeps_constant_samples_when_asked_to)
{
    spectrum result(16, spectrum_mean::keep);
    result.add(std::vector<std::complex<double>>(16, {30.0, 40.0}));
    EXPECT_NEAR(std::sqrt(result.powers()[8] / result.tone_power()), 50.0, 1e-9);
}

} // namespace
} // namespace vantor
