/** @file
 * The firmware's clock, and waiting.
 */
#ifndef VANTOR_FIRMWARE_CLOCK_H
#define VANTOR_FIRMWARE_CLOCK_H

#include <cstdint>

/** Returns the time since the start, in microseconds. Call it at least once an hour, not from interrupts. */
uint64_t clock_now_us();

/**
 * Waits until a condition is true, or until a time.
 *
 * @param time_us    the time, in microseconds
 * @param condition  checked again after every interrupt that calls board_wake
 * @return whether the condition was true
 */
bool clock_wait_until(uint64_t time_us, bool (*condition)());

/** Waits until a time, in microseconds. */
void clock_sleep_until_us(uint64_t time_us);

/** Waits for at least a duration, in microseconds. */
void clock_delay_us(uint32_t duration_us);

#endif
