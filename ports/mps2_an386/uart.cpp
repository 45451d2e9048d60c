/** @file
 * A serial port of the board.
 */
#include "uart.h"

#include <algorithm>

#include "cortex_m4.h"

using cortex_m4::hardware_register;

namespace
{

/** Registers of a port, as offsets. */
enum register_t : uintptr_t
{
    data = 0x0U,
    state = 0x4U,
    control = 0x8U,
    interrupt_clear = 0xCU,
    baud_divider = 0x10U,
};

constexpr uint32_t state_send_full = 1U << 0U;
constexpr uint32_t state_receive_full = 1U << 1U;
constexpr uint32_t state_receive_overrun = 1U << 3U;
constexpr uint32_t control_send = 1U << 0U;
constexpr uint32_t control_receive = 1U << 1U | 1U << 3U;
constexpr uint32_t receive_interrupt = 1U << 1U;

constexpr uint32_t bus_frequency = 25000000U;
constexpr uint32_t smallest_divider = 16;
constexpr uint32_t largest_divider = (1U << 20U) - 1U;

volatile uint32_t &at(uart_t uart, register_t offset)
{
    return hardware_register(static_cast<uintptr_t>(uart) + offset);
}

} // namespace

uint32_t uart_open(uart_t uart, uint32_t baudrate, bool receive)
{
    const uint32_t nearest = (bus_frequency + baudrate / 2U) / baudrate;
    const uint32_t divider = std::clamp(nearest, smallest_divider, largest_divider);
    at(uart, control) = 0;
    at(uart, baud_divider) = divider;
    at(uart, control) = receive ? control_send | control_receive : control_send;
    return bus_frequency / divider;
}

bool uart_can_send(uart_t uart)
{
    return (at(uart, state) & state_send_full) == 0U;
}

void uart_send(uart_t uart, uint8_t byte)
{
    at(uart, data) = byte;
}

// The interrupt is cleared first: reading lets the next byte come, whose interrupt must not be lost.
bool uart_receive(uart_t uart, uint8_t *byte)
{
    at(uart, interrupt_clear) = receive_interrupt;
    const uint32_t present = at(uart, state);
    if ((present & state_receive_full) != 0U)
    {
        *byte = static_cast<uint8_t>(at(uart, data));
        return true;
    }
    if ((present & state_receive_overrun) != 0U)
    {
        at(uart, state) = state_receive_overrun;
        *byte = 0;
        return true;
    }
    return false;
}
