/** @file
 * The record with which the sensor library accesses the board. The port fills it with functions that it
 * implements.
 *
 * The library calls them only from inside its own functions: on the server's only thread, never from an
 * interrupt.
 */
#ifndef ZET_HAL_DEFINITIONS_K330_H
#define ZET_HAL_DEFINITIONS_K330_H

#include <stddef.h>
#include <stdint.h>

#include "zet_definitions_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Exchanges bytes with a sensor: selects it, sends the buffer, overwrites the buffer with the sensor's
 * answer, and deselects it.
 *
 * Blocks until the last bit was sent and received. Cannot fail: without a sensor, or with one that is off,
 * the received bytes have no meaning.
 *
 * @param sensor_id  the sensor, 1 to the board's sensor count
 * @param buffer     bytes to send, of any alignment, overwritten with the received ones; used only during
 *                   the call
 * @param size       number of bytes, 1 to the record's `max_spi_transfer_size`
 */
typedef void zet_hal_sensor_transfer8_function_t(zet_sensor_id_t sensor_id, uint8_t *buffer, size_t size);

/** Same as zet_hal_sensor_transfer8_function_t, with aligned 16-bit words; @p size counts words, 1 to half of
 * `max_spi_transfer_size`. */
typedef void zet_hal_sensor_transfer16_function_t(zet_sensor_id_t sensor_id, uint16_t *buffer, size_t size);

/** Optional faster transfers of a board. */
typedef struct
{
    zet_hal_sensor_transfer16_function_t *transfer16; /**< 16-bit transfer, or null */
} zet_hal_optimization_t;

/** The board as the sensor library sees it. Once registered, valid for the lifetime of the program. */
typedef struct
{
    uint16_t max_spi_transfer_size;                /**< longest transfer, in bytes; not 0, may be odd */
    void *(*mem_alloc)(size_t size);               /**< as zet_integration_mem_alloc: aligned, or null */
    void (*mem_free)(void *ptr);                   /**< as zet_integration_mem_free; null is allowed */
    zet_hal_sensor_transfer8_function_t *transfer; /**< 8-bit transfer */
    /** Writes a log line, as zet_integration_log. */
    void (*log)(zet_log_level_t level, const char *module, const char *format, ...);
    zet_hal_optimization_t optimization; /**< faster transfers */
} zet_hal_k330_t;

#ifdef __cplusplus
}
#endif

#endif
