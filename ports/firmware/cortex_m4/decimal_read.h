/** @file
 * Reading decimal numbers on a small machine.
 */
#ifndef VANTOR_CORTEX_M4_DECIMAL_READ_H
#define VANTOR_CORTEX_M4_DECIMAL_READ_H

#include <cstddef>

/**
 * Reads a decimal number, rounded to the nearest `double`, ties to even. Takes no memory; any number of
 * digits counts.
 *
 * @param text    begins with the number: a sign at most, digits with a decimal point at most, an exponent at
 *                most; closed by any other character
 * @param length  receives the number of characters read; 0 when there is no number
 * @return the number; infinite when it is too large, 0 when there is none
 */
double decimal_read(const char *text, size_t *length);

#endif
