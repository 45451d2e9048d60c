/** @file
 * The main loop: wait for input as long as the server core allows, hand it over, let the core do a step.
 */
#include "server.h"

#include <algorithm>
#include <poll.h>

#include "board_memory.h"
#include "clock.h"
#include "zet_vantor_server.h"

namespace
{

/** Longest command line: a configuration of 50 items with calibrations of all its sensors fits well. */
constexpr size_t line_size = 65536;

/** The server core calls back without a context, so what the callbacks need is here. */
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
    return static_cast<uint32_t>(current_clock.now_us());
}

/**
 * Waits until input has come or the server core wants to be called again.
 *
 * On a virtual clock no time passes by itself: without input the clock moves to when the core is due.
 *
 * @return false when the program is to end
 */
bool wait_for_work(const link_t &link, uint32_t ticks, bool virtual_clock)
{
    // An idle server is called in time for every round of its tick.
    const bool jump = virtual_clock && ticks != ZET_VANTOR_SERVER_IDLE;
    const int64_t timeout_us = jump ? 0 : static_cast<int64_t>(std::min(ticks, UINT32_MAX / 2));
    const wait_result_t result = wait_for(link.input(), POLLIN, timeout_us, link.other_hosts());
    if (result == wait_result_t::timeout && jump)
    {
        current_clock.sleep_until_us(current_clock.now_us() + ticks);
    }
    return result != wait_result_t::stopped;
}

/** Serves the host that is there until it goes; false when the program is to end. */
bool serve_host(link_t &link, bool virtual_clock)
{
    static_assert(ticks_per_second == 1000000, "ticks are microseconds");
    // Large enough for all that a host sends ahead: it is to be obeyed before the next frame is measured.
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
        // A host that has said its last word makes room in a moment: the next one waits for that.
        if (link.connected() && !has_finished(link.input()))
        {
            link.turn_other_host_away();
        }
    }
    return true;
}

} // namespace

bool serve(link_t &link, const zet_simulator_clock_t &clock, bool virtual_clock, zet_log_level_t log_level,
           const zet_vantor_server_board_t &board)
{
    current_link = &link;
    current_clock = clock;
    static std::array<char, line_size> line;

    // The core's time-outs are meant for a host that lives in real time, so a virtual clock offers no baud
    // rates.
    zet_vantor_server_port_t port = {};
    port.link = {write_to_host, restart_input,   set_baudrate, virtual_clock ? 0 : link.max_baudrate(),
                 get_tick,      ticks_per_second};
    port.baudrate = link.baudrate();
    port.line = line.data();
    port.line_size = line.size();
    port.max_values = line_size / 4;
    port.get_memory = memory_get;
    port.nox_log_level = log_level;
    port.board = &board;
    if (!zet_vantor_server_init(&port))
    {
        return false;
    }
    while (link.accept_host())
    {
        const bool go_on = serve_host(link, virtual_clock);
        zet_vantor_server_link_lost();
        link.close_host();
        if (!go_on)
        {
            break;
        }
    }
    zet_vantor_server_deinit();
    return true;
}
