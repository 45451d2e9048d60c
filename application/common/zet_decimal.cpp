/** @file
 * The shortest decimal text of a number.
 *
 * The digits come from the free-format algorithm of Burger and Dybvig ("Printing floating-point numbers
 * quickly and accurately", 1996) in exact integer arithmetic: as many digits are made as are needed to tell
 * the number from its two neighbours.
 */
#include "zet_decimal.h"

#include <bit>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace
{

/** Whole numbers up to here are exact in a `double`. */
constexpr double largest_exact_integer = 9007199254740992.0;

/** Most digits that a `double` can need. */
constexpr uint32_t max_digits = 17;

/**
 * Words of a big number. The largest numbers stay below 10^310 times 2^4, the denominators below 2^1080, and
 * both below 2^1120 after the multiplication by ten.
 */
constexpr uint32_t max_words = 36;

/** A non-negative whole number, the lowest word first; words from count on are 0. */
struct big_t
{
    uint32_t words[max_words];
    uint32_t count;
};

/** A binary floating-point number: fraction × 2^exponent. */
struct binary_t
{
    uint64_t fraction;
    int32_t exponent;
    bool lowest_of_binade; ///< the neighbour below is only half as far away as the one above
};

/** A decimal number: 0.d₁d₂d₃… × 10^exponent. */
struct decimal_t
{
    char digits[max_digits];
    uint32_t count;
    int32_t exponent;
};

/** Makes value × 2^shift. */
big_t make_big(uint64_t value, uint32_t shift)
{
    big_t result = {};
    const uint32_t first = shift / 32U;
    const uint32_t bits = shift % 32U;
    const uint64_t low = (value & 0xFFFFFFFFU) << bits;
    const uint64_t high = ((value >> 32U) << bits) + (low >> 32U);
    result.words[first] = static_cast<uint32_t>(low);
    result.words[first + 1] = static_cast<uint32_t>(high);
    result.words[first + 2] = static_cast<uint32_t>(high >> 32U);
    result.count = first + 3;
    return result;
}

/** Multiplies by ten. */
void times_ten(big_t *number)
{
    uint64_t carry = 0;
    for (uint32_t i = 0; i < number->count; ++i)
    {
        carry += uint64_t{number->words[i]} * 10U;
        number->words[i] = static_cast<uint32_t>(carry);
        carry >>= 32U;
    }
    if (carry > 0)
    {
        number->words[number->count] = static_cast<uint32_t>(carry);
        ++number->count;
    }
}

/** Compares two numbers: negative, zero or positive like a − b. */
int compare(const big_t &a, const big_t &b)
{
    for (uint32_t i = max_words; i-- > 0;)
    {
        if (a.words[i] != b.words[i])
        {
            return a.words[i] < b.words[i] ? -1 : 1;
        }
    }
    return 0;
}

/** Adds two numbers. */
big_t sum(const big_t &a, const big_t &b)
{
    big_t result = {};
    uint64_t carry = 0;
    for (uint32_t i = 0; i < max_words; ++i)
    {
        carry += uint64_t{a.words[i]} + b.words[i];
        result.words[i] = static_cast<uint32_t>(carry);
        carry >>= 32U;
    }
    result.count = max_words;
    return result;
}

/** Subtracts a number that is not larger. */
void subtract(big_t *a, const big_t &b)
{
    uint64_t borrow = 0;
    for (uint32_t i = 0; i < max_words; ++i)
    {
        const uint64_t difference = uint64_t{a->words[i]} - b.words[i] - borrow;
        a->words[i] = static_cast<uint32_t>(difference);
        borrow = difference >> 63U;
    }
}

/**
 * What the digits are made from: the number is rest ÷ unit, and every number between it and its neighbours,
 * below ÷ unit lower and above ÷ unit higher, reads back as it.
 */
struct state_t
{
    big_t rest;
    big_t unit;
    big_t below;
    big_t above;
    bool closed; ///< the two ends read back as the number, too: a reader rounds them to an even fraction
};

/** Begins with a number as it is. */
state_t make_state(const binary_t &number)
{
    const uint32_t up = number.exponent > 0 ? static_cast<uint32_t>(number.exponent) : 0;
    const uint32_t down = number.exponent < 0 ? static_cast<uint32_t>(-number.exponent) : 0;
    const uint32_t finer = number.lowest_of_binade ? 1 : 0;
    return {make_big(number.fraction, up + 1 + finer), make_big(1, down + 1 + finer), make_big(1, up),
            make_big(1, up + finer), number.fraction % 2 == 0};
}

/** Tells whether the upper end reaches the unit. */
bool reaches_unit(const state_t &state)
{
    const int order = compare(sum(state.rest, state.above), state.unit);
    return order > 0 || (order == 0 && state.closed);
}

/** Moves on by one digit. */
void next_place(state_t *state)
{
    times_ten(&state->rest);
    times_ten(&state->below);
    times_ten(&state->above);
}

/** Rounds a quotient up; the divisor is positive. */
int32_t ceiling(int32_t dividend, int32_t divisor)
{
    return dividend > 0 ? (dividend + divisor - 1) / divisor : -(-dividend / divisor);
}

/** Scales the state so that the number lies in the first place behind the point; returns by what power of
 * ten. */
int32_t scale(state_t *state, const binary_t &number)
{
    // log10 of the number, rounded down to a power of two, with log10(2) = 0.30103; at most one too low.
    const int32_t log2 = number.exponent + static_cast<int32_t>(std::bit_width(number.fraction)) - 1;
    const int32_t power = ceiling(log2 * 30103, 100000);
    for (int32_t i = 0; i < power; ++i)
    {
        times_ten(&state->unit);
    }
    for (int32_t i = 0; i > power; --i)
    {
        next_place(state);
    }
    if (!reaches_unit(*state))
    {
        return power;
    }
    times_ten(&state->unit);
    return power + 1;
}

/** Takes the next digit off the rest, which is below ten units. */
char take_digit(state_t *state)
{
    char digit = '0';
    while (compare(state->rest, state->unit) >= 0)
    {
        subtract(&state->rest, state->unit);
        ++digit;
    }
    return digit;
}

/** Makes the shortest digits of a number that is not 0. */
decimal_t make_digits(const binary_t &number)
{
    state_t state = make_state(number);
    decimal_t decimal = {};
    decimal.exponent = scale(&state, number);
    for (;;)
    {
        next_place(&state);
        char digit = take_digit(&state);
        const int order = compare(state.rest, state.below);
        const bool low_enough = order < 0 || (order == 0 && state.closed);
        const bool high_enough = reaches_unit(state);
        const int half = compare(sum(state.rest, state.rest), state.unit);
        const bool nearer_above = half > 0 || (half == 0 && digit % 2 != 0);
        if (high_enough && (!low_enough || nearer_above))
        {
            ++digit;
        }
        decimal.digits[decimal.count] = digit;
        ++decimal.count;
        if (low_enough || high_enough)
        {
            return decimal;
        }
    }
}

/** Takes a number apart as a `double`, or as a `float` if it is one. The sign is dropped. */
binary_t take_apart(double value)
{
    const bool is_float = std::fabs(value) <= static_cast<double>(FLT_MAX) &&
                          static_cast<double>(static_cast<float>(value)) == value;
    const int digits = is_float ? FLT_MANT_DIG : DBL_MANT_DIG;
    const int lowest = (is_float ? FLT_MIN_EXP : DBL_MIN_EXP) - digits;
    int exponent = 0;
    const double fraction = std::frexp(std::fabs(value), &exponent);
    exponent -= digits;
    const int finer = exponent < lowest ? lowest - exponent : 0;
    const auto whole = static_cast<uint64_t>(std::ldexp(fraction, digits - finer));
    const bool lowest_of_binade = std::has_single_bit(whole) && finer == 0 && exponent > lowest;
    return {whole, exponent + finer, lowest_of_binade};
}

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

/** Appends a decimal without an exponent. */
char *append_plain(char *end, const decimal_t &decimal)
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

/** Appends a decimal with an exponent. */
char *append_scientific(char *end, const decimal_t &decimal)
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
    return std::to_chars(end, end + 3, magnitude).ptr;
}

