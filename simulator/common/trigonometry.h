/** @file
 * Sine and cosine of a phase in integer turns.
 *
 * A phase is a 32-bit fraction of a turn, so it wraps naturally and keeps its resolution however far a target
 * has moved. The polynomials use only additions and multiplications: they give bit-identical results on every
 * processor, and the compiler can vectorise loops over them.
 */
#ifndef ZET_SIMULATOR_TRIGONOMETRY_H
#define ZET_SIMULATOR_TRIGONOMETRY_H

#include <cstdint>

namespace zet_simulator
{

/** A phase: 2^32 is one turn. */
using binary_angle = uint32_t;

/** Converts turns into a phase; the integer part of the turns must fit 64 bits. */
inline binary_angle phase_from_turns(double turns)
{
    const double whole = static_cast<double>(static_cast<int64_t>(turns));
    const double steps_per_turn = 4294967296.0;
    return static_cast<binary_angle>(static_cast<int64_t>((turns - whole) * steps_per_turn));
}

/**
 * Computes sine and cosine of a phase, with an error below 1e-6.
 *
 * The phase is reduced by the nearest quarter turn; Taylor series give the rest, which is at most an eighth
 * of a turn.
 */
inline void sine_and_cosine_of(binary_angle phase, float &sine, float &cosine)
{
    const uint32_t quarter = (phase + 0x20000000U) >> 30U;
    const auto rest = static_cast<int32_t>(phase - (quarter << 30U));
    // 2 pi / 2^32.
    const float radians_per_step = 1.4629180792671596e-9F;
    const float x = static_cast<float>(rest) * radians_per_step;
    const float square = x * x;
    const float near_sine =
        x * (1.0F + square * (-1.0F / 6.0F + square * (1.0F / 120.0F - square * (1.0F / 5040.0F))));
    const float near_cosine =
        1.0F +
        square * (-0.5F + square * (1.0F / 24.0F + square * (-1.0F / 720.0F + square * (1.0F / 40320.0F))));
    const bool swapped = (quarter & 1U) != 0U;
    const float sine_size = swapped ? near_cosine : near_sine;
    const float cosine_size = swapped ? near_sine : near_cosine;
    sine = (quarter & 2U) != 0U ? -sine_size : sine_size;
    cosine = ((quarter + 1U) & 2U) != 0U ? -cosine_size : cosine_size;
}

/** Returns the sine of a phase. */
inline float sine_of(binary_angle phase)
{
    float sine = 0.0F;
    float cosine = 0.0F;
    sine_and_cosine_of(phase, sine, cosine);
    return sine;
}

} // namespace zet_simulator

#endif
