/** @file
 * The text of integers and of decimal digits.
 */
#ifndef ZET_DECIMAL_TEXT_H
#define ZET_DECIMAL_TEXT_H

#include <charconv>
#include <cstdint>

/** Writes an integer; returns the end of the text. */
inline char *zet_decimal_write_uint32(uint32_t number, char *end)
{
    constexpr uint32_t most_digits = 10;
    return std::to_chars(end, end + most_digits, number).ptr;
}

/** Writes an integer; returns the end of the text. */
char *zet_decimal_write_uint64(uint64_t number, char *end);

/** A positive decimal number: 0.d₁d₂d₃… × 10^exponent; neither the first nor the last digit is 0. */
struct zet_decimal_t
{
    const char *digits;
    uint32_t count;
    int32_t exponent;
};

/**
 * Writes a decimal number with an exponent or without one, whichever is shorter.
 *
 * @return the end of the text
 */
char *zet_decimal_write_digits(const zet_decimal_t &decimal, char *end);

#endif
