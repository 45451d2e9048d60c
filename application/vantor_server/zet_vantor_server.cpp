/** @file
 * The server core: receives the host's commands, drives the backend and answers. The protocol is described in
 * docs/protocol.md.
 *
 * This file contains what the port calls. The other parts are messages, session, baud rate, reports and
 * commands.
 */
#include "zet_vantor_server.h"

#include <algorithm>

#include "zet_vantor_server_baudrate.h"
#include "zet_vantor_server_commands.h"
#include "zet_vantor_server_messages.h"
#include "zet_vantor_server_session.h"
#include "zet_vantor_server_state.h"
#include "zet_vantor_server_system_k330.h"

zet_server_t zet_server;

namespace
{

/** Looks ahead at the received bytes that were not shown before. */
void look_at_unseen(const char *data, size_t size)
{
    if (zet_server.bytes_received > zet_server.end_watch.seen)
    {
        const auto unseen = static_cast<size_t>(zet_server.bytes_received - zet_server.end_watch.seen);
        zet_vantor_server_look_ahead(data + (size - unseen), unseen);
    }
}

/** Returns the ticks from now to a time; 0 when it has passed. */
uint64_t ticks_until(uint64_t time)
{
    const uint64_t now = zet_server_clock_read(&zet_server.clock);
    return time > now ? time - now : 0;
}

/** Returns the ticks until work is due. */
uint32_t ticks_until_work()
{
    const bool streaming = zet_server.state == SESSION_STREAMING && !zet_server.stream_abandoned;
    if (streaming && zet_server.tick_period == 0)
    {
        return 0;
    }
    uint64_t wait = ZET_VANTOR_SERVER_IDLE;
    if (streaming)
    {
        wait = std::min(wait, ticks_until(zet_server.next_frame));
    }
    if (zet_server.baudrate_on_trial)
    {
        wait = std::min(wait, ticks_until(zet_server.trial_end));
    }
    return static_cast<uint32_t>(wait);
}

} // namespace

bool zet_vantor_server_init(const zet_vantor_server_port_t *port)
{
    zet_server = {};
    zet_server.port = *port;
    zet_server.link = port->link;
    zet_server.link.write = zet_server_send;
    zet_server.state = SESSION_IDLE;
    zet_server.baudrate = port->baudrate;
    zet_server.confirmed_baudrate = port->baudrate;
    zet_line_buffer_init(&zet_server.line, port->line, port->line_size);
    zet_end_watch_reset(&zet_server.end_watch, 0);
    zet_server_clock_start(&zet_server.clock, &port->link);
    if (!zet_vantor_server_system_init(port->nox_log_level))
    {
        zet_vantor_server_system_deinit();
        return false;
    }
    return true;
}

void zet_vantor_server_deinit(void)
{
    zet_server_end_session();
    zet_vantor_server_system_deinit();
}

void zet_vantor_server_receive(const char *data, size_t size)
{
    (void)zet_server_clock_read(&zet_server.clock);
    zet_server.bytes_received += size;
    look_at_unseen(data, size);
    zet_server.input_restarted = false;
    while (size > 0 && !zet_server.input_restarted)
    {
        const zet_line_event_t event = zet_line_buffer_take(&zet_server.line, &data, &size);
        zet_server.bytes_executed = zet_server.bytes_received - size;
        if (event == ZET_LINE_TOO_LONG)
        {
            zet_server_report_error(ZET_SERVER_ERROR_LINE_TOO_LONG);
        }
        else if (event == ZET_LINE_COMPLETE)
        {
            zet_server_execute_line(zet_server.line.text, zet_server.line.length);
        }
        zet_server_end_abandoned_stream();
        zet_server_recover_memory();
    }
    zet_server_flush_log();
}

uint32_t zet_vantor_server_step(void)
{
    (void)zet_server_clock_read(&zet_server.clock);
    zet_server_watch_baudrate();
    if (zet_server.state == SESSION_STREAMING)
    {
        zet_server_continue_stream();
    }
    zet_server_flush_log();
    return ticks_until_work();
}

bool zet_vantor_server_is_idle(void)
{
    return zet_server.state == SESSION_IDLE && !zet_server.baudrate_on_trial &&
           zet_line_buffer_is_between_lines(&zet_server.line);
}

void zet_vantor_server_link_lost(void)
{
    zet_server_end_session();
    zet_server_recover_memory();
    zet_server.log_levels = 0;
    zet_log_ring_clear(&zet_server.log);
    zet_server.baudrate_on_trial = false;
    zet_server.confirmed_baudrate = zet_server.port.baudrate;
    zet_server_discard_input();
    if (zet_server.baudrate != zet_server.port.baudrate)
    {
        zet_server_change_baudrate(zet_server.port.baudrate);
    }
}

void zet_vantor_server_drop_host(const char *reason)
{
    zet_vantor_server_link_lost();
    ++zet_server.hosts_dropped;
    zet_server.last_drop = reason;
}

void zet_vantor_server_look_ahead(const char *data, size_t size)
{
    zet_end_watch_look(&zet_server.end_watch, data, size, zet_server.bytes_executed);
}

bool zet_vantor_server_gives_up_wait(zet_vantor_server_host_t host)
{
    const bool nothing_ahead = !zet_end_watch_finds_line(&zet_server.end_watch, zet_server.bytes_executed);
    const bool stream_is_over =
        zet_server.state == SESSION_STREAMING &&
        (zet_server_is_end_ahead() || (host == ZET_VANTOR_SERVER_HOST_FINISHED && nothing_ahead));
    zet_server.wait_given_up = stream_is_over || host == ZET_VANTOR_SERVER_HOST_GONE;
    return zet_server.wait_given_up;
}

bool zet_vantor_server_has_given_up_wait(void)
{
    return zet_server.wait_given_up;
}

void zet_vantor_server_log(zet_log_level_t level, const char *module, const char *text)
{
    if (level < zet_server.log_levels && !zet_server.wait_given_up)
    {
        zet_log_ring_put(&zet_server.log, level, module, text);
    }
}
