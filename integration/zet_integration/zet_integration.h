/** @file
 * The board's allocator. All memory of the server, of cJSON and of the sensor library comes from here.
 */
#ifndef ZET_INTEGRATION_H
#define ZET_INTEGRATION_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Allocates memory, aligned for any object.
 *
 * @param size  number of bytes; for 0 the port chooses between null and a pointer that may be freed
 * @return the memory, not initialised; null when it is exhausted
 */
void *zet_integration_mem_alloc(size_t size);

/**
 * Frees memory.
 *
 * @param ptr  what zet_integration_mem_alloc gave; null is allowed and does nothing
 */
void zet_integration_mem_free(void *ptr);

#ifdef __cplusplus
}
#endif

#endif
