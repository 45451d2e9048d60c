/** @file
 * The baud rate of the link of the server core.
 */
#include "zet_vantor_server_baudrate.h"

#include "zet_vantor_server_messages.h"
#include "zet_vantor_server_state.h"
#include "zet_vantor_server_text.h"

namespace
{

/** A baud rate may be off by at most one part in this number: 2 %. */
constexpr uint64_t baudrate_tolerance = 50;

/** Returns whether the link works at a baud rate when its actual rate is another one. */
bool is_near_baudrate(uint32_t baudrate, uint32_t actual)
{
    const uint64_t difference = actual > baudrate ? actual - baudrate : baudrate - actual;
    return actual > 0 && difference * baudrate_tolerance <= baudrate;
}

/** Reports that the link cannot run at a baud rate, and the nearest possible rate; 0 when none is near. */
void report_impossible_baudrate(uint32_t baudrate, uint32_t nearest)
{
    char message[96];
    char *end = zet_append_text(message, "This link cannot run at ");
    end = zet_append_number(end, baudrate);
    if (nearest == 0)
    {
        zet_append_text(end, " baud or near it.");
    }
    else
    {
        end = zet_append_text(end, " baud; the nearest rate is ");
        end = zet_append_number(end, nearest);
        zet_append_text(end, ".");
    }
    zet_server_report_error(ZET_SERVER_ERROR_BAD_ARGUMENT, message);
}

} // namespace

bool zet_server_can_change_baudrate()
{
    return zet_server.port.link.set_baudrate != nullptr && zet_server.port.link.max_baudrate > 0 &&
           zet_server.port.baudrate > 0 && zet_server.clock.ticks_per_second > 0;
}

void zet_server_discard_input()
{
    if (zet_server.port.link.restart_input != nullptr)
    {
        zet_server.port.link.restart_input();
    }
    zet_line_buffer_clear(&zet_server.line);
    zet_end_watch_reset(&zet_server.end_watch, zet_server.bytes_received);
    zet_server.bytes_executed = zet_server.bytes_received;
    zet_server.input_restarted = true;
}

void zet_server_change_baudrate(uint32_t baudrate)
{
    zet_server.port.link.set_baudrate(baudrate);
    zet_server.baudrate = baudrate;
}

void zet_server_watch_baudrate()
{
    if (zet_server.baudrate_on_trial && zet_server_clock_read(&zet_server.clock) >= zet_server.trial_end)
    {
        zet_server.baudrate_on_trial = false;
        zet_server_discard_input();
        zet_server_change_baudrate(zet_server.confirmed_baudrate);
    }
}

bool zet_server_accept_baudrate(uint32_t baudrate)
{
    if (zet_server.port.nearest_baudrate == nullptr)
    {
        return true;
    }
    const uint32_t nearest = zet_server.port.nearest_baudrate(baudrate);
    const bool possible = is_near_baudrate(baudrate, nearest);
    if (!possible)
    {
        report_impossible_baudrate(baudrate, nearest);
    }
    return possible;
}
