/** @file
 * The text of integers and of decimal digits.
 */
#include "zet_decimal_text.h"

#include <cstring>

namespace
{

/** Appends characters; returns the end of the text. */
char *append(char *end, const char *characters, uint32_t count)
{
    std::memcpy(end, characters, count);
    return end + count;
}

/** Appends zeros; returns the end of the text. */
char *append_zeros(char *end, int32_t count)
{
    for (; count > 0; --count)
    {
        *end++ = '0';
    }
    return end;
}

/** Appends a decimal number without an exponent. */
char *append_plain(char *end, const zet_decimal_t &decimal)
{
    const auto count = static_cast<int32_t>(decimal.count);
    if (decimal.exponent <= 0)
    {
        end = append(end, "0.", 2);
        end = append_zeros(end, -decimal.exponent);
        return append(end, decimal.digits, decimal.count);
    }
    if (decimal.exponent >= count)
    {
        end = append(end, decimal.digits, decimal.count);
        return append_zeros(end, decimal.exponent - count);
    }
    const auto whole = static_cast<uint32_t>(decimal.exponent);
    end = append(end, decimal.digits, whole);
    *end++ = '.';
    return append(end, decimal.digits + whole, decimal.count - whole);
}

/** Appends a decimal number with an exponent. */
char *append_scientific(char *end, const zet_decimal_t &decimal)
{
    *end++ = decimal.digits[0];
    if (decimal.count > 1)
    {
        *end++ = '.';
        end = append(end, decimal.digits + 1, decimal.count - 1);
    }
    const int32_t exponent = decimal.exponent - 1;
    *end++ = 'e';
    *end++ = exponent < 0 ? '-' : '+';
    const int32_t magnitude = exponent < 0 ? -exponent : exponent;
    if (magnitude < 10)
    {
        *end++ = '0';
    }
    return zet_decimal_write_uint32(static_cast<uint32_t>(magnitude), end);
}

/** Returns whether a decimal number is at most as long without an exponent as with one. */
bool is_plain_shorter(const zet_decimal_t &decimal)
{
    const auto count = static_cast<int32_t>(decimal.count);
    const int32_t point = decimal.exponent;
    const int32_t magnitude = point < 1 ? 1 - point : point - 1;
    const int32_t scientific = count + (count > 1 ? 1 : 0) + (magnitude < 100 ? 4 : 5);
    const int32_t plain = point <= 0 ? count + 2 - point : point >= count ? point : count + 1;
    return plain <= scientific;
}

} // namespace

char *zet_decimal_write_uint64(uint64_t number, char *end)
{
    constexpr uint32_t billion = 1000000000;
    if (number <= UINT32_MAX)
    {
        return zet_decimal_write_uint32(static_cast<uint32_t>(number), end);
    }
    char *const last_digit = zet_decimal_write_uint64(number / billion, end) - 1;
    const char digit = *last_digit;
    // A digit 1 before the other nine keeps their leading zeros.
    char *const text_end =
        zet_decimal_write_uint32(billion + static_cast<uint32_t>(number % billion), last_digit);
    *last_digit = digit;
    return text_end;
}

char *zet_decimal_write_digits(const zet_decimal_t &decimal, char *end)
{
    return is_plain_shorter(decimal) ? append_plain(end, decimal) : append_scientific(end, decimal);
}
