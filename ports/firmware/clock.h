/** @file
 * The firmware's clock and its waiting.
 */
#ifndef VANTOR_FIRMWARE_CLOCK_H
#define VANTOR_FIRMWARE_CLOCK_H

#include <cstdint>

/** Time since the start in microseconds. To be called at least once an hour, and never by interrupts. */
uint64_t clock_now_us();

/**
 * Waits until a condition holds, or until a time has come.
 *
 * @param time_us    the time, in microseconds
 * @param condition  checked again after every interrupt that calls board_wake
 * @return whether the condition held
 */
bool clock_wait_until(uint64_t time_us, bool (*condition)());

/** Waits until a time, in microseconds, has come. */
void clock_sleep_until_us(uint64_t time_us);

/** Waits at least for a time, in microseconds. */
void clock_delay_us(uint32_t duration_us);

#endif
