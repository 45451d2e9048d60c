/** @file
 * Formats numbers as text.
 */
#ifndef VANTOR_NUMBER_TEXT_H
#define VANTOR_NUMBER_TEXT_H

#include <cstdint>
#include <string>

namespace vantor
{

/** Formats a number with this many digits after the decimal point. */
std::string fixed(double value, int digits);

/** A number with three significant digits, such as "0.0250" or "123". */
std::string three_digits(double value);

/** A rate: with three significant digits below 10, otherwise with one digit after the decimal point. */
std::string rate_text(double rate);

/** A number with a noun in singular or plural. */
std::string counted(uint64_t number, const std::string &noun);

/** Formats a number of bytes with a unit, such as "1.3 MB" (1 kB is 1000 bytes). */
std::string format_bytes(double bytes);

} // namespace vantor

#endif
