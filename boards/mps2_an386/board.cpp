/** @file
 * The MPS2 board with the AN386 image (Cortex-M4F): two CMSDK APB UARTs (8 data bits, no parity, 1 stop bit,
 * no flow control) and a counter. It has no sensors.
 */
#include "board.h"

#include <algorithm>

#include "cortex_m4.h"

using cortex_m4::hardware_register;

namespace
{

constexpr uintptr_t counter_value = 0x40028018U;
constexpr uintptr_t counter_prescaler = 0x4002801CU;

/** Serial ports, by the base addresses of their registers. */
enum class uart_t : uintptr_t
{
    link = 0x40004000U,
    log = 0x40005000U,
};

/** Offsets of a port's registers. */
enum class register_t : uintptr_t
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
constexpr uint32_t control_send_interrupt = 1U << 2U;
constexpr uint32_t control_receive = 1U << 1U | 1U << 3U;
constexpr uint32_t send_interrupt = 1U << 0U;
constexpr uint32_t receive_interrupt = 1U << 1U;

constexpr uint32_t smallest_divider = 16;
constexpr uint32_t largest_divider = (1U << 20U) - 1U;

volatile uint32_t &at(uart_t uart, register_t offset)
{
    return hardware_register(static_cast<uintptr_t>(uart) + static_cast<uintptr_t>(offset));
}

uint32_t divider_for(uint32_t baudrate)
{
    const uint32_t nearest = (BOARD_CORE_CLOCK_HZ + baudrate / 2U) / baudrate;
    return std::clamp(nearest, smallest_divider, largest_divider);
}

void open(uart_t uart, uint32_t baudrate, uint32_t directions)
{
    at(uart, register_t::control) = 0;
    at(uart, register_t::baud_divider) = divider_for(baudrate);
    at(uart, register_t::control) = directions;
}

bool can_send(uart_t uart)
{
    return (at(uart, register_t::state) & state_send_full) == 0U;
}

} // namespace

const board_area_t board_areas[BOARD_AREA_COUNT] = {
    {"peripherals", 0x40000000U, 0x20000000U, BOARD_DEVICES},
};

void board_start(void)
{
    hardware_register(counter_prescaler) = BOARD_CORE_CLOCK_HZ / 1000000U - 1U;
    open(uart_t::log, 115200, control_send);
}

uint32_t board_counter_us(void)
{
    return hardware_register(counter_value);
}

bool board_log_can_send(void)
{
    return can_send(uart_t::log);
}

void board_log_send(uint8_t byte)
{
    at(uart_t::log, register_t::data) = byte;
}

uint32_t board_link_nearest_baudrate(uint32_t baudrate)
{
    return BOARD_CORE_CLOCK_HZ / divider_for(baudrate);
}

void board_link_open(uint32_t baudrate)
{
    open(uart_t::link, baudrate, control_send | control_send_interrupt | control_receive);
}

// The interrupt is cleared first: after the look the buffer can become free, and its interrupt must not be
// lost.
bool board_link_can_send(void)
{
    at(uart_t::link, register_t::interrupt_clear) = send_interrupt;
    return can_send(uart_t::link);
}

// The interrupt comes once whenever the buffer becomes free, so it can stay on.
bool board_link_set_send_interrupt(bool /*on*/)
{
    return true;
}

void board_link_send(uint8_t byte)
{
    at(uart_t::link, register_t::data) = byte;
}

bool board_link_is_drained(void)
{
    return can_send(uart_t::link);
}

// The interrupt is cleared first: after the read the next byte can arrive, and its interrupt must not be
// lost.
bool board_link_receive(uint8_t *byte)
{
    at(uart_t::link, register_t::interrupt_clear) = receive_interrupt;
    const uint32_t present = at(uart_t::link, register_t::state);
    if ((present & state_receive_full) != 0U)
    {
        *byte = static_cast<uint8_t>(at(uart_t::link, register_t::data));
        return true;
    }
    if ((present & state_receive_overrun) != 0U)
    {
        at(uart_t::link, register_t::state) = state_receive_overrun;
        *byte = 0;
        return true;
    }
    return false;
}
