/** @file
 * The session of the server core: its end, its frames and their pace.
 */
#include "zet_vantor_server_session.h"

#include <utility>

#include "zet_vantor_server_messages.h"
#include "zet_vantor_server_state.h"
#include "zet_vantor_server_system_k330.h"

void zet_server_end_stream()
{
    const bool paced = zet_server.state == SESSION_STREAMING && zet_server.tick_period > 0;
    const uint64_t now = zet_server_clock_read(&zet_server.clock);
    if (paced && now > zet_server.next_frame)
    {
        zet_server.frames_left_out += (now - zet_server.next_frame) / zet_server.tick_period;
    }
    zet_server.state = SESSION_CONFIGURED;
}

void zet_server_end_session()
{
    if (zet_server.state != SESSION_IDLE)
    {
        zet_server_end_stream();
        zet_server.state = SESSION_IDLE;
        zet_server.stream_abandoned = false;
        zet_vantor_server_system_destroy_session();
    }
}

void zet_server_fail_session(zet_server_error_t error)
{
    zet_vantor_server_system_destroy_session();
    zet_server.state = SESSION_IDLE;
    zet_server_report_error(error);
}

bool zet_server_is_end_ahead()
{
    return zet_end_watch_finds_end(&zet_server.end_watch, zet_server.bytes_executed);
}

bool zet_server_take_given_up_wait()
{
    return std::exchange(zet_server.wait_given_up, false);
}

void zet_server_recover_memory()
{
    if (zet_server.state == SESSION_IDLE && zet_server.port.recover_memory != nullptr)
    {
        zet_server.port.recover_memory();
    }
}

void zet_server_end_abandoned_stream()
{
    if (zet_server.stream_abandoned && !zet_server_is_end_ahead())
    {
        zet_server_end_session();
    }
}

void zet_server_measure_frame()
{
    const char *message = nullptr;
    const bool ok = zet_vantor_server_system_read_data_frames(&zet_server.link, &message);
    if (zet_server_take_given_up_wait() && !ok)
    {
        // The commands before an `end` are still executed in the state that their host expects.
        zet_server.stream_abandoned = true;
        zet_server_end_abandoned_stream();
    }
    else if (!ok)
    {
        zet_server_fail_session(zet_server_error_of_backend(message, ZET_SERVER_ERROR_NOX_DATA));
    }
    else
    {
        ++zet_server.frames;
    }
}

namespace
{

/** Sets when the next frame of a paced stream is due, and counts the frames that were left out. */
void schedule_next_frame()
{
    const uint64_t due = zet_server.next_frame;
    zet_server.next_frame =
        zet_server_clock_next_due(due, zet_server.tick_period, zet_server_clock_read(&zet_server.clock));
    zet_server.frames_left_out += (zet_server.next_frame - due) / zet_server.tick_period - 1;
}

} // namespace

void zet_server_continue_stream()
{
    if (zet_server.stream_abandoned)
    {
        return;
    }
    if (zet_server.tick_period == 0)
    {
        zet_server_measure_frame();
    }
    else if (zet_server_clock_read(&zet_server.clock) >= zet_server.next_frame)
    {
        zet_server_measure_frame();
        if (zet_server.state == SESSION_STREAMING && !zet_server.stream_abandoned)
        {
            schedule_next_frame();
        }
    }
}
