/** @file
 * Tests of the arithmetic of samples.
 */
#include "vantor/sample.h"

#include <cstring>
#include <numbers>

#include <gtest/gtest.h>

namespace vantor
{
namespace
{

TEST(sample, has_an_exact_magnitude)
{
    EXPECT_EQ(abs(sample{3, 4}), 5.0F);
    EXPECT_EQ(norm(sample{3, 4}), 25.0F);
    EXPECT_EQ(abs(sample{}), 0.0F);
    EXPECT_EQ(abs(sample{-32768, 0}), 32768.0F);
}

TEST(sample, does_not_overflow)
{
    EXPECT_EQ(norm(sample{-32768, -32768}), 2147483648.0F);
    EXPECT_FLOAT_EQ(abs(sample{-32768, -32768}), 46340.95F);
    EXPECT_EQ(norm(sample{32767, 32767}), 2147352578.0F);
}

TEST(sample, has_a_phase)
{
    EXPECT_EQ(arg(sample{7, 0}), 0.0F);
    EXPECT_EQ(arg(sample{}), 0.0F);
    EXPECT_FLOAT_EQ(arg(sample{0, -2}), -std::numbers::pi_v<float> / 2);
    EXPECT_FLOAT_EQ(arg(sample{-5, 5}), std::numbers::pi_v<float> * 3 / 4);
    EXPECT_FLOAT_EQ(arg(sample{-5, 0}), std::numbers::pi_v<float>);
}

TEST(sample, converts_to_complex_numbers_for_arithmetic)
{
    const std::complex<float> single = sample{-3, 4};
    EXPECT_EQ(single, std::complex<float>(-3.0F, 4.0F));
    const std::complex<double> twice = sample{32767, -32768};
    EXPECT_EQ(twice + twice, std::complex<double>(65534.0, -65536.0));
}

TEST(sample, has_the_layout_of_a_recording)
{
    const uint8_t bytes[] = {0x01, 0x02, 0xFE, 0xFF};
    sample value;
    static_assert(sizeof value == sizeof bytes);
    std::memcpy(&value, bytes, sizeof value);
    EXPECT_EQ(value, (sample{0x0201, -2}));
}

} // namespace
} // namespace vantor
