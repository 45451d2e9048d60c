/** @file
 * From reset to the board's program: stacks, floating-point unit, memory, protection, faults.
 *
 * The program runs on a stack of its own, so that a fault can be reported even when that stack is exhausted.
 */
#ifndef VANTOR_CORTEX_M4_START_H
#define VANTOR_CORTEX_M4_START_H

#include <cstdint>

/** What unused words of the stacks hold. */
#define STACK_PAINT 0xA5A5A5A5U

extern "C" {

// From the linker script (sections.ld).
// NOLINTBEGIN(bugprone-dynamic-static-initializers): they are addresses, which nothing initialises.
extern uint32_t program_stack_bottom[];
extern uint32_t program_stack_top[];
extern uint32_t interrupt_stack_bottom[];
extern uint32_t interrupt_stack_top[];
// NOLINTEND(bugprone-dynamic-static-initializers)

/** What the processor does first. */
void reset_handler();

/** Given by the firmware: its program. When it returns, the board restarts. */
void run_board();
}

#endif
