/** @file
 * The text of decimal digits, for the files that compute the digits.
 */
#ifndef ZET_DECIMAL_TEXT_H
#define ZET_DECIMAL_TEXT_H

#include <cstdint>

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
