/** @file
 * Division of 64-bit numbers, in less code than the compiler's library needs.
 */
#ifndef VANTOR_DIVIDE_H
#define VANTOR_DIVIDE_H

#include <bit>
#include <cstdint>

namespace cortex_m4
{

/** A quotient and its remainder. */
struct quotient_t
{
    uint64_t quotient;
    uint64_t remainder;
};

/** Divides by a number that is not 0, bit by bit of the quotient, without a division of 64-bit numbers. */
constexpr quotient_t divide(uint64_t number, uint64_t divisor)
{
    quotient_t result = {0, number};
    const int last = std::countl_zero(divisor) - std::countl_zero(number);
    for (int bit = last; bit >= 0; --bit)
    {
        if (result.remainder >> bit >= divisor)
        {
            result.remainder -= divisor << bit;
            result.quotient |= uint64_t{1} << bit;
        }
    }
    return result;
}

} // namespace cortex_m4

#endif
