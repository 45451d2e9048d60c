/** @file
 * The shortest decimal text of a number.
 *
 * The C++ library's own conversion does the same with about 110 kB of tables, more than the whole server, and
 * its printf depends on the locale.
 */
#ifndef ZET_DECIMAL_H
#define ZET_DECIMAL_H

#include <cstddef>

/** Room for any text of decimal_write. */
constexpr size_t decimal_text_size = 32;

/**
 * Writes a number as the shortest text that reads back as the same number.
 *
 * A number that is exactly a `float` is written so that it reads back as this `float`; any other so that it
 * reads back as this `double`. A whole number up to 2^53 is written in digits.
 *
 * @param value  a finite number
 * @param text   receives at most decimal_text_size characters; no closing zero is written
 * @return the number of characters
 */
size_t decimal_write(double value, char *text);

#endif
