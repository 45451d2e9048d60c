/** @file
 * The real clock of the Linux port, for the simulated board and the server.
 */
#ifndef VANTOR_LINUX_CLOCK_H
#define VANTOR_LINUX_CLOCK_H

#include <cstdint>

#include "zet_simulator.h"

/** Ticks of the server's clock per second: it counts microseconds. */
constexpr uint32_t ticks_per_second = 1000000;

/**
 * Starts a clock of the board that follows the system's monotonic clock. There is only one such clock.
 *
 * @param error     the part by which it runs faster than the system's clock; below 0 if it is slower
 * @param first_us  what it shows now
 */
zet_simulator_clock_t real_clock(double error, uint64_t first_us);

/**
 * Returns how long the system's clock needs for a span of the board's real clock, both in microseconds,
 * rounded up. The same span if the board has another clock.
 */
int64_t real_span_us(int64_t board_span_us);

/** Returns when the real clock showed 0, or would have, in seconds since 1970 UTC. */
double real_clock_zero_utc_s();

/** A clock that can be ahead of or behind its start. */
using signed_clock_t = int64_t();

/**
 * Returns a clock that counts the microseconds of the time of day since a time. There is only one such clock.
 *
 * @param start_s  the time, in seconds since 1970 UTC
 */
signed_clock_t *clock_since(double start_s);

/** Returns the time of a board's clock. There is only one such clock. */
signed_clock_t *clock_of_board(const zet_simulator_clock_t &clock);

#endif
