/** @file
 * Tests of formatted text: it is what the C library of this machine writes.
 */
#include "format.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace
{

/** Formats a text with the code under test; the buffer has this size. */
[[gnu::format(printf, 2, 3)]] std::string formatted(size_t size, const char *format, ...)
{
    std::string text(size + 1, '#');
    va_list arguments;
    va_start(arguments, format);
    const int count = cortex_m4::format(text.data(), size, format, arguments);
    va_end(arguments);
    EXPECT_EQ(text[size], '#') << "wrote beyond the buffer";
    return std::to_string(count) + ":" + (size > 0 ? text.c_str() : "");
}

/** Formats a text with the C library. */
template <typename... arguments_t>
std::string expected(size_t size, const char *format, const arguments_t &...arguments)
{
    std::string text(size + 1, '#');
    const int count = std::snprintf(text.data(), size, format, arguments...);
    return std::to_string(count) + ":" + (size > 0 ? text.c_str() : "");
}

// The formats are not literals, so that the compiler does not check their arguments.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

/** Expects the same text as from the C library, for a conversion with these flags, widths and precisions. */
template <typename value_t>
void compare(const std::string &conversion, const std::string &all_flags, value_t value)
{
    for (unsigned subset = 0; subset < 1U << all_flags.size(); ++subset)
    {
        std::string flags;
        for (size_t i = 0; i < all_flags.size(); ++i)
        {
            flags += (subset >> i & 1U) != 0 ? all_flags.substr(i, 1) : "";
        }
        for (const char *width : {"", "1", "5", "12", ".0", ".1", ".4", "7.3", "3.7", "38", ".35"})
        {
            const std::string format = "<%" + flags + width + conversion + ">";
            EXPECT_EQ(formatted(50, format.c_str(), value), expected(50, format.c_str(), value)) << format;
        }
    }
}

TEST(format, writes_signed_numbers)
{
    for (const int value : {0, 1, -1, 9, 10, -10, 12345, -99999, INT_MAX, INT_MIN})
    {
        compare("d", "-0+ ", value);
        compare("i", "-0+ ", value);
        compare("ld", "-0+ ", static_cast<long>(value));
        compare("hd", "-0+ ", value);
        compare("hhi", "-0+ ", value);
        compare("zd", "-0", static_cast<ptrdiff_t>(value));
    }
    compare("ld", "-0+ ", LONG_MIN);
    compare("ld", "-0+ ", LONG_MAX);
}

TEST(format, writes_unsigned_numbers)
{
    for (const unsigned value : {0U, 1U, 7U, 8U, 255U, 0xABCDEFU, UINT_MAX})
    {
        for (const char *conversion : {"u", "x", "X"})
        {
            compare(conversion, "-0", value);
            compare(std::string("l") + conversion, "-0", static_cast<unsigned long>(value));
            compare(std::string("z") + conversion, "-0", static_cast<size_t>(value));
        }
        compare("hu", "-0", value);
        compare("hhx", "-0#", value);
        compare("o", "-0#", value);
        compare("x", "-0#", value);
        compare("X", "-0#", value);
    }
    compare("lu", "-0", ULONG_MAX);
    compare("lo", "-0", ULONG_MAX);
}

TEST(format, writes_texts_and_characters)
{
    for (const char *text : {"", "a", "abc", "abcdefghijklm"})
    {
        compare("s", "-", text);
    }
    EXPECT_EQ(formatted(40, "<%c%3c%-3c>", 'a', 'b', 'c'), expected(40, "<%c%3c%-3c>", 'a', 'b', 'c'));
    EXPECT_EQ(formatted(40, "100 %%, %s", "x"), "8:100 %, x");
    EXPECT_EQ(formatted(40, "%p", reinterpret_cast<void *>(0xA5)), "4:0xa5");
}

TEST(format, takes_widths_and_precisions_from_arguments)
{
    EXPECT_EQ(formatted(40, "<%*d|%-*d|%.*s|%0*x>", 5, 7, 4, 8, 2, "abc", 4, 0xBU),
              expected(40, "<%*d|%-*d|%.*s|%0*x>", 5, 7, 4, 8, 2, "abc", 4, 0xBU));
}

TEST(format, takes_a_negative_width_for_the_left_and_a_negative_precision_for_none)
{
    EXPECT_EQ(formatted(40, "<%*d|%0*d|%.*d|%.*s>", -5, 7, -4, 8, -1, 0, -2, "abc"),
              expected(40, "<%*d|%0*d|%.*d|%.*s>", -5, 7, -4, 8, -1, 0, -2, "abc"));
}

TEST(format, writes_a_missing_text)
{
    const char *const missing = nullptr;
    EXPECT_EQ(formatted(40, std::string("<%s|%8s|%.3s> %d").c_str(), missing, missing, missing, 7),
              "23:<(null)|  (null)|(nu> 7");
}

TEST(format, reads_no_text_beyond_its_precision)
{
    const char text[3] = {'a', 'b', 'c'};
    EXPECT_EQ(formatted(40, "%.3s", text), "3:abc");
}

TEST(format, cuts_a_text_that_does_not_fit)
{
    for (size_t size = 0; size < 30; ++size)
    {
        EXPECT_EQ(formatted(size, "sensor %lu: %5d of %-4s.", 3UL, -12, "ab"),
                  expected(size, "sensor %lu: %5d of %-4s.", 3UL, -12, "ab"));
    }
}

TEST(format, writes_the_shortest_text_of_a_floating_point_number)
{
    EXPECT_EQ(formatted(60, "%f %.2f %g %E", 0.25, 0.1, -1.5, 0.0), "15:0.25 0.1 -1.5 0");
    EXPECT_EQ(formatted(60, "<%8f|%-8g|%08g|%+g>", 0.25, 0.25, -0.25, 0.25),
              "34:<    0.25|0.25    |-0000.25|+0.25>");
    const double infinite = std::numeric_limits<double>::infinity();
    EXPECT_EQ(formatted(60, "<%f|%f|%05f>", infinite, -infinite, std::nan("")), "16:<inf|-inf|  nan>");
    EXPECT_EQ(formatted(60, "%f after", static_cast<double>(0.1F)), "9:0.1 after");
}

TEST(format, ends_at_an_unknown_conversion)
{
    EXPECT_EQ(formatted(40, std::string("a %d %k %d").c_str(), 1, 2, 3), "4:a 1 ");
    EXPECT_EQ(formatted(40, std::string("a %lld").c_str(), 1LL), "2:a ");
    EXPECT_EQ(formatted(40, std::string("a %").c_str()), "2:a ");
}

} // namespace
