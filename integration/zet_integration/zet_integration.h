/** @file
 * The board's allocator, which the port implements. All memory of the server, of cJSON and, through the
 * board record (zet_hal_definitions_k330.h), of the sensor library comes from here.
 *
 * Both functions are called on the server's only thread, never from an interrupt, and do not wait. They are
 * called many times for each frame, so each call must take a short, bounded time.
 */
#ifndef ZET_INTEGRATION_H
#define ZET_INTEGRATION_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Allocates memory, aligned for any object. It belongs to the caller until it is freed.
 *
 * Exhausted memory is a normal result: the server answers the command with an error, or ends the session,
 * and continues.
 *
 * @param size  number of bytes; for 0 the port chooses between a pointer that may be freed and null (then a
 *              board with 0 sensors does not start)
 * @return the memory, not initialised; null when it is exhausted
 */
void *zet_integration_mem_alloc(size_t size);

/**
 * Frees memory. Cannot fail. Memory is freed in any order, and the next allocation can use it.
 *
 * @param ptr  memory from zet_integration_mem_alloc, freed only once; null is allowed and does nothing
 */
void zet_integration_mem_free(void *ptr);

#ifdef __cplusplus
}
#endif

#endif
