/** @file
 * The shortest text of a `float`, in 64-bit integer arithmetic, by the algorithm of Raffaello Giulietti ("The
 * Schubfach way to render doubles", 2020): the number and the two ends of the interval that reads back as it
 * are multiplied by a power of ten from a table, which leaves one or two candidates.
 */
#include "zet_decimal.h"

#include <bit>
#include <cfloat>
#include <cstdint>

#include "zet_decimal_text.h"

namespace
{

/** The range of powers of ten that a `float` can need. */
constexpr int32_t first_power = -31;
constexpr int32_t last_power = 45;

/** 10^power, rounded up to 64 binary digits, for every power; the highest binary digit is 1. */
struct powers_of_ten_t
{
    uint64_t digits[last_power - first_power + 1];
};

/** A 192-bit integer, lowest word first, for computing the table. */
struct wide_t
{
    uint32_t words[6];
};

constexpr wide_t times_ten(wide_t number)
{
    uint64_t carry = 0;
    for (uint32_t &word : number.words)
    {
        carry += uint64_t{word} * 10U;
        word = static_cast<uint32_t>(carry);
        carry >>= 32U;
    }
    return number;
}

constexpr wide_t divided_by_ten(wide_t number)
{
    uint64_t rest = 0;
    for (uint32_t i = 6; i-- > 0;)
    {
        rest = rest << 32U | number.words[i];
        number.words[i] = static_cast<uint32_t>(rest / 10U);
        rest %= 10U;
    }
    return number;
}

constexpr bool bit(const wide_t &number, uint32_t place)
{
    return (number.words[place / 32U] >> place % 32U & 1U) != 0U;
}

/** Returns the highest 64 binary digits of a number, rounded up. */
constexpr uint64_t leading_digits(const wide_t &number, bool is_exact)
{
    uint32_t place = 192;
    while (!bit(number, place - 1U))
    {
        --place;
    }
    uint64_t digits = 0;
    for (uint32_t i = 0; i < 64U; ++i)
    {
        digits = digits << 1U | (i < place && bit(number, place - 1U - i) ? 1U : 0U);
    }
    for (uint32_t i = 0; i + 64U < place; ++i)
    {
        is_exact = is_exact && !bit(number, i);
    }
    return digits + (is_exact ? 0U : 1U);
}

constexpr powers_of_ten_t make_powers_of_ten()
{
    powers_of_ten_t powers = {};
    wide_t number = {{1}};
    for (int32_t power = 0; power <= last_power; ++power)
    {
        powers.digits[power - first_power] = leading_digits(number, true);
        number = times_ten(number);
    }
    number = {{0, 0, 0, 0, 0, 1U << 31U}};
    for (int32_t power = -1; power >= first_power; --power)
    {
        number = divided_by_ten(number);
        powers.digits[power - first_power] = leading_digits(number, false);
    }
    return powers;
}

constexpr powers_of_ten_t powers_of_ten = make_powers_of_ten();

/** Returns log10(2^exponent), or log10(3/4 × 2^exponent) for a shorter interval, rounded down. */
int32_t floor_log10(int32_t exponent, bool is_shorter)
{
    // In units of 2^-22: log10(2) = 1262611, log10(4/3) = 524031.
    return (exponent * 1262611 - (is_shorter ? 524031 : 0)) >> 22U;
}

/** Returns log2(10^power), rounded down. */
int32_t floor_log2(int32_t power)
{
    // log2(10) in units of 2^-19.
    return (power * 1741647) >> 19U;
}

/** Returns factor × number ÷ 2^64, rounded to odd: to the odd neighbour when it is not an integer. */
uint32_t multiply(uint64_t factor, uint32_t number)
{
    const uint64_t low = (factor & 0xFFFFFFFFU) * number;
    const uint64_t high = (factor >> 32U) * number + (low >> 32U);
    const auto rest = static_cast<uint32_t>(high);
    return static_cast<uint32_t>(high >> 32U) | (rest > 1U ? 1U : 0U);
}

/** A number: digits × 10^exponent. */
struct scaled_t
{
    uint32_t digits;
    int32_t exponent;
};

/** Returns the shortest decimal number that reads back as fraction × 2^exponent; it may end with zeros. */
scaled_t shortest(uint32_t fraction, int32_t exponent, bool lowest_of_binade)
{
    // In quarters of the last binary digit: the number, and the ends of its interval.
    const uint32_t number = 4U * fraction;
    const uint32_t below = number - (lowest_of_binade ? 1U : 2U);
    const uint32_t above = number + 2U;
    const int32_t power = floor_log10(exponent, lowest_of_binade);
    const uint64_t factor = powers_of_ten.digits[-power - first_power];
    const auto shift = static_cast<uint32_t>(exponent + floor_log2(-power) + 1);
    const uint32_t scaled = multiply(factor, number << shift);
    // An end reads back as the number when its fraction is even.
    const uint32_t open = fraction % 2U;
    const uint32_t least = multiply(factor, below << shift) + open;
    const uint32_t most = multiply(factor, above << shift) - open;

    const uint32_t digits = scaled / 4U;
    const uint32_t tens = digits / 10U * 10U;
    const bool tens_fit = least <= 4U * tens;
    const bool next_tens_fit = 4U * tens + 40U <= most;
    if (digits >= 10U && tens_fit != next_tens_fit)
    {
        return {tens + (next_tens_fit ? 10U : 0U), power};
    }
    const bool fits = least <= 4U * digits;
    const bool next_fits = 4U * digits + 4U <= most;
    if (fits != next_fits)
    {
        return {digits + (next_fits ? 1U : 0U), power};
    }
    const uint32_t middle = 4U * digits + 2U;
    const bool up = scaled > middle || (scaled == middle && digits % 2U != 0U);
    return {digits + (up ? 1U : 0U), power};
}

/** Returns the shortest decimal number for the bits of a positive `float`. */
scaled_t shortest_of_bits(uint32_t bits)
{
    constexpr int32_t lowest_exponent = FLT_MIN_EXP - FLT_MANT_DIG;
    const uint32_t stored = bits & 0x7FFFFFU;
    const auto binade = static_cast<int32_t>(bits >> 23U);
    if (binade == 0)
    {
        return shortest(stored, lowest_exponent, false);
    }
    return shortest(1U << 23U | stored, lowest_exponent + binade - 1, stored == 0U && binade > 1);
}

/** Writes a number that is not 0. */
char *write(scaled_t number, char *end)
{
    for (; number.digits % 100U == 0U; number.exponent += 2)
    {
        number.digits /= 100U;
    }
    if (number.digits % 10U == 0U)
    {
        number.digits /= 10U;
        ++number.exponent;
    }
    char digits[10];
    char *const last = digits + sizeof digits;
    char *first = last;
    for (; number.digits > 0U; number.digits /= 10U)
    {
        *--first = static_cast<char>('0' + number.digits % 10U);
    }
    const auto count = static_cast<uint32_t>(last - first);
    return zet_decimal_write_digits({first, count, number.exponent + static_cast<int32_t>(count)}, end);
}

} // namespace

size_t zet_decimal_write_float(float value, char *text)
{
    const auto bits = std::bit_cast<uint32_t>(value);
    const uint32_t magnitude = bits & 0x7FFFFFFFU;
    char *end = text;
    if (magnitude != bits)
    {
        *end++ = '-';
    }
    if (magnitude == 0U)
    {
        *end++ = '0';
    }
    else
    {
        end = write(shortest_of_bits(magnitude), end);
    }
    return static_cast<size_t>(end - text);
}
