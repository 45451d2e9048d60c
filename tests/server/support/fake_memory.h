/** @file
 * A board allocator that counts, and fails when told to.
 */
#ifndef FAKE_MEMORY_H
#define FAKE_MEMORY_H

#include <cstddef>
#include <cstdint>

/** What the allocator has done and shall do. */
struct fake_memory_t
{
    size_t live = 0;        /**< blocks allocated now */
    size_t allocations = 0; /**< requests since the record was last reset */
    size_t fail_at = 0;     /**< number of the request that fails, counted from 1; 0 for none */
    bool failed = false;    /**< a request has been refused */
};

extern fake_memory_t fake_memory;

/** Counts requests anew and has one of them fail; 0 for none. */
void fail_allocation(size_t number);

#endif
