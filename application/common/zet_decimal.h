/** @file
 * Decimal numbers: from a number to its shortest text, and back.
 *
 * The conversions of the C++ library link about 110 kB of tables, more than the complete server; printf and
 * strtod depend on the locale and allocate memory. Here a `float` costs a few hundred instructions and less
 * than 3 kB; a program that needs no `double` links no more than that.
 */
#ifndef ZET_DECIMAL_H
#define ZET_DECIMAL_H

#include <cstddef>

/** Buffer size that fits any text written here. */
constexpr size_t zet_decimal_text_size = 32;

/**
 * Writes a `float` as the shortest text that reads back as the same `float`; of several such texts the
 * nearest one.
 *
 * @param value  a finite number
 * @param text   receives at most zet_decimal_text_size characters; no terminating zero is written
 * @return the number of characters
 */
size_t zet_decimal_write_float(float value, char *text);

/**
 * Writes a number as the shortest text that reads back as the same number; of several such texts the nearest
 * one.
 *
 * A number that is exactly a `float` is written so that it reads back as this `float`, any other so that it
 * reads back as this `double`. An integer up to 2^53 is written without an exponent.
 *
 * @param value  a finite number
 * @param text   receives at most zet_decimal_text_size characters; no terminating zero is written
 * @return the number of characters
 */
size_t zet_decimal_write(double value, char *text);

/**
 * Reads a decimal number, rounded to the nearest `double`, ties to even. Allocates nothing; all digits
 * count, however many there are.
 *
 * @param text    begins with the number: an optional sign, digits with an optional decimal point, an optional
 *                exponent; any other character ends it
 * @param length  receives the number of characters read; 0 when there is no number
 * @return the number; infinity when it is too large, 0 when there is none
 */
double zet_decimal_read(const char *text, size_t *length);

#endif
