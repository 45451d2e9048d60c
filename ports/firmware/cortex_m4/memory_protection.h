/** @file
 * The memory protection unit: faults where a mistake would go unseen.
 */
#ifndef VANTOR_CORTEX_M4_MEMORY_PROTECTION_H
#define VANTOR_CORTEX_M4_MEMORY_PROTECTION_H

#include <cstdint>

namespace cortex_m4
{

/** What a program may do in a region, as the attribute register takes it. */
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

/** A region as the unit takes it: a power of two at a multiple of itself, with each of its eighths on or off.
 */
struct unit_region_t
{
    uint32_t begin;
    uint32_t log2_size; /**< 5 (32 bytes) to 32 (all addresses) */
    uint32_t
        disabled_eighths; /**< one bit for each, the lowest addresses in the lowest bit; 0 below 256 bytes */
};

/** The smallest region of the unit that covers the addresses. */
unit_region_t cover(uint32_t begin, uint32_t last);

/** The addresses that a region of the unit really covers. */
region_t covered(const region_t &region);

/**
 * Makes every access fault that is none of these: reading and executing code, reading and writing memory, and
 * the board's areas. Accesses near address 0, as through a null pointer, and to the guards below the stacks
 * fault too. Other addresses can be opened with their neighbours, because the unit knows powers of two only;
 * code is never open for writing.
 */
void protect_memory();

/** Number of regions that are open. */
uint32_t open_region_count();

/** A region that is open, as large as the unit really opens it. */
region_t open_region(uint32_t number);

} // namespace cortex_m4

#endif
