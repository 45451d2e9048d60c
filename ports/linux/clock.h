/** @file
 * The real clock of the Linux port, for the simulated board and the server.
 */
#ifndef VANTOR_LINUX_CLOCK_H
#define VANTOR_LINUX_CLOCK_H

#include <cstdint>

#include "zet_simulator.h"

/** Ticks of the server's clock per second: it counts microseconds. */
constexpr uint32_t ticks_per_second = 1000000;

/** Returns the system's monotonic clock, starting at 0 with its first use. */
zet_simulator_clock_t real_clock();

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
