/** @file
 * The clocks that the Linux port can lend to the simulated board and to the server.
 */
#ifndef VANTOR_LINUX_CLOCK_H
#define VANTOR_LINUX_CLOCK_H

#include <cstdint>

#include "zet_simulator.h"

/** Ticks of the server's clock in a second: it counts microseconds. */
constexpr uint32_t ticks_per_second = 1000000;

/** The system's monotonic clock, counted from its first use. */
zet_simulator_clock_t real_clock();

#endif
