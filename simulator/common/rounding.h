/** @file
 * Rounding without the C library.
 */
#ifndef ZET_SIMULATOR_ROUNDING_H
#define ZET_SIMULATOR_ROUNDING_H

#include <cstdint>

namespace zet_simulator
{

/** Returns the largest integer that is not above a value; the value must fit 64 bits. */
inline double floor_of(double value)
{
    const auto whole = static_cast<double>(static_cast<int64_t>(value));
    return whole > value ? whole - 1.0 : whole;
}

} // namespace zet_simulator

#endif
