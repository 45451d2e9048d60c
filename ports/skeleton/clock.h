/** @file
 * The board's clock and its sleep.
 */
#ifndef VANTOR_SKELETON_CLOCK_H
#define VANTOR_SKELETON_CLOCK_H

#include <cstdint>

/** Lets the clock's interrupt through. To be called once, before anything sleeps. */
void clock_start();

/** Time since the start in microseconds. To be called at least once in an hour, but not by interrupts. */
uint64_t clock_now_us();

/**
 * Sleeps until any interrupt comes, but not beyond a time. To be called with interrupts held back, so that
 * none can come between the caller's look at what it waits for and the sleep; it is handled once they are let
 * through.
 *
 * @param time_us  the time, in microseconds
 * @return false when the time has come
 */
bool clock_sleep_until_interrupt(uint64_t time_us);

/** Sleeps for a time, in microseconds. */
void clock_delay_us(uint32_t duration_us);

#endif