/** Tells whether a decimal is no longer without an exponent. */
bool is_plain_shorter(const decimal_t &decimal)
{
    const auto count = static_cast<int32_t>(decimal.count);
    const int32_t point = decimal.exponent;
    const int32_t magnitude = point < 1 ? 1 - point : point - 1;
    const int32_t scientific = count + (count > 1 ? 1 : 0) + (magnitude < 100 ? 4 : 5);
    const int32_t plain = point <= 0 ? count + 2 - point : point >= count ? point : count + 1;
    return plain <= scientific;
}

/**
 * Tells whether a number is a whole one from 0 on that fits 32 bits. Done in integers: most numbers of a
 * message are of this kind, and many processors have no hardware for `double`.
 */
bool is_uint32(double value, uint32_t *whole)
{
    const auto bits = std::bit_cast<uint64_t>(value);
    const auto high = static_cast<uint32_t>(bits >> 32U);
    const auto low = static_cast<uint32_t>(bits);
    constexpr uint32_t exponent_of_one = 1023;
    const uint32_t exponent = (high >> 20U) - exponent_of_one; // a sign makes it too large
    if (exponent > 31)
    {
        *whole = 0;
        return bits == 0;
    }
    const uint32_t fraction = 0x80000000U | high << 11U | low >> 21U; // the first 32 digits of 53
    *whole = fraction >> (31U - exponent);
    return fraction << exponent << 1U == 0 && low << 11U == 0;
}

} // namespace

size_t decimal_write(double value, char *text)
{
    uint32_t whole = 0;
    if (is_uint32(value, &whole))
    {
        return static_cast<size_t>(std::to_chars(text, text + decimal_text_size, whole).ptr - text);
    }
    char *end = text;
    const double magnitude = std::fabs(value);
    if (std::signbit(value))
    {
        *end++ = '-';
    }
    if (magnitude <= largest_exact_integer && std::trunc(magnitude) == magnitude)
    {
        end = std::to_chars(end, text + decimal_text_size, static_cast<uint64_t>(magnitude)).ptr;
    }
    else
    {
        const decimal_t decimal = make_digits(take_apart(value));
        end = is_plain_shorter(decimal) ? append_plain(end, decimal) : append_scientific(end, decimal);
    }
    return static_cast<size_t>(end - text);
}
