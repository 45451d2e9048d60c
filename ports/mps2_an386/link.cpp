/** @file
 * The link to the host.
 */
#include "link.h"

#include "clock.h"
#include "cortex_m4.h"
#include "interrupts.h"
#include "receive_ring.h"
#include "uart.h"

namespace
{

/** Room for what comes while a frame is measured and sent; a power of two. */
constexpr uint32_t ring_size = 2048;

/** How long the host may take nothing. */
constexpr uint64_t stall_time_us = 5000000;

constinit cortex_m4::receive_ring<ring_size> ring;
bool stalled;
uint32_t current_baudrate;

/** Sets the speed. */
void open_at(uint32_t baudrate)
{
    current_baudrate = uart_open(uart_t::link, baudrate, true);
}

/** Waits until the next byte can be sent; false when the host takes nothing. */
bool wait_to_send()
{
    if (uart_can_send(uart_t::link))
    {
        return true;
    }
    const uint64_t deadline = clock_now_us() + stall_time_us;
    while (!uart_can_send(uart_t::link))
    {
        if (clock_now_us() >= deadline)
        {
            return false;
        }
    }
    return true;
}

} // namespace

void link_receive_handler()
{
    uint8_t byte = 0;
    while (uart_receive(uart_t::link, &byte))
    {
        ring.take(byte);
    }
}

void link_open()
{
    open_at(link_start_baudrate);
    cortex_m4::enable_interrupt(link_receive_interrupt);
}

void link_write(const void *data, uint32_t size)
{
    const auto *bytes = static_cast<const uint8_t *>(data);
    for (uint32_t i = 0; i < size && !stalled; ++i)
    {
        stalled = !wait_to_send();
        if (!stalled)
        {
            uart_send(uart_t::link, bytes[i]);
        }
    }
}

bool link_is_stalled()
{
    return stalled;
}

void link_restart()
{
    open_at(link_start_baudrate);
    link_discard_input();
    stalled = false;
}

bool link_has_input()
{
    return !ring.is_empty();
}

uint32_t link_baudrate()
{
    return current_baudrate;
}

size_t link_read(char *data, size_t size)
{
    return ring.read(data, size);
}

void link_discard_input()
{
    ring.discard();
}

void link_set_baudrate(uint32_t baudrate)
{
    // The port tells when a byte has left its buffer, but not when its ten bits have left the wire.
    stalled = stalled || !wait_to_send();
    clock_sleep_until_us(clock_now_us() + 10000000U / current_baudrate + 1U);
    open_at(baudrate);
}
