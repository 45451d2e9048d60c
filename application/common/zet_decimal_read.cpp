/** @file
 * Reading decimal numbers: the digits become a ratio of integers; long division gives its first 64 binary
 * digits and whether there is a remainder.
 */
#include "zet_decimal.h"

#include <bit>
#include <cstdint>
#include <limits>

#include "zet_big.h"

namespace
{

/** Most digits that are kept: enough to compare any number with the midpoint between two doubles. */
constexpr uint32_t max_digits = 770;

/** Larger exponents are cut to about this: no text is long enough for its digits to compensate for one. */
constexpr int32_t largest_exponent = 1 << 24;

/** Words of a big number: numbers reach 10^(max_digits + 345), plus 64 bits during the division. */
constexpr uint32_t max_words = 120;

/** A number as written in the text: digits × 10^exponent. */
struct written_t
{
    bool negative;
    const char *first;    /**< the first digit that is not 0; null when there is none */
    uint32_t digit_count; /**< kept digits, starting at first; the decimal point may be between them */
    bool more;            /**< some dropped digit is not 0 */
    int32_t exponent;     /**< of the last kept digit */
};

using big_t = zet_big_memory_t<max_words>;

bool is_digit(char character)
{
    return character >= '0' && character <= '9';
}

/** Reads the optional exponent after the digits; returns the text after it. */
const char *read_exponent(const char *text, int32_t &exponent)
{
    if (*text != 'e' && *text != 'E')
    {
        return text;
    }
    const char *digit = text + 1;
    const bool negative = *digit == '-';
    if (*digit == '-' || *digit == '+')
    {
        ++digit;
    }
    if (!is_digit(*digit))
    {
        return text;
    }
    int32_t value = 0;
    for (; is_digit(*digit); ++digit)
    {
        value = value < largest_exponent ? value * 10 + (*digit - '0') : value;
    }
    exponent += negative ? -value : value;
    return digit;
}

/** Adds one digit to the number. */
void keep_digit(written_t &number, const char *digit, bool behind_point)
{
    if (number.first == nullptr && *digit != '0')
    {
        number.first = digit;
    }
    const bool kept = number.first != nullptr && number.digit_count < max_digits;
    if (kept)
    {
        ++number.digit_count;
    }
    else if (number.first != nullptr)
    {
        number.more = number.more || *digit != '0';
    }
    if (behind_point && (kept || number.first == nullptr))
    {
        --number.exponent;
    }
    if (!behind_point && !kept && number.first != nullptr)
    {
        ++number.exponent;
    }
}

/** Reads a number; returns the text after it, or null when there is no digit. */
const char *read_written(const char *text, written_t &number)
{
    number.negative = *text == '-';
    if (*text == '-' || *text == '+')
    {
        ++text;
    }
    bool any = false;
    bool behind_point = false;
    for (; is_digit(*text) || (*text == '.' && !behind_point); ++text)
    {
        if (*text == '.')
        {
            behind_point = true;
            continue;
        }
        any = true;
        keep_digit(number, text, behind_point);
    }
    return any ? read_exponent(text, number.exponent) : nullptr;
}

/** Sets an integer to the kept digits. */
void set_digits(big_t &value, const written_t &number)
{
    zet_big_set(value, 0);
    const char *digit = number.first;
    for (uint32_t i = 0; i < number.digit_count; ++digit)
    {
        if (*digit != '.')
        {
            zet_big_multiply_add(value, 10U, static_cast<uint32_t>(*digit - '0'));
            ++i;
        }
    }
}

/** Returns the double nearest to (fraction + a rest below 1) × 2^exponent; the fraction's top bit is set. */
double assemble(uint64_t fraction, bool rest, int32_t exponent)
{
    using limits_t = std::numeric_limits<double>;
    const int32_t top = exponent + 64;
    if (top > limits_t::max_exponent)
    {
        return limits_t::infinity();
    }
    // A subnormal number loses one digit per power of two.
    const int32_t lost = top < limits_t::min_exponent ? limits_t::min_exponent - top : 0;
    if (lost > limits_t::digits)
    {
        return 0.0;
    }
    const auto drop = static_cast<uint32_t>(64 - limits_t::digits + lost);
    const uint64_t kept = drop < 64 ? fraction >> drop : 0U;
    const uint64_t half = uint64_t{1} << (drop - 1U);
    const uint64_t dropped = fraction & (half + (half - 1U));
    const bool up = dropped > half || (dropped == half && (rest || kept % 2 != 0));
    // The leading digit of a normal number is not stored; it adds one to the exponent, as a carry does.
    const auto biased = static_cast<uint64_t>(lost > 0 ? 0 : top - limits_t::min_exponent);
    return std::bit_cast<double>((biased << static_cast<uint32_t>(limits_t::digits - 1)) + kept +
                                 (up ? 1U : 0U));
}

/** Divides two integers that are not 0 and rounds the quotient to a double. */
double divide(big_t &dividend, big_t &divisor, bool more)
{
    // Bring both to the same number of bits: then the first or the second digit of the quotient is 1.
    int32_t exponent = static_cast<int32_t>(zet_big_bit_count(dividend) - zet_big_bit_count(divisor));
    if (exponent > 0)
    {
        zet_big_multiply_power_of_two(divisor, static_cast<uint32_t>(exponent));
    }
    else
    {
        zet_big_multiply_power_of_two(dividend, static_cast<uint32_t>(-exponent));
    }
    uint64_t quotient = 0;
    while (quotient >> 63U == 0)
    {
        quotient <<= 1U;
        if (zet_big_compare(dividend, divisor) >= 0)
        {
            zet_big_subtract(dividend, divisor);
            quotient |= 1U;
        }
        zet_big_multiply_add(dividend, 2U, 0);
        --exponent;
    }
    return assemble(quotient, more || dividend.count > 0, exponent + 1);
}

/** Returns the double nearest to a number that is not 0. */
double value_of(const written_t &number)
{
    const int32_t magnitude = number.exponent + static_cast<int32_t>(number.digit_count);
    if (magnitude > 310)
    {
        return std::numeric_limits<double>::infinity();
    }
    if (magnitude < -330)
    {
        return 0.0;
    }
    big_t dividend;
    set_digits(dividend, number);
    big_t divisor;
    zet_big_set(divisor, 1);
    if (number.exponent > 0)
    {
        zet_big_multiply_power_of_ten(dividend, static_cast<uint32_t>(number.exponent));
    }
    else
    {
        zet_big_multiply_power_of_ten(divisor, static_cast<uint32_t>(-number.exponent));
    }
    return divide(dividend, divisor, number.more);
}

} // namespace

double zet_decimal_read(const char *text, size_t *length)
{
    written_t number = {};
    const char *end = read_written(text, number);
    *length = end != nullptr ? static_cast<size_t>(end - text) : 0;
    if (end == nullptr)
    {
        return 0.0;
    }
    const double magnitude = number.first != nullptr ? value_of(number) : 0.0;
    return number.negative ? -magnitude : magnitude;
}
