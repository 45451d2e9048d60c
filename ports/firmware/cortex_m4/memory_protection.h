/** @file
 * The memory protection unit: makes invalid accesses fault.
 */
#ifndef VANTOR_CORTEX_M4_MEMORY_PROTECTION_H
#define VANTOR_CORTEX_M4_MEMORY_PROTECTION_H

#include <cstdint>

namespace cortex_m4
{

/** What a program may do in a region, as bits of the attribute register. */
enum class rights_t : uint32_t
{
    none = 1U << 28U,
    read_execute = 6U << 24U | 2U << 16U,
    read = 1U << 28U | 6U << 24U | 2U << 16U,
    read_write = 1U << 28U | 3U << 24U | 6U << 16U,
    read_write_devices = 1U << 28U | 3U << 24U | 5U << 16U,
};

/** Addresses with the same rights. */
struct region_t
{
    const char *name;
    uint32_t begin; /**< first address */
    uint32_t last;  /**< last address */
    rights_t rights;
};

/** A region of the unit: its size is a power of two, it starts at a multiple of its size, and each of its
 * eighths can be disabled. */
struct unit_region_t
{
    uint32_t begin;
    uint32_t log2_size;        /**< 5 (32 bytes) to 32 (all addresses) */
    uint32_t disabled_eighths; /**< one bit per eighth, the lowest addresses in the lowest bit; 0 below 256
                                  bytes */
};

/** Returns the smallest region of the unit that covers the addresses. */
unit_region_t cover(uint32_t begin, uint32_t last);

/** Returns the addresses that the unit actually covers for a region. */
region_t covered(const region_t &region);

/**
 * Makes every access fault except these: reading and executing code, reading and writing memory, and the
 * board's areas. Accesses near address 0, as through a null pointer, and to the guards below the stacks fault
 * too. Addresses next to an open region can be open as well, because sizes of the unit are powers of two;
 * code is never open for writing.
 */
void protect_memory();

/** Returns the number of open regions. */
uint32_t open_region_count();

/** Returns an open region, with all addresses that the unit actually opens for it. */
region_t open_region(uint32_t number);

} // namespace cortex_m4

#endif
