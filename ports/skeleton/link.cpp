/** @file
 * The link to the host.
 */
#include "link.h"

#include "board.h"
#include "clock.h"
#include "cortex_m4.h"
#include "interrupts.h"

namespace
{

/** Room for what comes while a frame is measured and sent; a power of two. */
constexpr uint32_t ring_size = 2048;

/** How long the port may take nothing. */
constexpr uint64_t stall_time_us = 5000000;

// Written by the interrupt: the ring, its end, and what was lost. Written by the program: its begin.
// Begin and end count without end. All is volatile, so that a byte is read before its place is given free.
volatile char ring[ring_size];
volatile uint32_t ring_begin;
volatile uint32_t ring_end;
volatile bool bytes_lost;

bool stalled;

/** Takes a byte into the ring. */
void put(uint8_t byte)
{
    ring[ring_end % ring_size] = static_cast<char>(byte);
    ring_end = ring_end + 1;
}

/** Takes a byte that has come, if there is room. The last place is kept for the mark of a loss. */
void take_byte(uint8_t byte)
{
    const uint32_t room = ring_size - (ring_end - ring_begin);
    if (room > 1)
    {
        put(byte);
        bytes_lost = false;
    }
    else if (!bytes_lost)
    {
        put(0);
        bytes_lost = true;
    }
}

/** Waits until the port is ready; false when it is not so in time. */
bool wait_for_port(bool (*is_ready)())
{
    const uint64_t deadline = clock_now_us() + stall_time_us;
    while (!is_ready())
    {
        if (clock_now_us() >= deadline)
        {
            return false;
        }
    }
    return true;
}

} // namespace

void link_handler()
{
    uint8_t byte = 0;
    while (board_link_receive(&byte))
    {
        take_byte(byte);
    }
}

void link_open()
{
    board_link_open(BOARD_LINK_START_BAUDRATE);
    link_discard_input();
    stalled = false;
    cortex_m4::enable_interrupt(BOARD_LINK_INTERRUPT);
}

void link_write(const void *data, uint32_t size)
{
    const auto *bytes = static_cast<const uint8_t *>(data);
    for (uint32_t i = 0; i < size && !stalled; ++i)
    {
        stalled = !wait_for_port(board_link_can_send);
        if (!stalled)
        {
            board_link_send(bytes[i]);
        }
    }
}

bool link_is_stalled()
{
    return stalled;
}

bool link_has_input()
{
    return ring_begin != ring_end;
}

size_t link_read(char *data, size_t size)
{
    size_t count = 0;
    for (; count < size && link_has_input(); ++count)
    {
        data[count] = ring[ring_begin % ring_size];
        ring_begin = ring_begin + 1;
    }
    return count;
}

void link_discard_input()
{
    ring_begin = ring_end;
}

void link_drain()
{
    stalled = stalled || !wait_for_port(board_link_is_drained);
}

void link_set_baudrate(uint32_t baudrate)
{
    link_drain();
    board_link_open(baudrate);
}
