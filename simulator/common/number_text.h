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
 * Writes a number with up to three decimals, as many as it needs. The conversion of the C library would link
 * an allocator into small systems.
 */
number_text text_of(double value);

} // namespace zet_simulator

#endif
