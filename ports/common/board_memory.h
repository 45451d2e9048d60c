/** @file
 * The board's allocator: zet_integration_mem_alloc and zet_integration_mem_free (zet_integration.h) over one
 * region of memory.
 *
 * The pieces that it gives out are aligned for any object. An allocation and a free take constant time. A
 * request that cannot be met returns null; a null pointer may be freed. For one thread; not for interrupts.
 *
 * Under AddressSanitizer everything in the region that is not in use is poisoned: the sanitizer reports
 * overruns and uses after a free. It does not report pieces that are never freed; see `live` of memory_get.
 */
#ifndef VANTOR_MEMORY_H
#define VANTOR_MEMORY_H

#include <cstddef>

#include "zet_vantor_server.h"

/**
 * Lends the allocator its memory. Call it before the first allocation; without memory every request fails.
 *
 * The memory that was lent before is given back, with every piece in it, and the statistics start again at
 * zero.
 *
 * @param region  the memory, of any alignment; stays lent until the next call
 * @param size    its size in bytes, less than 4 GiB; the allocator needs some hundreds for itself, on a PC
 * some thousands
 */
void memory_lend(void *region, size_t size);

/**
 * Reports how the memory is used.
 *
 * A piece counts with all that it costs: the allocator's word before it, and the rounding up to the
 * alignment.
 *
 * @param memory  receives size, live, peak, largest_free and failures; peak and failures are those since the
 *                memory was lent. The members about the stack stay as they are. Null is allowed.
 */
void memory_get(zet_vantor_server_memory_t *memory);

#endif
