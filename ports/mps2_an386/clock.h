/** @file
 * The board's clock and its sleep.
 */
#ifndef VANTOR_MPS2_AN386_CLOCK_H
#define VANTOR_MPS2_AN386_CLOCK_H

#include "zet_simulator.h"

/** Lets the clock's interrupt through. To be called once, before anything sleeps. */
void clock_start();

/** Time since the start in microseconds. To be called at least once in three minutes, but not by interrupts.
 */
uint64_t clock_now_us();

/** Sleeps until a time, in microseconds, has come. */
void clock_sleep_until_us(uint64_t time_us);

/**
 * Sleeps until a time, in microseconds, has come or an interrupt has made a condition true.
 *
 * @param condition  judged with interrupts held back
 */
void clock_sleep_until_us(uint64_t time_us, bool (*condition)());

/** The clock as the simulator takes it. */
zet_simulator_clock_t real_clock();

#endif
