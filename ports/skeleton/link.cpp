/** @file
 * The link to the host.
 */
#include "link.h"

#include "board.h"
#include "clock.h"
#include "cortex_m4.h"
#include "interrupts.h"
#include "receive_ring.h"

namespace
{

/** Room for what comes while a frame is measured and sent; a power of two. */
constexpr uint32_t ring_size = 2048;

/** How long the port may take nothing. */
constexpr uint64_t stall_time_us = 5000000;

constinit cortex_m4::receive_ring<ring_size> ring;
bool stalled;

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
        ring.take(byte);
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
    return !ring.is_empty();
}

size_t link_read(char *data, size_t size)
{
    return ring.read(data, size);
}

void link_discard_input()
{
    ring.discard();
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
