/** @file
 * How deep the stacks have been. Both are painted at the start; what has lost its paint has been used.
 */
#ifndef VANTOR_CORTEX_M4_STACK_H
#define VANTOR_CORTEX_M4_STACK_H

#include <cstdint>

namespace cortex_m4
{

/** Size of both stacks, that of the program and that of the interrupts, in bytes. */
uint32_t stack_size();

/** Most bytes of both stacks that have been in use, each at its deepest, since the start. */
uint32_t stack_peak();

} // namespace cortex_m4

#endif
