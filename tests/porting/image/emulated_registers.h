/** @file
 * Registers of the emulated board that more than one file uses.
 */
#ifndef VANTOR_TESTS_EMULATED_REGISTERS_H
#define VANTOR_TESTS_EMULATED_REGISTERS_H

#include <cstdint>

/** Timers of the board, by the addresses of their registers. */
enum class emulated_timer_t : uintptr_t
{
    alarm = 0x40000000U,
    sensors = 0x40001000U,
};

/** Makes the interrupt of a timer come once, after a time that is at most a minute. */
void emulated_timer_set(emulated_timer_t timer, uint32_t delay_us);

/** Stops a timer and acknowledges its interrupt. */
void emulated_timer_clear(emulated_timer_t timer);

#endif
