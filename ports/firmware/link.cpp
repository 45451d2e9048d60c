/** @file
 * The link to the host.
 */
#include "link.h"

#include <algorithm>

#include "board.h"
#include "clock.h"
#include "interrupts.h"
#include "receive_ring.h"

namespace
{

constexpr uint64_t stall_time_us = uint64_t{link_stall_limit_s} * 1000000;

/** Bits of a byte on the wire, including start and stop bit, times the microseconds in a second. */
constexpr uint32_t byte_time_us_baud = 10000000;

constinit cortex_m4::receive_ring_t<BOARD_RING_SIZE> ring;
uint32_t looked_at; /**< unread bytes that link_look_ahead has copied */
bool stalled;
uint32_t current_baudrate;

/** Waits until the port is ready; false when it takes too long. Polls, because a byte takes microseconds. */
bool wait_for_port(bool (*is_ready)())
{
    if (is_ready())
    {
        return true;
    }
    const uint64_t deadline = clock_now_us() + stall_time_us;
    while (!is_ready())
    {
        board_feed_watchdog();
        if (clock_now_us() >= deadline)
        {
            return false;
        }
    }
    return true;
}

void open_at(uint32_t baudrate)
{
    current_baudrate = baudrate;
    board_link_open(baudrate);
}

} // namespace

void link_handler()
{
    uint8_t byte = 0;
    while (board_link_receive(&byte))
    {
        ring.store(byte);
    }
    board_wake();
}

void link_open()
{
    open_at(BOARD_LINK_START_BAUDRATE);
    link_discard_input();
    stalled = false;
    enable_link_interrupt();
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
    return !ring.is_empty();
}

size_t link_read(char *data, size_t size)
{
    const size_t count = ring.read(data, size);
    looked_at -= std::min(looked_at, static_cast<uint32_t>(count));
    return count;
}

size_t link_look_ahead(char *data, size_t size)
{
    const size_t count = ring.peek(looked_at, data, size);
    looked_at += static_cast<uint32_t>(count);
    return count;
}

void link_discard_input()
{
    ring.discard();
    looked_at = 0;
}

// Some ports detect when a byte has left their buffer, but not when its last bit has been sent.
void link_drain()
{
    stalled = stalled || !wait_for_port(board_link_is_drained);
    clock_delay_us(byte_time_us_baud / current_baudrate + 1U);
}

void link_set_baudrate(uint32_t baudrate)
{
    link_drain();
    open_at(baudrate);
}
