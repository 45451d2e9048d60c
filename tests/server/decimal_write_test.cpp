/** @file
 * Writing decimal numbers, compared with the C++ library of this computer.
 */
#include "zet_decimal.h"

#include <bit>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

namespace
{

constexpr double most_exact = 9007199254740992.0;

std::string written(double value)
{
    char text[zet_decimal_text_size];
    return {text, zet_decimal_write(value, text)};
}

std::string written_float(float value)
{
    char text[zet_decimal_text_size];
    return {text, zet_decimal_write_float(value, text)};
}

/** The shortest text of a number in the standard library, in any format or in this one. */
template <typename number_t, class... format_t> std::string shortest(number_t value, format_t... format)
{
    char text[400];
    return {text, std::to_chars(text, text + sizeof text, value, format...).ptr};
}

/** The expected text of a number other than 0: like the library's, but with 0 for digits that are not needed.
 */
template <typename number_t> std::string expected_text(number_t value)
{
    const std::string plain = shortest(value);
    const std::string scientific = shortest(value, std::chars_format::scientific);
    if (plain.find_first_of(".e") != std::string::npos)
    {
        return plain;
    }
    std::string digits;
    for (const char character : scientific.substr(0, scientific.find('e')))
    {
        digits += character == '.' || character == '-' ? "" : std::string(1, character);
    }
    const size_t zeros = plain.size() - digits.size() - (value < 0 ? 1 : 0);
    const std::string rounded = (value < 0 ? "-" : "") + digits + std::string(zeros, '0');
    return rounded.size() <= scientific.size() ? rounded : scientific;
}

/** Whether the text of a float reads back exactly and is as short as the library's. */
bool is_right(uint32_t bits)
{
    const auto value = std::bit_cast<float>(bits);
    char text[zet_decimal_text_size];
    const char *const end = text + zet_decimal_write_float(value, text);
    char shortest_text[64];
    const char *const shortest_end =
        std::to_chars(shortest_text, shortest_text + sizeof shortest_text, value).ptr;
    float read = 0;
    const auto result = std::from_chars(text, end, read);
    return result.ptr == end && std::bit_cast<uint32_t>(read) == bits &&
           (std::string_view(text, end) == std::string_view(shortest_text, shortest_end) ||
            (std::trunc(value) == value && end - text == shortest_end - shortest_text));
}

/** Writes the floats with the bits @p first, @p first + @p distance, …; returns how many texts are wrong. */
uint64_t wrong_floats(uint64_t first, uint64_t distance)
{
    uint64_t wrong = 0;
    for (uint64_t bits = first; bits <= UINT32_MAX; bits += distance)
    {
        const bool finite = (bits & 0x7F800000U) != 0x7F800000U;
        if (finite && !is_right(static_cast<uint32_t>(bits)))
        {
            ++wrong;
            ADD_FAILURE() << "bits " << bits << ": "
                          << written_float(std::bit_cast<float>(static_cast<uint32_t>(bits)));
        }
    }
    return wrong;
}

TEST(decimal_write, writes_every_float_so_that_it_reads_back)
{
    const bool all_floats = std::getenv("VANTOR_CAMPAIGN") != nullptr;
    const uint64_t distance = all_floats ? 1 : 19937;
    ASSERT_EQ(wrong_floats(0, distance), 0U);
    if (all_floats)
    {
        std::cout << "all finite floats among " << uint64_t{UINT32_MAX} + 1 << " bit patterns read back\n";
    }
}

TEST(decimal_write, writes_floats_at_the_edges_of_binades)
{
    for (uint32_t binade = 0; binade < 255; ++binade)
    {
        for (const uint32_t stored : {0U, 1U, 2U, 3U, 0x3FFFFFU, 0x400000U, 0x7FFFFEU, 0x7FFFFFU})
        {
            const auto value = std::bit_cast<float>(binade << 23U | stored);
            if (value != 0.0F)
            {
                EXPECT_EQ(written_float(value), expected_text(value));
                EXPECT_EQ(written_float(-value), expected_text(-value));
            }
        }
    }
    EXPECT_EQ(written_float(0.0F), "0");
    EXPECT_EQ(written_float(-0.0F), "-0");
}

TEST(decimal_write, chooses_the_shorter_form)
{
    for (const auto &[value, text] : {std::pair(0.01F, "0.01"),
                                      {0.001F, "0.001"},
                                      {0.0001F, "1e-04"},
                                      {0.0012F, "0.0012"},
                                      {0.00012F, "0.00012"},
                                      {0.000012F, "1.2e-05"},
                                      {0.000123F, "0.000123"},
                                      {0.00001F, "1e-05"},
                                      {9e-10F, "9e-10"},
                                      {1e4F, "10000"},
                                      {1e5F, "1e+05"},
                                      {9e5F, "9e+05"},
                                      {1.2e5F, "120000"},
                                      {1.2e6F, "1200000"},
                                      {1.2e7F, "1.2e+07"},
                                      {1e10F, "1e+10"}})
    {
        EXPECT_EQ(written_float(value), text);
    }
    EXPECT_EQ(written(1e-100), "1e-100");
    EXPECT_EQ(written(0.1), "0.1");
    EXPECT_EQ(written(0.0001), "1e-04");
    EXPECT_EQ(written(1.2e100), "1.2e+100");
    EXPECT_EQ(written(1e16), "1e+16");
}

TEST(decimal_write, writes_a_double_that_is_exactly_a_float_like_that_float)
{
    const float smallest = std::numeric_limits<float>::denorm_min();
    for (const float value : {smallest, 3 * smallest, FLT_MIN, FLT_MIN - smallest, FLT_MIN / 2, 0.1F, 3.3F,
                              FLT_MAX, std::ldexp(1.0F, 100)})
    {
        EXPECT_EQ(written(static_cast<double>(value)), written_float(value));
        EXPECT_EQ(written(-static_cast<double>(value)), written_float(-value));
        for (const double limit : {0.0, std::numeric_limits<double>::infinity()})
        {
            const double neighbour = std::nextafter(static_cast<double>(value), limit);
            EXPECT_EQ(written(neighbour), expected_text(neighbour));
        }
    }
    for (const double value :
         {std::ldexp(1.0, -150), std::ldexp(3.0, -150), std::ldexp(1.0, 128), std::ldexp(1.0, -1074),
          static_cast<double>(FLT_MAX) * 2, static_cast<double>(FLT_MIN) / 3})
    {
        EXPECT_EQ(written(value), expected_text(value));
    }
}

TEST(decimal_write, writes_whole_numbers_without_an_exponent)
{
    for (const double value : {0.0, 1.0, 4294967295.0, 4294967296.0, 16777217.0, 33554432.0, 3e9, 1e15,
                               most_exact - 1, most_exact, 4503599627370497.0})
    {
        const std::string digits = std::to_string(static_cast<uint64_t>(value));
        EXPECT_EQ(written(value), digits);
        EXPECT_EQ(written(-value), "-" + digits);
    }
    EXPECT_EQ(written(most_exact + 2), "9007199254740994");
    EXPECT_EQ(written(most_exact / 4 + 0.5), "2251799813685248.5");
    EXPECT_EQ(written(most_exact * 2), "1.8014399e+16") << "written like a float";
}

TEST(decimal_write, writes_doubles_of_every_exponent)
{
    std::mt19937_64 random(1);
    for (uint64_t binade = 0; binade < 2047; ++binade)
    {
        for (const uint64_t stored :
             {uint64_t{0}, uint64_t{1}, uint64_t{0xFFFFFFFFFFFFF}, random() >> 12U, random() >> 12U})
        {
            const auto value = std::bit_cast<double>(binade << 52U | stored);
            const bool is_float = std::fabs(value) <= static_cast<double>(FLT_MAX) &&
                                  static_cast<double>(static_cast<float>(value)) == value;
            const bool is_exact = std::trunc(value) == value && value <= most_exact;
            if (!is_float && !is_exact)
            {
                EXPECT_EQ(written(value), expected_text(value));
            }
        }
    }
}

} // namespace
