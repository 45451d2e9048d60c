/** @file
 * Reading decimal numbers, compared with the C library of this computer.
 */
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "zet_decimal.h"

namespace
{

/** Reads a text with both and expects the same bits and the same length. */
void compare(const std::string &text)
{
    char *end = nullptr;
    const double expected = std::strtod(text.c_str(), &end);
    size_t length = 0;
    const double value = zet_decimal_read(text.c_str(), &length);
    EXPECT_EQ(std::bit_cast<uint64_t>(value), std::bit_cast<uint64_t>(expected)) << text;
    EXPECT_EQ(length, static_cast<size_t>(end - text.c_str())) << text;
}

/** Prints a number with a printf format. */
template <typename number_t> std::string print(const char *format, number_t value)
{
    char text[2048];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

TEST(decimal_read, reads_every_form_of_a_number)
{
    for (const char *text : {"0", "-0", "+1", "0.0", "007", "1.", ".5", "-12.75", "1e3", "1E+3", "1e-3", "1e",
                             "1e+", "1.5x", "1.2.3", "4294967295", "9007199254740993", "18446744073709551616",
                             "123456789012345678901234567890"})
    {
        compare(text);
    }
}

TEST(decimal_read, reads_nothing_from_text_that_is_not_a_number)
{
    for (const char *text : {"", "-", "+", ".", "e5", "x", "-x", "true"})
    {
        compare(text);
    }
}

TEST(decimal_read, reads_the_ends_of_the_range)
{
    for (const char *text : {"5e-324", "2.4703282292062327e-324", "2.4703282292062328e-324",
                             "2.2250738585072011e-308", "2.2250738585072014e-308", "1.7976931348623157e308",
                             "1.7976931348623158e308", "1.7976931348623159e308", "1e309", "1e400", "-1e400",
                             "1e-400", "1e999999999999", "1e-999999999999", "0e999999999999"})
    {
        compare(text);
    }
}

TEST(decimal_read, uses_every_digit_of_a_long_number)
{
    const std::string zeros(5000, '0');
    for (const std::string &text :
         {"1" + zeros, "1" + zeros + "e-5000", "0." + zeros + "1e5000", "0." + zeros + "1",
          "9007199254740993" + std::string(900, '0'), "9007199254740993." + zeros + "1",
          "9007199254740993." + zeros, "1" + std::string(1000, '0') + "1e-1000"})
    {
        compare(text);
    }
}

TEST(decimal_read, rounds_halfway_between_two_numbers_to_the_even_one)
{
    std::mt19937_64 random(1);
    for (int i = 0; i < 5000; ++i)
    {
        const auto bits = random() & 0x7FFFFFFFFFFFFFFFU;
        const double below = std::bit_cast<double>(bits);
        const double above = std::bit_cast<double>(bits + 1);
        if (std::isfinite(above))
        {
            const std::string middle =
                print("%.1100Le", (static_cast<long double>(below) + static_cast<long double>(above)) / 2.0L);
            compare(middle);
            const size_t exponent = middle.find('e');
            compare(std::string(middle).insert(exponent, "1"));
        }
    }
}

TEST(decimal_read, reads_back_printed_numbers)
{
    std::mt19937_64 random(2);
    for (int i = 0; i < 50000; ++i)
    {
        const double value = std::bit_cast<double>(random());
        if (std::isfinite(value))
        {
            compare(print("%.17g", value));
            compare(print("%.6g", value));
        }
    }
}

TEST(decimal_read, reads_random_digits)
{
    std::mt19937 random(3);
    const auto below = [&random](unsigned limit) { return static_cast<int>(random() % limit); };
    for (int i = 0; i < 50000; ++i)
    {
        std::string text = below(4) == 0 ? "-" : "";
        const int digits = 1 + below(40);
        const int point = below(45);
        for (int digit = 0; digit < digits; ++digit)
        {
            text += digit == point ? "." : "";
            text += static_cast<char>('0' + below(10));
        }
        text += below(2) == 0 ? "e" + std::to_string(below(700) - 350) : "";
        compare(text);
    }
}

} // namespace
