/** @file
 * Numbers as text for log lines and messages.
 */
#ifndef ZET_SIMULATOR_NUMBER_TEXT_H
#define ZET_SIMULATOR_NUMBER_TEXT_H

namespace zet_simulator
{

/** A number as text. */
struct number_text
{
    char text[24];
};

/**
 * Writes a number with as many of three decimals as it needs. The C library's own conversion would draw an
 * allocator into small systems.
 */
number_text text_of(double value);

} // namespace zet_simulator

#endif
