/** @file
 * Random numbers for the noise.
 *
 * Eight generators xoshiro128++ (D. Blackman, S. Vigna, "Scrambled Linear Pseudorandom Number Generators",
 * 2021) run in parallel, so that a compiler can use vector registers. Each has a period of 2^128 - 1, so the
 * sequences of different keys do not overlap in practice, and its scrambler hides the linear relations
 * between the bits of a shift-register generator, also in the lowest bits. Only integers, and operations of
 * floating point that are exactly rounded, are used: the results are bit-identical on every processor.
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
    uint32_t words[4][lanes]; /**< state of each generator */
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

/** Derives the key of a part, such as one sensor or one frame, from the key of the whole. */
inline uint64_t key_of_part(uint64_t key, uint64_t number)
{
    // The fractional part of the golden ratio spreads the numbers over all bits.
    return scramble(key + (number + 1U) * 0x9E3779B97F4A7C15U);
}

/** Returns a uniformly distributed number from 0 to 1, but not 0, from random bits. */
float uniform_of(uint32_t bits);

/** Returns an exponentially distributed number of mean 1 from random bits. */
float exponential_of(uint32_t bits);

/** Starts a source; the same key gives the same numbers. */
noise_source noise_start(uint64_t key);

/**
 * Fills two arrays with independent noise of mean 0 and variance 1, normally distributed up to 6.5 standard
 * deviations.
 *
 * By the method of Box and Muller: real and imaginary part are those of a complex number with a uniformly
 * distributed phase and the magnitude sqrt(-2 ln u), where u is uniformly distributed between 0 and 1.
 *
 * @param count  length of each array; a multiple of the number of lanes
 */
void noise_fill(noise_source &source, float *real, float *imag, size_t count);

} // namespace zet_simulator

#endif
