/** @file
 * Natural logarithm, from operations that give bit-identical results on every processor and that the compiler
 * can vectorise.
 */
#ifndef ZET_SIMULATOR_LOGARITHM_H
#define ZET_SIMULATOR_LOGARITHM_H

#include <bit>
#include <cstdint>

namespace zet_simulator
{

/**
 * Computes the natural logarithm of a normal positive number, with a relative error below 1e-6.
 *
 * The number is m 2^e with m between the roots of 1/2 and 2. With s = (m - 1) / (m + 1), the logarithm of m
 * is 2 (s + s^3/3 + s^5/5 + ...), where s is at most 0.172.
 */
inline float logarithm_of(float number)
{
    const uint32_t root_of_half = 0x3F3504F3U;
    const uint32_t mantissa_bits = 23;
    const auto bits = std::bit_cast<uint32_t>(number);
    const int32_t exponent = static_cast<int32_t>(bits - root_of_half) >> mantissa_bits;
    const auto mantissa = std::bit_cast<float>(bits - (static_cast<uint32_t>(exponent) << mantissa_bits));
    const float s = (mantissa - 1.0F) / (mantissa + 1.0F);
    const float square = s * s;
    const float series = 2.0F + square * (2.0F / 3.0F + square * (2.0F / 5.0F + square * (2.0F / 7.0F)));
    const float logarithm_of_2 = 0.69314718F;
    return static_cast<float>(exponent) * logarithm_of_2 + s * series;
}

} // namespace zet_simulator

#endif
