/** @file
 * The record through which the sensor library reaches the board. The port fills it, with functions that it
 * implements.
 *
 * The library calls them only from within its own functions: on the server's one thread, never by an
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
 * Exchanges bytes with a sensor: selects it, sends the buffer and overwrites it with what the sensor
 * answered, and releases it.
 *
 * Blocks until the last bit was sent and received. Cannot fail: without a sensor, or with one that is off,
 * the received bytes mean nothing.
 *
 * @param sensor_id  the sensor, 1 to the board's sensor count
 * @param buffer     bytes to send, of any alignment, overwritten with those received; used during the call
 *                   only
 * @param size       number of bytes, 1 to the record's `max_spi_transfer_size`
 */
typedef void zet_hal_sensor_transfer8_function_t(zet_sensor_id_t sensor_id, uint8_t *buffer, size_t size);

/** The same with 16-bit words, which are aligned; @p size counts words, of at most as many bytes in all. */
typedef void zet_hal_sensor_transfer16_function_t(zet_sensor_id_t sensor_id, uint16_t *buffer, size_t size);

/** Transfers that a board may offer beside the plain one to go faster. */
typedef struct
{
    zet_hal_sensor_transfer16_function_t *transfer16; /**< 16-bit transfer, or null */
} zet_hal_optimization_t;

/** The board as the sensor library sees it. Valid for the lifetime of the program once it is registered. */
typedef struct
{
    uint16_t max_spi_transfer_size;                /**< longest transfer, in bytes; not 0, may be odd */
    void *(*mem_alloc)(size_t size);               /**< as zet_integration_mem_alloc: aligned, or null */
    void (*mem_free)(void *ptr);                   /**< as zet_integration_mem_free; null is allowed */
    zet_hal_sensor_transfer8_function_t *transfer; /**< 8-bit transfer */
    /** Takes a log line, as zet_integration_log. */
    void (*log)(zet_log_level_t level, const char *module, const char *format, ...);
    zet_hal_optimization_t optimization; /**< faster transfers */
} zet_hal_k330_t;

#ifdef __cplusplus
}
#endif

#endif
