/** @file
 * The link to the host.
 */
#include "link.h"

#include "clock.h"
#include "cortex_m4.h"
#include "interrupts.h"
#include "uart.h"

namespace
{

/** Room for what comes while a frame is measured and sent; a power of two. */
constexpr uint32_t ring_size = 2048;

/** How long the host may take nothing. */
constexpr uint64_t stall_time_us = 5000000;

// Written by the interrupt: the ring, end and lost. Written by the program: begin. All count without end.
volatile char ring[ring_size];
volatile uint32_t ring_begin;
volatile uint32_t ring_end;
volatile bool bytes_lost;

bool stalled;
uint32_t current_baudrate;

/** Sets the speed. */
void open_at(uint32_t baudrate)
{
    current_baudrate = uart_open(uart_t::link, baudrate, true);
}

/** Takes a byte into the ring, if there is room. */
void put(uint8_t byte)
{
    ring[ring_end % ring_size] = static_cast<char>(byte);
    ring_end = ring_end + 1;
}

/** Takes a byte from the interrupt. The last place of the ring is kept for the mark of a loss. */
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
    uart_receive(uart_t::link, take_byte);
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
    return ring_begin != ring_end;
}

uint32_t link_baudrate()
{
    return current_baudrate;
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

void link_set_baudrate(uint32_t baudrate)
{
    // The port tells when a byte has left its buffer, but not when its ten bits have left the wire.
    stalled = stalled || !wait_to_send();
    clock_sleep_until_us(clock_now_us() + 10000000U / current_baudrate + 1U);
    open_at(baudrate);
}
