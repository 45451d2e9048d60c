/** @file
 * Tests of numbers as text.
 */
#include "common/number_text.h"

#include <cmath>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace
{

using zet_simulator::text_beside;
using zet_simulator::text_of;

TEST(number_text, is_plain_if_it_differs_from_the_bounds)
{
    EXPECT_STREQ(text_beside(0.5, {0.0, 1.0}).text, "0.5");
    EXPECT_STREQ(text_beside(-1.0, {0.0, 1.0}).text, "-1");
    EXPECT_STREQ(text_beside(1.0, {1.0}).text, "1");
    EXPECT_STREQ(text_beside(NAN, {0.0}).text, "NaN");
}

TEST(number_text, has_as_many_digits_as_distinguish_it_from_the_bounds)
{
    EXPECT_STREQ(text_beside(1e-9, {0.0}).text, "1e-9");
    EXPECT_STREQ(text_beside(-1e-9, {0.0}).text, "-1e-9");
    EXPECT_STREQ(text_beside(3125.5002, {3125.5}).text, "3.1255002e3");
    EXPECT_STREQ(text_beside(0.99996, {1.0}).text, "9.9996e-1");
    EXPECT_STREQ(text_beside(9.9999e-3, {0.0, 0.01}).text, "9.9999e-3");
}

TEST(number_text, names_the_side_of_a_bound_that_no_digits_distinguish)
{
    EXPECT_STREQ(text_beside(1000.0000001, {0.01, 1000.0}).text, "just above 1000");
    EXPECT_STREQ(text_beside(std::nextafter(0.01, 0.0), {0.01, 1000.0}).text, "just below 0.01");
    EXPECT_STREQ(text_beside(std::nextafter(-999999999.999, 0.0), {-999999999.999}).text,
                 "just above -999999999.999");
    EXPECT_STREQ(text_beside(1000.0, {0.01, 1000.0}).text, "1000");
}

TEST(number_text, of_an_upper_bound_is_within_the_bound)
{
    using zet_simulator::upper_bound_with_decimals;
    EXPECT_STREQ(text_of(upper_bound_with_decimals(999.9996)).text, "999.999");
    EXPECT_STREQ(text_of(upper_bound_with_decimals(3125.5)).text, "3125.5");
    EXPECT_STREQ(text_of(upper_bound_with_decimals(0.0004)).text, "0");
}

TEST(number_text, differs_for_neighbouring_numbers_of_single_precision)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> exponents(-30.0F, 8.9F);
    for (int i = 0; i < 10000; ++i)
    {
        const float bound = std::pow(10.0F, exponents(random));
        for (const float value : {std::nextafter(bound, 0.0F), std::nextafter(bound, 1e9F)})
        {
            const std::string text =
                text_beside(static_cast<double>(value), {0.0, static_cast<double>(bound)}).text;
            EXPECT_NE(text, text_of(static_cast<double>(bound)).text);
            EXPECT_NEAR(std::stod(text), static_cast<double>(value), 1e-3 * static_cast<double>(value));
        }
    }
}

} // namespace
