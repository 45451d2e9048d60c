/** @file
 * The interrupts of the board that the program uses.
 */
#ifndef VANTOR_MPS2_AN386_INTERRUPTS_H
#define VANTOR_MPS2_AN386_INTERRUPTS_H

#include <cstdint>

/** Numbers of the interrupts. */
constexpr uint32_t link_receive_interrupt = 0;
constexpr uint32_t timer_interrupt = 8;

extern "C" {

/** Takes the bytes that have come over the link. */
void link_receive_handler();

/** Ends the sleep of the clock. */
void timer_handler();
}

#endif
