/** @file
 * Numbers as text for log lines and messages.
 */
#ifndef ZET_SIMULATOR_NUMBER_TEXT_H
#define ZET_SIMULATOR_NUMBER_TEXT_H

#include <initializer_list>

namespace zet_simulator
{

/** A number as text. */
struct number_text
{
    char text[32];
};

/**
 * Writes a number with up to three decimals, as many as it needs. The conversion of the C library would link
 * an allocator into small systems.
 */
number_text text_of(double value);

/**
 * Writes a number that is compared with bounds: like text_of, but if that looks like a bound although the
 * number is another one, with an exponent and as many digits as make it different, or as "just above" or
 * "just below" the bound.
 *
 * @param bounds  numbers with at most three decimals, so that text_of writes them exactly
 */
number_text text_beside(double value, std::initializer_list<double> bounds);

/** Rounds a positive bound down to three decimals, so that its text is a number within the bound. */
double upper_bound_with_decimals(double bound);

} // namespace zet_simulator

#endif
