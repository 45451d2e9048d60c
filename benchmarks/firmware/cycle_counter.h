/** @file
 * Counting instructions.
 *
 * Started with `-icount shift=10`, the emulator lets every instruction take 1024 ns, in which the board's 25
 * MHz counter goes on by 25.6.
 */
#ifndef VANTOR_CYCLE_COUNTER_H
#define VANTOR_CYCLE_COUNTER_H

#include <cstdint>

#include "cortex_m4.h"

/** The board's 25 MHz counter. */
inline uint32_t cycle_count()
{
    return cortex_m4::hardware_register(0x40028018U);
}

/** Instructions between two readings of the counter, up to 167 million. */
inline uint32_t instructions_between(uint32_t begin, uint32_t end)
{
    return static_cast<uint32_t>(uint64_t{end - begin} * 10U / 256U);
}

#endif
