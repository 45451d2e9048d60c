/** @file
 * The firmware: the server on a board.
 */
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "board.h"
#include "board_memory.h"
#include "clock.h"
#include "link.h"
#include "log.h"
#include "memory_protection.h"
#include "retained.h"
#include "sensors.h"
#include "stack.h"
#include "start.h"
#include "zet_vantor_server.h"

// From the linker script.
extern "C" {
extern uint8_t heap_begin[];
extern uint8_t heap_end[];
}

namespace
{

constexpr uint32_t ticks_per_second = 1000000;

/** Most bytes that are read from the host between two frames. */
constexpr uint32_t most_input = 2048;

char line[BOARD_LINE_SIZE];
zet_vantor_server_board_t identity;

uint32_t get_tick()
{
    return static_cast<uint32_t>(sensors_now_us());
}

void get_memory(zet_vantor_server_memory_t *memory)
{
    memory_get(memory);
    memory->stack_size = cortex_m4::stack_size();
    memory->stack_peak = cortex_m4::stack_peak();
}

/** Returns the bytes of the heap that are in use. */
size_t live_memory()
{
    zet_vantor_server_memory_t memory = {};
    memory_get(&memory);
    return memory.live;
}

/** Joins the blocks that the allocator has kept for a session, before the next command uses some of them. */
void join_kept_memory()
{
    (void)live_memory();
}

/** Logs the board, the cause of its reset, and the addresses that the program may access. */
void log_start()
{
    char text[256];
    (void)std::snprintf(text, sizeof text,
                        "%s, version %s, sensors: %s, reset cause: %s; open:", VANTOR_BOARD_NAME,
                        VANTOR_SERVER_VERSION, sensors_kind(), retained_reset_cause());
    for (uint32_t i = 0; i < cortex_m4::open_region_count(); ++i)
    {
        const cortex_m4::region_t region = cortex_m4::open_region(i);
        const size_t length = std::strlen(text);
        (void)std::snprintf(text + length, sizeof text - length, " %s %08lx-%08lx", region.name,
                            static_cast<unsigned long>(region.begin),
                            static_cast<unsigned long>(region.last));
    }
    log_to_port(ZET_LOG_LEVEL_INFO, "board", text);
}

/** Starts the server. With a virtual clock the baud rate is fixed: a host confirms a new one in real time. */
bool start_server()
{
    identity = {VANTOR_BOARD_NAME, board_id(), retained_reset_cause(), retained_last_fault(), sensors_kind()};
    zet_vantor_server_port_t port = {};
    port.link.write = link_write;
    port.link.restart_input = link_discard_input;
    port.link.set_baudrate = link_set_baudrate;
    port.link.max_baudrate = sensors_have_virtual_clock() ? 0 : BOARD_LINK_MAX_BAUDRATE;
    port.link.get_tick = get_tick;
    port.link.ticks_per_second = ticks_per_second;
    port.nearest_baudrate = board_link_nearest_baudrate;
    port.baudrate = BOARD_LINK_START_BAUDRATE;
    port.line = line;
    port.line_size = sizeof line;
    port.max_values = BOARD_MAX_VALUES;
    port.get_memory = get_memory;
    port.recover_memory = join_kept_memory;
    port.board = &identity;
    port.nox_log_level = ZET_LOG_LEVEL_WARNING;
    return zet_vantor_server_init(&port);
}

/**
 * Waits until input has arrived or the server has work. A virtual clock does not advance by itself: if there
 * is no input, it is set to the time of the server's next work.
 */
void wait_for_work(uint32_t ticks)
{
    if (!sensors_have_virtual_clock() || ticks == ZET_VANTOR_SERVER_IDLE)
    {
        // Often enough to notice every wrap of the server's tick, and a host that accepts no data.
        const uint32_t longest = link_is_sending() ? link_stall_limit_s * ticks_per_second : UINT32_MAX / 2;
        (void)clock_wait_until(clock_now_us() + std::min(ticks, longest), link_has_input);
    }
    else if (!link_has_input())
    {
        sensors_advance_clock(ticks);
    }
}

/** Passes input to the server, but only so much that a host that never pauses does not delay the frames. */
void receive_input()
{
    char input[64];
    for (uint32_t room = most_input; room > 0 && link_has_input(); room -= sizeof input)
    {
        zet_vantor_server_receive(input, link_read(input, sizeof input));
    }
}

/** Ends the session of a host that accepts no data, and restarts the link. */
void drop_host()
{
    static char reason[40];
    (void)std::snprintf(reason, sizeof reason, "it accepted no data for %lu s",
                        static_cast<unsigned long>(link_stall_limit_s));
    log_line(ZET_LOG_LEVEL_WARNING, "board", "The host does not read: restarting the link");
    zet_vantor_server_drop_host(reason);
    link_open();
}

/** Serves the host at the other end of the link, until too much memory is lost. */
void serve()
{
    const size_t live_at_rest = live_memory();
    while (!zet_vantor_server_is_idle() || live_memory() <= live_at_rest + BOARD_TOLERATED_LOSS ||
           link_has_input())
    {
        wait_for_work(zet_vantor_server_step());
        receive_input();
        if (link_is_stalled())
        {
            drop_host();
        }
    }
}

/** Logs and retains why the board restarts. */
void note_restart(zet_log_level_t level, const char *cause)
{
    log_line(level, "board", cause);
    retain_restart_cause(cause);
}

} // namespace

void run_board()
{
    retained_start();
    board_start();
    log_start();
    link_open();
    memory_lend(heap_begin, static_cast<size_t>(heap_end - heap_begin));
    if (!sensors_start() || !start_server())
    {
        note_restart(ZET_LOG_LEVEL_ERROR, "server not started");
        return;
    }
    serve();
    link_drain();
    note_restart(ZET_LOG_LEVEL_WARNING, "memory lost");
}
