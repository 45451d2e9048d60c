/** @file
 * The board's allocator: zet_integration_mem_alloc and zet_integration_mem_free (zet_integration.h), which
 * manage one region of memory.
 *
 * The memory that it returns is aligned for any object. An allocation and a free take constant time. A
 * request that fails returns null; a null pointer may be freed. For a single thread, and not for interrupts.
 *
 * Under AddressSanitizer all memory of the region that is not allocated is poisoned: the sanitizer reports
 * overruns and uses after a free. It does not report memory that is never freed; see `live` of memory_get.
 */
#ifndef VANTOR_MEMORY_H
#define VANTOR_MEMORY_H

#include <cstddef>

#include "zet_vantor_server.h"

/**
 * Gives the allocator its memory. Call it before the first allocation; without memory every request fails.
 *
 * The allocator stops using the memory of an earlier call, with everything allocated in it, and the
 * statistics start again at zero.
 *
 * @param region  the memory, of any alignment; used until the next call
 * @param size    its size in bytes, less than 4 GiB, on a 32-bit processor less than 2 GiB; the
 *                allocator itself needs some hundreds of bytes, on a PC some thousands
 */
void memory_lend(void *region, size_t size);

/** Marks everything that is allocated now: memory_recover does not free it. */
void memory_keep();

/**
 * Frees everything that was allocated since memory_keep. For memory that nobody can free any more: cJSON
 * loses an object when memory runs out while it adds the object to a document.
 *
 * @return the number of bytes, as counted by memory_get
 */
size_t memory_recover();

/**
 * Reports how the memory is used.
 *
 * An allocation counts with all its overhead: the allocator's word before it, and the rounding up to the
 * alignment.
 *
 * @param memory  receives size, live, peak, largest_free and failures; peak and failures count from
 *                memory_lend on. The members about the stack are not changed. Null is allowed.
 */
void memory_get(zet_vantor_server_memory_t *memory);

#endif
