/** @file
 * The firmware: the server on a simulated board with sensors, on a real processor.
 */
#include <algorithm>
#include <cstddef>

#include "clock.h"
#include "link.h"
#include "log.h"
#include "board_memory.h"
#include "settings.h"
#include "stack.h"
#include "start.h"
#include "uart.h"
#include "zet_simulator.h"
#include "zet_vantor_server.h"

// From the linker script.
extern "C" {
extern uint8_t heap_begin[];
extern uint8_t heap_end[];
}

namespace
{

constexpr uint32_t ticks_per_second = 1000000;

/** Longest command line: more than the longest configuration that the heap holds. */
constexpr size_t line_size = 12288;

/** Most values in a command. The heap ends the parsing of longer ones. */
constexpr uint32_t max_values = 1024;

/**
 * Memory that may be lost before the server starts anew. A session that cannot be described for want of
 * memory leaves parts of the description behind.
 */
constexpr size_t tolerated_loss = 8192;

/** Most bytes that are taken from the host between two frames. */
constexpr uint32_t most_input = 2048;

char line[line_size];
zet_simulator_clock_t current_clock;

uint32_t get_tick()
{
    return static_cast<uint32_t>(current_clock.now_us());
}

void get_memory(zet_vantor_server_memory_t *memory)
{
    memory_get(memory);
    memory->stack_size = cortex_m4::stack_size();
    memory->stack_peak = cortex_m4::stack_peak();
}

/** Sets the simulated board up. */
bool start_board(const settings_t &settings)
{
    memory_lend(heap_begin, static_cast<size_t>(heap_end - heap_begin));
    current_clock = settings.virtual_clock != 0 ? zet_simulator_virtual_clock() : real_clock();
    zet_simulator_options_t options = {};
    options.sensor_count = settings.sensor_count;
    options.seed = settings.seed;
    options.clock = current_clock;
    options.log = log_line;
    options.log_level = ZET_LOG_LEVEL_DEBUG;
    return zet_simulator_start(&options);
}

/** Brings the server up. A virtual clock offers no speeds: a host that confirms one lives in real time. */
bool start_server(const settings_t &settings)
{
    zet_vantor_server_port_t port = {};
    port.link.write = link_write;
    port.link.restart_input = link_discard_input;
    port.link.set_baudrate = link_set_baudrate;
    port.link.max_baudrate = settings.virtual_clock != 0 ? 0 : uart_max_baudrate;
    port.link.get_tick = get_tick;
    port.link.ticks_per_second = ticks_per_second;
    port.baudrate = link_baudrate();
    port.line = line;
    port.line_size = sizeof line;
    port.max_values = max_values;
    port.get_memory = get_memory;
    port.nox_log_level = ZET_LOG_LEVEL_WARNING;
    return zet_vantor_server_init(&port);
}

/**
 * Sleeps until input has come or the server wants to be called again.
 *
 * On a virtual clock no time passes by itself: without input the clock moves to when the server is due.
 */
void wait_for_work(uint32_t ticks, bool virtual_clock)
{
    if (virtual_clock && ticks != ZET_VANTOR_SERVER_IDLE)
    {
        if (!link_has_input())
        {
            current_clock.sleep_until_us(current_clock.now_us() + ticks);
        }
        return;
    }
    // An idle server is called in time for every round of its tick.
    const uint32_t longest = UINT32_MAX / 2;
    clock_sleep_until_us(clock_now_us() + std::min(ticks, longest), link_has_input);
}

/** Bytes of the heap that are in use. */
size_t live_memory()
{
    zet_vantor_server_memory_t heap = {};
    memory_get(&heap);
    return heap.live;
}

/** Obeys what has come; a host that never pauses does not hold up the frames. */
void receive_input()
{
    char input[64];
    for (uint32_t room = most_input; room > 0 && link_has_input(); room -= sizeof input)
    {
        zet_vantor_server_receive(input, link_read(input, sizeof input));
    }
}

/** Serves whoever is at the other end of the link, until too much memory is lost. */
void serve(bool virtual_clock)
{
    const size_t live_at_rest = live_memory();
    while (!zet_vantor_server_is_idle() || live_memory() <= live_at_rest + tolerated_loss)
    {
        wait_for_work(zet_vantor_server_step(), virtual_clock);
        receive_input();
        if (link_is_stalled())
        {
            log_line(ZET_LOG_LEVEL_WARNING, "board", "The host takes nothing: link restarted");
            zet_vantor_server_link_lost();
            link_restart();
        }
    }
}

} // namespace

void run_board()
{
    clock_start();
    log_open();
    link_open();
    const settings_t settings = read_settings();
    while (start_board(settings) && start_server(settings))
    {
        serve(settings.virtual_clock != 0);
        zet_vantor_server_deinit();
        zet_simulator_stop();
        log_line(ZET_LOG_LEVEL_WARNING, "board",
                 "Memory was lost to sessions that ran out of it: server started anew");
    }
    log_line(ZET_LOG_LEVEL_ERROR, "board", "The server could not be started");
}
