/** @file
 * The server core: takes the host's commands, drives the backend and answers.
 *
 * A port feeds it with what it receives and calls it again and again:
 *
 * @code
 * zet_vantor_server_init(&port);
 * for (;;)
 * {
 *     uint32_t ticks = zet_vantor_server_step();
 *     size_t size = receive_within(ticks, bytes);  // the port's own
 *     zet_vantor_server_receive(bytes, size);
 * }
 * @endcode
 *
 * Single thread; no heap of its own beyond what cJSON takes while it holds a command. The protocol is in
 * docs/protocol.md.
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

/** What zet_vantor_server_step returns when there is no clock to watch and only the host can bring work. */
#define ZET_VANTOR_SERVER_IDLE UINT32_MAX

/** Use of the board's memory, in bytes. */
typedef struct
{
    uint32_t size;         /**< memory of the allocator in all */
    uint32_t live;         /**< allocated now */
    uint32_t peak;         /**< highest value of live since the start */
    uint32_t largest_free; /**< largest request that could be met now */
    uint32_t failures;     /**< number of requests that could not be met since the start */
    uint32_t stack_size;   /**< stack; 0 when the port does not know it */
    uint32_t stack_peak;   /**< most of the stack that was in use at a time since the start */
} zet_vantor_server_memory_t;

/** What `identify` reports of the board. Null members are left out. */
typedef struct
{
    const char *name;        /**< kind of board */
    const char *id;          /**< distinguishes boards of one kind, such as a serial number */
    const char *reset_cause; /**< why the board started */
    const char *last_fault;  /**< what the last fault was */
    const char *sensors;     /**< what kind of sensors it has, such as "simulated" */
} zet_vantor_server_board_t;

/** What a port lends to the server core. The record is copied; what it points to must stay valid. */
typedef struct
{
    vantor_server_interface_t link; /**< the link to the host and the clock */
    char *line;                     /**< buffer for one command line */
    size_t line_size;               /**< its size in bytes: longest command line plus one */
    uint32_t max_values;            /**< most JSON values in a command: bounds the parser's memory */
    /** Reports the use of memory; null when the port does not know it. */
    void (*get_memory)(zet_vantor_server_memory_t *memory);
    zet_log_level_t nox_log_level; /**< threshold of the sensor library's log at start */
    uint32_t baudrate;             /**< baud rate of the link at start; 0 when it is fixed */
    /** What `identify` reports of the board; null for nothing. */
    const zet_vantor_server_board_t *board;
    /** The baud rate that the link really gets when a rate is asked for, 0 when it cannot get one near it;
     * null when it gets any rate. */
    uint32_t (*nearest_baudrate)(uint32_t baudrate);
} zet_vantor_server_port_t;

/**
 * Brings the server up, the backend included.
 *
 * @param port  what the port lends
 * @return false when the backend could not be made ready (the reason is logged); everything has been
 *         released again
 */
bool zet_vantor_server_init(const zet_vantor_server_port_t *port);

/** Ends the session, if there is one, and releases everything. */
void zet_vantor_server_deinit(void);

/**
 * Takes bytes from the host. Every command that they complete is obeyed before the call returns.
 *
 * @param data  the bytes
 * @param size  their number; 0 is allowed
 */
void zet_vantor_server_receive(const char *data, size_t size);

/**
 * Does what is due: measures and sends at most one frame. Blocks no longer than one frame's time-out.
 *
 * Call it at least once in every round of the tick, so that no wrap of the tick escapes the server's clock.
 *
 * @return ticks until work is due; 0 for at once; ZET_VANTOR_SERVER_IDLE when only input from the host can
 * bring work
 */
uint32_t zet_vantor_server_step(void);

/**
 * Whether nobody would notice a restart: there is no session, no command half received, and no baud rate of
 * the link that may still be taken back.
 */
bool zet_vantor_server_is_idle(void);

/** Tells the server that the host is gone: ends the session and forgets what was half received. */
void zet_vantor_server_link_lost(void);

/**
 * Offers a log line for the host, which may have asked for it. Never sends at once, never allocates, may
 * be called from anywhere on the server's thread.
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
