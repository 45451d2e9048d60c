/** @file
 * Random numbers for the noise.
 *
 * Eight 32-bit shift-register generators (xorshift, G. Marsaglia, "Xorshift RNGs", 2003) in parallel, so
 * that a compiler can run them in vector registers; integers only, so the results are bit-identical on every
 * processor.
 */
#ifndef ZET_SIMULATOR_NOISE_H
#define ZET_SIMULATOR_NOISE_H

#include <cstddef>
#include <cstdint>

namespace zet_simulator
{

/** A source of normally distributed numbers. */
struct noise_source
{
    static constexpr size_t lanes = 8;
    uint32_t states[lanes];
};

/** Scrambles a number so that the results of neighbouring numbers are unrelated (the finaliser of
 * MurmurHash3, 64 bits). */
inline uint64_t scramble(uint64_t value)
{
    value ^= value >> 33U;
    value *= 0xFF51AFD7ED558CCDU;
    value ^= value >> 33U;
    value *= 0xC4CEB9FE1A85EC53U;
    value ^= value >> 33U;
    return value;
}

/** Starts a source; the same key gives the same numbers. */
inline noise_source noise_start(uint64_t key)
{
    noise_source source;
    for (size_t lane = 0; lane < noise_source::lanes; ++lane)
    {
        const auto state = static_cast<uint32_t>(scramble(key + lane + 1U) >> 32U);
        source.states[lane] = state != 0U ? state : 1U;
    }
    return source;
}

/** Returns the next number of one generator. */
inline uint32_t noise_next(uint32_t &state)
{
    state ^= state << 13U;
    state ^= state >> 17U;
    state ^= state << 5U;
    return state;
}

/**
 * Fills an array with noise of mean 0 and variance 1.
 *
 * Each number is the sum of four uniformly distributed 16-bit numbers, which is close to a normal
 * distribution by the central limit theorem. Its magnitude never exceeds 3.47.
 *
 * @param count  length of the array; a multiple of the number of lanes
 */
inline void noise_fill(noise_source &source, float *values, size_t count)
{
    const int32_t mean = 2 * 65535;
    // The square root of 4 (2^32 - 1) / 12.
    const float scale = 1.0F / 37837.2274F;
    for (size_t i = 0; i < count; i += noise_source::lanes)
    {
        for (size_t lane = 0; lane < noise_source::lanes; ++lane)
        {
            const uint32_t first = noise_next(source.states[lane]);
            const uint32_t second = noise_next(source.states[lane]);
            const auto sum = static_cast<int32_t>((first & 0xFFFFU) + (first >> 16U) + (second & 0xFFFFU) +
                                                  (second >> 16U));
            values[i + lane] = static_cast<float>(sum - mean) * scale;
        }
    }
}

} // namespace zet_simulator

#endif
