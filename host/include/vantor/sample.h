/** @file
 * A complex sample.
 */
#ifndef VANTOR_SAMPLE_H
#define VANTOR_SAMPLE_H

#include <cmath>
#include <complex>
#include <cstdint>

namespace vantor
{

/**
 * A complex sample as the sensor measures it, in the layout of the SigMF type ci16_le. To compute with it,
 * use the functions below, or convert it to std::complex<float> or std::complex<double>.
 */
struct sample
{
    int16_t i = 0; /**< in-phase part */
    int16_t q = 0; /**< quadrature part */

    bool operator==(const sample &) const = default;

    operator std::complex<float>() const noexcept // NOLINT(google-explicit-constructor): loses nothing
    {
        return {static_cast<float>(i), static_cast<float>(q)};
    }

    operator std::complex<double>() const noexcept // NOLINT(google-explicit-constructor): loses nothing
    {
        return {static_cast<double>(i), static_cast<double>(q)};
    }
};

/** The amplitude at 0 dBFS. */
inline constexpr double full_scale = 32767.0;

/** The square of the magnitude; exact up to 2^24, otherwise rounded to float. */
inline float norm(sample value) noexcept
{
    const int32_t i = value.i;
    const int32_t q = value.q;
    // The largest result, 2^31, needs the unsigned type.
    return static_cast<float>(static_cast<uint32_t>(i * i) + static_cast<uint32_t>(q * q));
}

/** The magnitude. */
inline float abs(sample value) noexcept
{
    return std::sqrt(norm(value));
}

/** The phase in radians, from -pi to pi; 0 for the sample 0. */
inline float arg(sample value) noexcept
{
    return std::atan2(static_cast<float>(value.q), static_cast<float>(value.i));
}

} // namespace vantor

#endif
