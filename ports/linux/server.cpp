/** @file
 * The main loop: waits for input as long as the server core allows, passes it to the core, runs a step of the
 * core.
 */
#include "server.h"

#include <algorithm>
#include <poll.h>

#include "board_memory.h"
#include "clock.h"
#include "zet_integration_log.h"
#include "zet_vantor_server.h"

namespace
{

/** Longest command line: enough for a configuration of 50 items with the calibrations of all its sensors. */
constexpr size_t line_size = 65536;

/** The server core passes no context to its callbacks, so what they need is global. */
link_t *current_link;
zet_simulator_clock_t current_clock;

void write_to_host(const void *data, uint32_t size)
{
    current_link->write(data, size);
}

void restart_input()
{
    current_link->discard_input();
}

void set_baudrate(uint32_t baudrate)
{
    current_link->flush();
    current_link->set_baudrate(baudrate);
}

uint32_t get_tick()
{
    const auto tick = static_cast<uint32_t>(current_clock.now_us());
    zet_simulator_note_tick(tick);
    return tick;
}

/**
 * Waits until input has arrived or the server core has work.
 *
 * A virtual clock does not advance by itself: if there is no input, it is set to the time of the core's next
 * work.
 *
 * @return false when the program must end
 */
bool wait_for_work(const link_t &link, uint32_t ticks, bool virtual_clock)
{
    // An idle server is called often enough to notice every wrap of its tick.
    const bool jump = virtual_clock && ticks != ZET_VANTOR_SERVER_IDLE;
    const bool is_ready = jump || link.has_input_ahead();
    const auto timeout_ticks = static_cast<int64_t>(std::min(ticks, UINT32_MAX / 2));
    const int64_t timeout_us = is_ready ? 0 : real_span_us(timeout_ticks);
    const wait_result_t result =
        link.wait_with_others(std::array{pollfd{link.input(), POLLIN, 0}}, timeout_us);
    if (result == wait_result_t::timeout && jump)
    {
        current_clock.sleep_until_us(current_clock.now_us() + ticks);
    }
    return result != wait_result_t::stopped;
}

/** Ends the session of a host that was disconnected because it accepted no data. */
void end_stalled_session(const std::string &reason)
{
    zet_integration_log(ZET_LOG_LEVEL_WARNING, "link", "Disconnected the host: %s", reason.c_str());
    zet_vantor_server_drop_host(reason.c_str());
}

/** Frees what was lost in a session that ran out of memory. */
void recover_memory()
{
    static uint32_t failures = 0;
    zet_vantor_server_memory_t memory = {};
    memory_get(&memory);
    // Without a failure nothing is lost: bytes that are not freed then are a fault, which must be noticed.
    if (memory.failures > failures)
    {
        failures = memory.failures;
        const size_t lost = memory_recover();
        if (lost > 0)
        {
            zet_integration_log(ZET_LOG_LEVEL_INFO, "memory", "Recovered %lu bytes after memory ran out",
                                static_cast<unsigned long>(lost));
        }
    }
}

/** Starts the server core; false when it could not be started. */
bool start_core(const link_t &link, bool virtual_clock, zet_log_level_t log_level,
                const zet_vantor_server_board_t &board)
{
    static std::array<char, line_size> line;

    // A host confirms a new baud rate in real time, so with a virtual clock the baud rate is fixed.
    zet_vantor_server_port_t port = {};
    port.link = {write_to_host, restart_input,   set_baudrate, virtual_clock ? 0 : link.max_baudrate(),
                 get_tick,      ticks_per_second};
    port.baudrate = link.baudrate();
    port.line = line.data();
    port.line_size = line.size();
    port.max_values = line_size / 4;
    port.get_memory = memory_get;
    port.recover_memory = recover_memory;
    port.nox_log_level = log_level;
    port.board = &board;
    if (!zet_vantor_server_init(&port))
    {
        return false;
    }
    memory_keep();
    return true;
}

/** Serves the connected host until it disconnects; false when the program must end. */
bool serve_host(link_t &link, bool virtual_clock)
{
    static_assert(ticks_per_second == 1000000, "ticks are microseconds");
    // Large enough for all commands that a host sends ahead: they must be executed before the next frame.
    std::array<char, line_size> input;
    while (link.connected())
    {
        const uint32_t ticks = zet_vantor_server_step();
        link.flush();
        if (link.connected() && !wait_for_work(link, ticks, virtual_clock))
        {
            return false;
        }
        zet_vantor_server_receive(input.data(), link.read(input.data(), input.size()));
        link.flush();
        // A host that will send nothing more disconnects soon: the next one waits for that.
        if (link.connected() && link.has_other_host() && !has_finished(link.input()))
        {
            link.reject_other_host();
        }
    }
    return true;
}

} // namespace

bool wait_for_sensor(uint64_t time_us)
{
    bool must_end = false;
    for (uint64_t now = current_clock.now_us(); now < time_us; now = current_clock.now_us())
    {
        const bool other_waits = current_link->has_other_host();
        const std::string_view arrived = current_link->look_ahead();
        zet_vantor_server_look_ahead(arrived.data(), arrived.size());
        if (zet_vantor_server_gives_up_wait(must_end ? ZET_VANTOR_SERVER_HOST_GONE
                                                     : current_link->host_state()))
        {
            return false;
        }
        if (other_waits)
        {
            current_link->reject_other_host();
        }
        const int64_t time_left_us = real_span_us(static_cast<int64_t>(time_us - now));
        must_end = current_link->wait_ahead(time_left_us) == wait_result_t::stopped;
    }
    return true;
}

bool serve(link_t &link, const zet_simulator_clock_t &clock, bool virtual_clock, zet_log_level_t log_level,
           const zet_vantor_server_board_t &board)
{
    current_link = &link;
    current_clock = clock;
    if (!start_core(link, virtual_clock, log_level, board))
    {
        return false;
    }
    const std::string stall_reason =
        "it accepted no data for " + std::to_string(link.stall_limit_us() / 1000000) + " s";
    while (link.accept_host())
    {
        const bool running = serve_host(link, virtual_clock);
        link.has_stalled() ? end_stalled_session(stall_reason) : zet_vantor_server_link_lost();
        link.close_host();
        if (!running)
        {
            break;
        }
    }
    zet_vantor_server_deinit();
    return true;
}
