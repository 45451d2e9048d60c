/** @file
 * Counting instructions.
 *
 * With `-icount shift=7`, every instruction takes 128 ns in the emulator. In this time SysTick counts at
 * least three cycles of the processor's clock.
 */
#ifndef VANTOR_CYCLE_COUNTER_H
#define VANTOR_CYCLE_COUNTER_H

#include <cstdint>

#include "board.h"
#include "cortex_m4.h"

/** Starts SysTick. */
inline void start_cycle_count()
{
    cortex_m4::hardware_register(0xE000E014U) = 0xFFFFFFU;
    cortex_m4::hardware_register(0xE000E018U) = 0;
    cortex_m4::hardware_register(0xE000E010U) = 5U;
}

/** Reads SysTick, which counts down in 24 bits. */
inline uint32_t cycle_count()
{
    return cortex_m4::hardware_register(0xE000E018U);
}

/** Number of instructions between two readings of the counter, up to 700,000. */
inline uint32_t instructions_between(uint32_t begin, uint32_t end)
{
    const uint64_t cycles = (begin - end) & 0xFFFFFFU;
    return static_cast<uint32_t>((cycles * (1000000000U / 128U) + BOARD_CORE_CLOCK_HZ / 2U) /
                                 BOARD_CORE_CLOCK_HZ);
}

#endif
