/** @file
 * The deepest use of the stacks.
 */
#include "stack.h"

#include "start.h"

namespace
{

/** Returns the bytes from the lowest overwritten word of a stack to the stack's end. */
uint32_t used(const uint32_t *bottom, const uint32_t *top)
{
    while (bottom < top && *bottom == STACK_PAINT)
    {
        ++bottom;
    }
    return static_cast<uint32_t>(top - bottom) * sizeof(uint32_t);
}

} // namespace

uint32_t cortex_m4::stack_size()
{
    return static_cast<uint32_t>((program_stack_top - program_stack_bottom) +
                                 (interrupt_stack_top - interrupt_stack_bottom)) *
           sizeof(uint32_t);
}

uint32_t cortex_m4::stack_peak()
{
    return used(program_stack_bottom, program_stack_top) + used(interrupt_stack_bottom, interrupt_stack_top);
}
