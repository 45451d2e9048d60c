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

#endif
