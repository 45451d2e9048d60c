/** @file
 * The shortest decimal text of a number.
 *
 * A number that is neither an integer nor a `float` gets its digits from the free-format algorithm of Burger
 * and Dybvig ("Printing floating-point numbers quickly and accurately", 1996) in exact integer arithmetic: it
 * produces as many digits as are needed to distinguish the number from its two neighbours.
 */
#include "zet_decimal.h"

#include <bit>
#include <cfloat>
#include <cstdint>

#include "zet_big.h"
#include "zet_decimal_text.h"

namespace
{

/** Bits of a `double` that store its fraction. */
constexpr uint32_t fraction_bits = DBL_MANT_DIG - 1;

constexpr int32_t exponent_bias = DBL_MAX_EXP - 1;

/**
 * Words of a big number. The largest numbers stay below 10^310 times 2^4, the denominators below 2^1080, and
 * both below 2^1120 after the multiplication by ten.
 */
constexpr uint32_t max_words = 36;

/** Most digits that a `double` can need. */
constexpr uint32_t max_digits = 17;

using big_t = zet_big_memory_t<max_words>;

/** A binary floating-point number: fraction × 2^exponent. */
struct binary_t
{
    uint64_t fraction;
    int32_t exponent;
    bool lowest_of_binade; /**< the next lower number is only half as far away as the next higher one */
};

/**
 * State of the algorithm: the number is rest ÷ unit, and every number from below ÷ unit lower to
 * above ÷ unit higher reads back as it.
 */
struct state_t
{
    big_t rest;
    big_t unit;
    big_t below;
    big_t above;
    big_t sum;   /**< work space of compare_sum */
    bool closed; /**< the two ends also read back as the number, because a reader rounds ties to an even
                    fraction */
};

/** Sets a number to value × 2^power. */
void set(big_t &number, uint64_t value, uint32_t power)
{
    zet_big_set(number, value);
    zet_big_multiply_power_of_two(number, power);
}

/** Sets the state up for a number, not scaled yet. */
void begin(state_t &state, const binary_t &number)
{
    const uint32_t up = number.exponent > 0 ? static_cast<uint32_t>(number.exponent) : 0;
    const uint32_t down = number.exponent < 0 ? static_cast<uint32_t>(-number.exponent) : 0;
    const uint32_t finer = number.lowest_of_binade ? 1 : 0;
    set(state.rest, number.fraction, up + 1 + finer);
    set(state.unit, 1, down + 1 + finer);
    set(state.below, 1, up);
    set(state.above, 1, up + finer);
    state.closed = number.fraction % 2 == 0;
}

/** Compares the sum of two numbers with a third one. */
int compare_sum(state_t &state, const big_t &a, const big_t &b, const big_t &other)
{
    zet_big_copy(state.sum, a);
    zet_big_add(state.sum, b);
    return zet_big_compare(state.sum, other);
}

/** Returns whether the upper end of the interval reaches the unit. */
bool reaches_unit(state_t &state)
{
    const int order = compare_sum(state, state.rest, state.above, state.unit);
    return order > 0 || (order == 0 && state.closed);
}

/** Moves to a later digit. */
void next_places(state_t &state, uint32_t count)
{
    zet_big_multiply_power_of_ten(state.rest, count);
    zet_big_multiply_power_of_ten(state.below, count);
    zet_big_multiply_power_of_ten(state.above, count);
}

/** Rounds a quotient up; the divisor is positive. */
int32_t ceiling(int32_t dividend, int32_t divisor)
{
    return dividend > 0 ? (dividend + divisor - 1) / divisor : -(-dividend / divisor);
}

/** Scales the state so that the first digit of the number is the first one after the decimal point; returns
 * the power of ten. */
int32_t scale(state_t &state, const binary_t &number)
{
    // log10 of the number, rounded down to a power of two, with log10(2) = 0.30103; at most one too low.
    const int32_t log2 = number.exponent + static_cast<int32_t>(std::bit_width(number.fraction)) - 1;
    const int32_t power = ceiling(log2 * 30103, 100000);
    if (power > 0)
    {
        zet_big_multiply_power_of_ten(state.unit, static_cast<uint32_t>(power));
    }
    else
    {
        next_places(state, static_cast<uint32_t>(-power));
    }
    if (!reaches_unit(state))
    {
        return power;
    }
    zet_big_multiply_power_of_ten(state.unit, 1);
    return power + 1;
}

/** Removes the next digit from the rest, which is below ten units, and returns it. */
char next_digit(state_t &state)
{
    char digit = '0';
    while (zet_big_compare(state.rest, state.unit) >= 0)
    {
        zet_big_subtract(state.rest, state.unit);
        ++digit;
    }
    return digit;
}

/** Writes the shortest digits of a number that is not 0. */
char *write_shortest(const binary_t &number, char *end)
{
    char digits[max_digits];
    uint32_t count = 0;
    state_t state;
    begin(state, number);
    const int32_t exponent = scale(state, number);
    for (;;)
    {
        next_places(state, 1);
        char digit = next_digit(state);
        const int order = zet_big_compare(state.rest, state.below);
        const bool low_enough = order < 0 || (order == 0 && state.closed);
        const bool high_enough = reaches_unit(state);
        const int half = compare_sum(state, state.rest, state.rest, state.unit);
        const bool nearer_above = half > 0 || (half == 0 && digit % 2 != 0);
        if (high_enough && (!low_enough || nearer_above))
        {
            ++digit;
        }
        digits[count] = digit;
        ++count;
        if (low_enough || high_enough)
        {
            return zet_decimal_write_digits({digits, count, exponent}, end);
        }
    }
}

/** Splits the bits of a positive number into fraction and exponent. */
binary_t split(uint64_t bits)
{
    constexpr int32_t lowest_exponent = DBL_MIN_EXP - DBL_MANT_DIG;
    const uint64_t stored = bits & ((uint64_t{1} << fraction_bits) - 1U);
    const auto binade = static_cast<int32_t>(bits >> fraction_bits);
    if (binade == 0)
    {
        return {stored, lowest_exponent, false};
    }
    return {uint64_t{1} << fraction_bits | stored, lowest_exponent + binade - 1, stored == 0 && binade > 1};
}

/**
 * Returns whether a number is an unsigned 32-bit integer. Uses integer arithmetic only: most numbers in a
 * message are such integers, and many processors have no hardware for `double`.
 */
bool is_uint32(double value, uint32_t *whole)
{
    const auto bits = std::bit_cast<uint64_t>(value);
    const auto high = static_cast<uint32_t>(bits >> 32U);
    const auto low = static_cast<uint32_t>(bits);
    constexpr uint32_t exponent_of_one = 1023;
    // A sign makes it too large.
    const uint32_t exponent = (high >> 20U) - exponent_of_one;
    if (exponent > 31)
    {
        *whole = 0;
        return bits == 0;
    }
    // The first 32 digits of 53.
    const uint32_t fraction = 0x80000000U | high << 11U | low >> 21U;
    *whole = fraction >> (31U - exponent);
    return fraction << exponent << 1U == 0 && low << 11U == 0;
}

/** Returns the fraction of a normal number from its bits, with the leading digit that is not stored. */
uint64_t fraction_of(uint64_t bits)
{
    constexpr uint64_t leading = uint64_t{1} << fraction_bits;
    return leading | (bits & (leading - 1U));
}

/** Returns the exponent of the first digit of a positive number's fraction from the number's bits. */
int32_t exponent_of(uint64_t bits)
{
    return static_cast<int32_t>(bits >> fraction_bits) - exponent_bias;
}

/** Returns whether the bits of a positive number are those of an integer up to 2^53; stores the integer. */
bool is_exact_integer(uint64_t bits, uint64_t *whole)
{
    constexpr int32_t most = DBL_MANT_DIG;
    const int32_t exponent = exponent_of(bits);
    const uint64_t fraction = fraction_of(bits);
    *whole = 0;
    if (exponent < 0 || exponent > most || std::countr_zero(fraction) < most - 1 - exponent)
    {
        return bits == 0;
    }
    *whole = exponent < most ? fraction >> (most - 1 - exponent) : fraction * 2U;
    return exponent < most || fraction == uint64_t{1} << fraction_bits;
}

/** Returns whether a positive number, given by its bits, is exactly a `float`; stores the `float`'s bits. */
bool is_float(uint64_t bits, uint32_t *float_bits)
{
    constexpr int32_t more_digits = DBL_MANT_DIG - FLT_MANT_DIG;
    const int32_t binade = exponent_of(bits) + FLT_MAX_EXP - 1;
    const uint64_t fraction = fraction_of(bits);
    // A subnormal `float` loses one digit per power of two, and its leading digit is stored.
    const int32_t lost = more_digits + (binade > 0 ? 0 : 1 - binade);
    if (lost >= DBL_MANT_DIG || binade >= 2 * FLT_MAX_EXP - 1 || std::countr_zero(fraction) < lost)
    {
        return false;
    }
    *float_bits = static_cast<uint32_t>(fraction >> lost);
    if (binade > 0)
    {
        *float_bits += (static_cast<uint32_t>(binade) - 1U) << (FLT_MANT_DIG - 1);
    }
    return true;
}

} // namespace

size_t zet_decimal_write(double value, char *text)
{
    uint32_t small = 0;
    if (is_uint32(value, &small))
    {
        return static_cast<size_t>(zet_decimal_write_uint32(small, text) - text);
    }
    const auto bits = std::bit_cast<uint64_t>(value);
    const uint64_t magnitude = bits & (UINT64_MAX >> 1U);
    char *end = text;
    if (magnitude != bits)
    {
        *end++ = '-';
    }
    uint64_t whole = 0;
    if (is_exact_integer(magnitude, &whole))
    {
        return static_cast<size_t>(zet_decimal_write_uint64(whole, end) - text);
    }
    uint32_t as_float = 0;
    if (is_float(magnitude, &as_float))
    {
        return static_cast<size_t>(end - text) + zet_decimal_write_float(std::bit_cast<float>(as_float), end);
    }
    return static_cast<size_t>(write_shortest(split(magnitude), end) - text);
}
