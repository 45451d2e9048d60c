/** @file
 * Tests of the division of 64-bit numbers: it gives what this machine's division gives.
 */
#include "divide.h"

#include <random>

#include <gtest/gtest.h>

namespace
{

void compare(uint64_t number, uint64_t divisor)
{
    const auto [quotient, remainder] = cortex_m4::divide(number, divisor);
    ASSERT_EQ(quotient, number / divisor) << number << " / " << divisor;
    ASSERT_EQ(remainder, number % divisor) << number << " / " << divisor;
}

TEST(divide, gives_the_same_as_the_processor)
{
    std::mt19937_64 random(1);
    for (int i = 0; i < 200000; ++i)
    {
        const uint64_t number = random() >> random() % 64U;
        const uint64_t divisor = random() >> random() % 64U;
        compare(number, divisor | 1U);
    }
}

TEST(divide, gives_the_same_at_the_limits)
{
    constexpr uint64_t limits[] = {
        0, 1, 2, 9, 10, UINT32_MAX, 1ULL << 32, 1ULL << 63, INT64_MAX, UINT64_MAX - 1, UINT64_MAX};
    for (const uint64_t number : limits)
    {
        for (const uint64_t divisor : limits)
        {
            if (divisor != 0)
            {
                compare(number, divisor);
            }
        }
    }
}

} // namespace
