/** @file
 * Random numbers for the noise.
 */
#include "common/noise.h"

#include <bit>
#include <cmath>

#include "common/logarithm.h"
#include "common/trigonometry.h"

namespace
{

using namespace zet_simulator;

/** Takes the next number of each generator. */
void take(noise_source &source, uint32_t *numbers)
{
    auto &[a, b, c, d] = source.words;
    for (size_t lane = 0; lane < noise_source::lanes; ++lane)
    {
        numbers[lane] = std::rotl(a[lane] + d[lane], 7) + a[lane];
        const uint32_t shifted = b[lane] << 9U;
        c[lane] ^= a[lane];
        d[lane] ^= b[lane];
        b[lane] ^= c[lane];
        a[lane] ^= d[lane];
        c[lane] ^= shifted;
        d[lane] = std::rotl(d[lane], 11);
    }
}

/** Returns the magnitude for a uniformly distributed number: u is the middle of one of 2^30 equal intervals.
 */
float magnitude_of(uint32_t number)
{
    const float unit = 1.0F / 2147483648.0F;
    const auto odd = static_cast<int32_t>((number >> 1U) | 1U);
    return std::sqrt(-2.0F * logarithm_of(static_cast<float>(odd) * unit));
}

} // namespace

namespace zet_simulator
{

float uniform_of(uint32_t bits)
{
    const float unit = 1.0F / 16777216.0F;
    return (static_cast<float>(bits >> 8U) + 0.5F) * unit;
}

float exponential_of(uint32_t bits)
{
    return -logarithm_of(uniform_of(bits));
}

noise_source noise_start(uint64_t key)
{
    noise_source source;
    for (size_t lane = 0; lane < noise_source::lanes; ++lane)
    {
        // Two different parts of a key are never both 0, which no generator could leave.
        const uint64_t first = key_of_part(key, 2U * lane);
        const uint64_t second = key_of_part(key, 2U * lane + 1U);
        source.words[0][lane] = static_cast<uint32_t>(first);
        source.words[1][lane] = static_cast<uint32_t>(first >> 32U);
        source.words[2][lane] = static_cast<uint32_t>(second);
        source.words[3][lane] = static_cast<uint32_t>(second >> 32U);
    }
    return source;
}

void noise_fill(noise_source &source, float *real, float *imag, size_t count)
{
    for (size_t i = 0; i < count; i += noise_source::lanes)
    {
        uint32_t radii[noise_source::lanes];
        uint32_t phases[noise_source::lanes];
        take(source, radii);
        take(source, phases);
        for (size_t lane = 0; lane < noise_source::lanes; ++lane)
        {
            float sine = 0.0F;
            float cosine = 0.0F;
            sine_and_cosine_of(phases[lane], sine, cosine);
            const float magnitude = magnitude_of(radii[lane]);
            real[i + lane] = magnitude * cosine;
            imag[i + lane] = magnitude * sine;
        }
    }
}

} // namespace zet_simulator
