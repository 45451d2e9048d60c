/** @file
 * The record through which the sensor library reaches the board.
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
 * Exchanges bytes with a sensor: sends the buffer and overwrites it with what the sensor answered.
 *
 * @param sensor_id  the sensor
 * @param buffer     bytes to send, overwritten with those received
 * @param size       number of bytes, at most the record's `max_spi_transfer_size`
 */
typedef void zet_hal_sensor_transfer8_function_t(zet_sensor_id_t sensor_id, uint8_t *buffer, size_t size);

/** The same with 16-bit words; @p size counts words. */
typedef void zet_hal_sensor_transfer16_function_t(zet_sensor_id_t sensor_id, uint16_t *buffer, size_t size);

/** Transfers that a board may offer beside the plain one to go faster. */
typedef struct
{
    zet_hal_sensor_transfer16_function_t *transfer16; /**< 16-bit transfer, or null */
} zet_hal_optimization_t;

/** The board as the sensor library sees it. It must stay valid once it is registered. */
typedef struct
{
    uint16_t max_spi_transfer_size;                /**< longest transfer, in bytes */
    void *(*mem_alloc)(size_t size);               /**< allocates; null when exhausted */
    void (*mem_free)(void *ptr);                   /**< frees what mem_alloc gave; null is allowed */
    zet_hal_sensor_transfer8_function_t *transfer; /**< 8-bit transfer */
    /** Takes a formatted log line. */
    void (*log)(zet_log_level_t level, const char *module, const char *format, ...);
    zet_hal_optimization_t optimization; /**< faster transfers */
} zet_hal_k330_t;

#ifdef __cplusplus
}
#endif

#endif
