/** @file
 * The state that the parts of the server core share.
 */
#ifndef ZET_VANTOR_SERVER_STATE_H
#define ZET_VANTOR_SERVER_STATE_H

#include <cstdint>

#include "zet_vantor_server.h"
#include "zet_vantor_server_clock.h"
#include "zet_vantor_server_end_watch.h"
#include "zet_vantor_server_errors.h"
#include "zet_vantor_server_line.h"
#include "zet_vantor_server_log_ring.h"

/** States of a session. Each is one bit, so that a command can list the states that allow it. */
enum zet_session_state_t : uint8_t
{
    SESSION_IDLE = 1,       /**< there is no session */
    SESSION_CONFIGURED = 2, /**< sensors are prepared; a frame is measured on request */
    SESSION_STREAMING = 4,  /**< frames are measured and sent continuously */
};

/** State of the server core. */
struct zet_server_t
{
    zet_vantor_server_port_t port;  /**< what the port provides */
    vantor_server_interface_t link; /**< the same link, but counting bytes: for the backend */
    zet_server_clock_t clock;       /**< the time */
    zet_line_buffer_t line;         /**< the command being received */
    bool input_restarted;           /**< the rest of the input belongs to another baud rate or host */
    zet_end_watch_t end_watch;      /**< what is known of the input ahead */
    uint64_t bytes_executed;        /**< bytes received up to the end of the last line taken */

    zet_log_ring_t log; /**< log lines for the host */
    uint8_t log_levels; /**< number of levels that the host wants, the most severe first; 0 for none */

    zet_session_state_t state; /**< state of the session */
    uint32_t tick_period;      /**< ticks between two frames; 0 when the server does not pace them */
    uint64_t next_frame;       /**< when the next frame of a paced stream is due */
    bool wait_given_up;        /**< the wait for a sensor ended because nobody needs the measurement */
    bool stream_abandoned;     /**< no more frames are measured until the `end` ahead is executed */

    uint32_t baudrate;           /**< baud rate of the link */
    uint32_t confirmed_baudrate; /**< last baud rate that the host confirmed */
    bool baudrate_on_trial;      /**< the baud rate has not been confirmed yet */
    uint64_t trial_end;          /**< when the server returns to the confirmed baud rate */

    uint32_t hosts_dropped; /**< hosts that the port disconnected */
    const char *last_drop;  /**< why it did so the last time; null for never */

    uint64_t frames;                 /**< frames sent since the start */
    uint64_t frames_left_out;        /**< frames of paced streams that were due but not measured */
    uint64_t frames_left_out_before; /**< the same when the stream started */
    uint64_t bytes_sent;             /**< bytes sent since the start */
    uint64_t bytes_received;         /**< bytes received since the start */
    uint32_t error_counts[ZET_SERVER_ERROR_COUNT]; /**< errors reported to the host since the start */
};

/** The server core. */
extern zet_server_t zet_server;

#endif
