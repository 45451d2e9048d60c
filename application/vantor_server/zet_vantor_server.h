/** @file
 * The server core: receives the host's commands, drives the backend and answers.
 *
 * A port passes it the bytes it receives, and calls it in a loop:
 *
 * @code
 * zet_vantor_server_init(&port);
 * for (;;)
 * {
 *     uint32_t ticks = zet_vantor_server_step();
 *     size_t size = receive_within(ticks, bytes);  // provided by the port
 *     zet_vantor_server_receive(bytes, size);
 * }
 * @endcode
 *
 * Runs on a single thread, and uses no heap except what cJSON needs for the command being executed. The
 * protocol is described in docs/protocol.md.
 */
#ifndef ZET_VANTOR_SERVER_H
#define ZET_VANTOR_SERVER_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "zet_definitions_common.h"
#include "zet_vantor_server_base.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Returned by zet_vantor_server_step when there is nothing to do until the host sends something. */
#define ZET_VANTOR_SERVER_IDLE UINT32_MAX

/** Use of the board's memory; sizes in bytes. */
typedef struct
{
    uint32_t size;         /**< total memory of the allocator */
    uint32_t live;         /**< allocated now */
    uint32_t peak;         /**< highest value of live since the start */
    uint32_t largest_free; /**< largest request that would succeed now */
    uint32_t failures;     /**< number of requests that have failed since the start */
    uint32_t stack_size;   /**< size of the stack; 0 when the port does not know it */
    uint32_t stack_peak;   /**< most of the stack in use at once since the start */
} zet_vantor_server_memory_t;

/** What `identify` reports of the board. Null members are left out. */
typedef struct
{
    const char *name;        /**< kind of board */
    const char *id;          /**< identifies the board among those of its kind, such as a serial number */
    const char *reset_cause; /**< why the board started */
    const char *last_fault;  /**< description of the last fault */
    const char *sensors;     /**< kind of its sensors, such as "simulated" */
} zet_vantor_server_board_t;

/** What a port provides to the server core. The record is copied; what it points to must stay valid. */
typedef struct
{
    vantor_server_interface_t link; /**< the link to the host and the clock */
    char *line;                     /**< buffer for one command line */
    size_t line_size;               /**< its size in bytes: the longest command line plus one */
    uint32_t max_values;            /**< most JSON values in a command; this bounds the parser's memory */
    /** Reports the use of memory; null when the port does not know it. */
    void (*get_memory)(zet_vantor_server_memory_t *memory);
    /** Frees what was allocated since zet_vantor_server_init and is still in use: nobody can free it any
     * more. Called between commands without a session. Null when the port cannot do this; a port can also
     * only make the allocator join its free memory. */
    void (*recover_memory)(void);
    zet_log_level_t nox_log_level; /**< initial threshold of the sensor library's log */
    uint32_t baudrate;             /**< initial baud rate of the link; 0 when it is fixed */
    /** What `identify` reports of the board; null for nothing. */
    const zet_vantor_server_board_t *board;
    /** Returns the actual baud rate of the link for a requested one, or 0 when there is none near it. Null
     * when the link can run at any rate. */
    uint32_t (*nearest_baudrate)(uint32_t baudrate);
} zet_vantor_server_port_t;

/**
 * Starts the server and its backend.
 *
 * @param port  what the port provides
 * @return false when the backend could not start; the reason is logged and everything has been released
 */
bool zet_vantor_server_init(const zet_vantor_server_port_t *port);

/** Ends the session, if there is one, and releases everything. */
void zet_vantor_server_deinit(void);

/**
 * Receives bytes from the host. Every command that they complete is executed before the call returns.
 *
 * @param data  the bytes
 * @param size  their number; 0 is allowed
 */
void zet_vantor_server_receive(const char *data, size_t size);

/**
 * Does the work that is due: measures and sends at most one frame. Blocks for at most one frame's time-out,
 * or until zet_vantor_server_gives_up_wait ends the wait.
 *
 * Call it at least once per 2^32 ticks, so that the server's clock notices every wrap of the tick.
 *
 * @return ticks until work is due, 0 when it is due now; ZET_VANTOR_SERVER_IDLE when there is nothing to do
 *         until the host sends something
 */
uint32_t zet_vantor_server_step(void);

/**
 * Returns whether a restart would disturb nobody: there is no session, no partly received command, and no
 * baud rate that waits for its confirmation.
 */
bool zet_vantor_server_is_idle(void);

/**
 * Shows the server bytes that have arrived while it waits for a sensor. They must still be passed to
 * zet_vantor_server_receive, later and in this order, unless the server restarts its input before.
 *
 * @param data  the bytes, which were not shown before
 * @param size  their number; 0 is allowed
 */
void zet_vantor_server_look_ahead(const char *data, size_t size);

/** What the port knows of the host during a wait for a sensor. */
ZET_BYTE_ENUM(zet_vantor_server_host_t){
    ZET_VANTOR_SERVER_HOST_CONNECTED, /**< more may arrive from it */
    ZET_VANTOR_SERVER_HOST_FINISHED,  /**< it will send nothing more, but it may still receive */
    ZET_VANTOR_SERVER_HOST_GONE,      /**< it will not receive anything either */
};

/**
 * Returns whether nobody needs what a sensor is measuring: the host is gone; or the measurement is a frame of
 * a stream, and the host has sent `end` or will send nothing more. Then the board's wait for the interrupt
 * must fail at once, and the server ends the session without an error. A frame that the host requested with
 * `frame` is measured to the end, because the command must be answered.
 *
 * To be called by the board's wait for a sensor, as often as something has happened on the link.
 */
bool zet_vantor_server_gives_up_wait(zet_vantor_server_host_t host);

/**
 * Returns whether the server has given up a wait and the backend still processes that. The error that it logs
 * meanwhile is not a fault of the sensor: the server does not forward it, and a port need not print it.
 */
bool zet_vantor_server_has_given_up_wait(void);

/** To be called when the host is gone: ends the session and discards a partly received command. */
void zet_vantor_server_link_lost(void);

/**
 * To be called in place of zet_vantor_server_link_lost when the port has disconnected the host. The answers
 * to `identify` and `stats` report it from then on.
 *
 * @param reason  why, such as "it accepted no data for 10 s"; must stay valid
 */
void zet_vantor_server_drop_host(const char *reason);

/**
 * Queues a log line for the host, if the host has asked for lines of its level. Never sends or allocates;
 * may be called from any function on the server's thread.
 *
 * @param level   severity
 * @param module  tag of the module that logs
 * @param text    the formatted text
 */
void zet_vantor_server_log(zet_log_level_t level, const char *module, const char *text);

#ifdef __cplusplus
}
#endif

#endif
