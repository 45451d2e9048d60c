/** @file
 * The deepest use of the stacks. Both are filled with a pattern at startup; overwritten words have been
 * used.
 */
#ifndef VANTOR_CORTEX_M4_STACK_H
#define VANTOR_CORTEX_M4_STACK_H

#include <cstdint>

namespace cortex_m4
{

/** Returns the total size of both stacks, of the program and of the interrupts, in bytes. */
uint32_t stack_size();

/** Returns the sum of the most bytes used of each stack since the start. */
uint32_t stack_peak();

} // namespace cortex_m4

#endif
