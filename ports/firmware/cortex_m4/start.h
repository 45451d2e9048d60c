/** @file
 * From reset to the board's program: stacks, floating-point unit, memory, protection, faults.
 *
 * The program has a separate stack, so that a fault can be reported even when that stack is exhausted.
 */
#ifndef VANTOR_CORTEX_M4_START_H
#define VANTOR_CORTEX_M4_START_H

#include <cstdint>

/** Pattern in unused words of the stacks. */
#define STACK_PAINT 0xA5A5A5A5U

extern "C" {

// From the linker script (sections.ld).
// NOLINTBEGIN(bugprone-dynamic-static-initializers): they are addresses and are not initialised.
extern uint32_t program_stack_bottom[];
extern uint32_t program_stack_top[];
extern uint32_t interrupt_stack_bottom[];
extern uint32_t interrupt_stack_top[];
// NOLINTEND(bugprone-dynamic-static-initializers)

/** The first code that runs after a reset. */
void reset_handler();

/** Provided by the firmware: its program. The board restarts when it returns. */
void run_board();
}

#endif
