/** @file
 * A board allocator that counts, and fails on request.
 */
#ifndef FAKE_MEMORY_H
#define FAKE_MEMORY_H

#include <cstddef>
#include <cstdint>

/** Controls the allocator and records what it did. */
struct fake_memory_t
{
    size_t live = 0;        /**< blocks allocated now */
    size_t allocations = 0; /**< requests since the record was last reset */
    size_t fail_at = 0;     /**< number of the request that fails, counted from 1; 0 for none */
    bool failed = false;    /**< a request has failed */
};

extern fake_memory_t fake_memory;

/** Restarts the count of requests and makes the given one fail; 0 for none. */
void fail_allocation(size_t number);

#endif
