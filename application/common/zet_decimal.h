/** @file
 * Decimal numbers: the shortest text of a number, and the number of a text.
 *
 * The C++ library's own conversions bring about 110 kB of tables, more than the whole server; printf and
 * strtod depend on the locale and take memory. Here a `float` costs some hundred instructions and less than
 * 3 kB; who needs no `double` links no more than that.
 */
#ifndef ZET_DECIMAL_H
#define ZET_DECIMAL_H

#include <cstddef>

/** Room for any text that is written here. */
constexpr size_t zet_decimal_text_size = 32;

/**
 * Writes a `float` as the shortest text that reads back as the same `float`; of several the nearest one.
 *
 * @param value  a finite number
 * @param text   receives at most zet_decimal_text_size characters; no closing zero is written
 * @return the number of characters
 */
size_t zet_decimal_write_float(float value, char *text);

/**
 * Writes a number as the shortest text that reads back as the same number; of several the nearest one.
 *
 * A number that is exactly a `float` is written so that it reads back as this `float`; any other so that it
 * reads back as this `double`. A whole number up to 2^53 is written in digits.
 *
 * @param value  a finite number
 * @param text   receives at most zet_decimal_text_size characters; no closing zero is written
 * @return the number of characters
 */
size_t zet_decimal_write(double value, char *text);

/**
 * Reads a decimal number, rounded to the nearest `double`, ties to even. Takes no memory; any number of
 * digits counts.
 *
 * @param text    begins with the number: a sign at most, digits with a decimal point at most, an exponent at
 *                most; closed by any other character
 * @param length  receives the number of characters read; 0 when there is no number
 * @return the number; infinite when it is too large, 0 when there is none
 */
double zet_decimal_read(const char *text, size_t *length);

#endif
