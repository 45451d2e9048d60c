/** @file
 * The firmware: the server on a board with sensors.
 */
#include <algorithm>
#include <cstddef>

#include "board.h"
#include "clock.h"
#include "cortex_m4.h"
#include "link.h"
#include "board_memory.h"
#include "sensors.h"
#include "stack.h"
#include "start.h"
#include "zet_integration_log.h"
#include "zet_vantor_server.h"

// From the linker script.
extern "C" {
extern uint8_t heap_begin[];
extern uint8_t heap_end[];
}

namespace
{

constexpr uint32_t ticks_per_second = 1000000;

/** Longest command line: a configuration of ten items with the calibrations of four sensors fits. */
constexpr size_t line_size = 6144;

/** Most values in a command, each of which takes some 64 bytes of the heap. */
constexpr uint32_t max_values = 256;

/**
 * Memory that may be lost before the board restarts. A session that runs out of memory while it is described
 * to the host leaves parts of the description behind.
 */
constexpr size_t tolerated_loss = 2048;

/** Most bytes that are taken from the host between two frames. */
constexpr uint32_t most_input = 2048;

char line[line_size];

uint32_t get_tick()
{
    return static_cast<uint32_t>(clock_now_us());
}

void get_memory(zet_vantor_server_memory_t *memory)
{
    memory_get(memory);
    memory->stack_size = cortex_m4::stack_size();
    memory->stack_peak = cortex_m4::stack_peak();
}

/** Brings the server up. */
bool start_server()
{
    zet_vantor_server_port_t port = {};
    port.link.write = link_write;
    port.link.restart_input = link_discard_input;
    port.link.set_baudrate = link_set_baudrate;
    port.link.max_baudrate = BOARD_LINK_MAX_BAUDRATE;
    port.link.get_tick = get_tick;
    port.link.ticks_per_second = ticks_per_second;
    port.baudrate = BOARD_LINK_START_BAUDRATE;
    port.line = line;
    port.line_size = sizeof line;
    port.max_values = max_values;
    port.get_memory = get_memory;
    port.nox_log_level = ZET_LOG_LEVEL_WARNING;
    return zet_vantor_server_init(&port);
}

/** Sleeps until input has come or the server wants to be called again. */
void wait_for_work(uint32_t ticks)
{
    // An idle server is called in time for every round of its tick.
    const uint64_t end = clock_now_us() + std::min(ticks, UINT32_MAX / 2);
    for (bool waiting = true; waiting;)
    {
        const cortex_m4::interrupt_lock lock;
        waiting = !link_has_input() && clock_sleep_until_interrupt(end);
    }
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
void serve()
{
    const size_t live_at_rest = live_memory();
    while (!zet_vantor_server_is_idle() || live_memory() <= live_at_rest + tolerated_loss || link_has_input())
    {
        wait_for_work(zet_vantor_server_step());
        receive_input();
        if (link_is_stalled())
        {
            zet_vantor_server_link_lost();
            link_open();
            zet_integration_log(ZET_LOG_LEVEL_WARNING, "board", "The host took nothing: link restarted");
        }
    }
}

} // namespace

void run_board()
{
    board_start();
    clock_start();
    sensors_start();
    memory_lend(heap_begin, static_cast<size_t>(heap_end - heap_begin));
    if (!start_server())
    {
        zet_integration_log(ZET_LOG_LEVEL_ERROR, "board", "The server could not be started");
        return;
    }
    link_open();
    serve();
    link_drain();
    zet_integration_log(ZET_LOG_LEVEL_WARNING, "board", "Memory was lost: restarting");
}
