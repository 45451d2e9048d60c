/** @file
 * The record that gives the backend access to the link and the clock.
 */
#ifndef ZET_VANTOR_SERVER_BASE_H
#define ZET_VANTOR_SERVER_BASE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Sends bytes to the host. On return they have been sent or copied; the caller may reuse the memory.
 *
 * @param data  the bytes
 * @param size  their number
 */
typedef void write_data_function_t(const void *data, uint32_t size);

/** Discards the input that has been received but not yet passed to the server core. */
typedef void restart_input_function_t(void);

/**
 * Changes the baud rate of the link after everything written before has been sent.
 *
 * @param baudrate  the new baud rate, at most the interface's `max_baudrate`
 */
typedef void set_baudrate_function_t(uint32_t baudrate);

/** Reads the server tick, a free-running counter that wraps at 32 bits. */
typedef uint32_t get_tick_function_t(void);

/** The link to the host and the clock. */
typedef struct
{
    write_data_function_t *write;            /**< sends to the host */
    restart_input_function_t *restart_input; /**< discards pending input; null when there is none */
    set_baudrate_function_t *set_baudrate;   /**< changes the baud rate; null when it is fixed */
    uint32_t max_baudrate;                   /**< highest baud rate; 0 when it is fixed */
    get_tick_function_t *get_tick;           /**< reads the tick; null when there is no clock */
    uint32_t ticks_per_second;               /**< ticks in a second; 0 when there is no clock */
} vantor_server_interface_t;

#ifdef __cplusplus
}
#endif

#endif
