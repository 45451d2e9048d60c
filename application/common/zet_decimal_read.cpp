/** @file
 * Reading decimal numbers: the digits become a ratio of whole numbers, of which the first 64 binary digits
 * and whether anything is left are found by long division.
 */
#include "zet_decimal.h"

#include <bit>
#include <cstdint>
#include <limits>

#include "zet_big.h"

namespace
{

/** Digits that are kept. No number that lies between two doubles needs more to be told from their middle. */
constexpr uint32_t max_digits = 770;

/** Exponents count up to here; no text is so long that its digits could make up for a larger one. */
constexpr int32_t largest_exponent = 1 << 24;

/** Words of a big number: numbers reach 10^(max_digits + 345), and 64 bits more while they are divided. */
constexpr uint32_t max_words = 120;

/** A number as it is written: digits × 10^exponent. */
struct written_t
{
    bool negative;
    const char *first;    /**< the first digit that is not 0; null when there is none */
    uint32_t digit_count; /**< kept digits, from the first on; the decimal point may lie between them */
    bool more;            /**< digits that were not kept are not all 0 */
    int32_t exponent;     /**< of the last kept digit */
};

using big_t = zet_big_memory_t<max_words>;

bool is_digit(char character)
{
    return character >= '0' && character <= '9';
}

/** Reads an exponent, if there is one, behind the digits; returns what follows. */
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

/** Takes one digit into account. */
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

/** Reads what is written; returns what follows, or null when there is no digit. */
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

/** Makes a whole number of the kept digits. */
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

/** The nearest double to (fraction + a rest below 1) × 2^exponent; the fraction has its top bit set. */
double assemble(uint64_t fraction, bool rest, int32_t exponent)
{
    using limits_t = std::numeric_limits<double>;
    const int32_t top = exponent + 64;
    if (top > limits_t::max_exponent)
    {
        return limits_t::infinity();
    }
    // Below the normal numbers each power of two costs a digit.
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
    // The leading digit of a normal number is not stored but counts one up in the exponent; so does a carry.
    const auto biased = static_cast<uint64_t>(lost > 0 ? 0 : top - limits_t::min_exponent);
    return std::bit_cast<double>((biased << static_cast<uint32_t>(limits_t::digits - 1)) + kept +
                                 (up ? 1U : 0U));
}

/** Divides two whole numbers that are not 0 and rounds the result, times two to a power, to a double. */
double divide(big_t &dividend, big_t &divisor, bool more)
{
    // As large as the divisor or half of it, so that the first or the second digit of the quotient is a one.
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

/** The double nearest to a number that is not 0. */
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
