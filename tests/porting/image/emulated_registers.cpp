/** @file
 * The functions of the skeleton's board.h on the emulated board (MPS2, image AN386), but for the sensors.
 */
#include "emulated_registers.h"

#include <algorithm>

#include "board.h"
#include "cortex_m4.h"
#include "zet_integration_log.h"

using cortex_m4::hardware_register;

namespace
{

constexpr uint32_t cycles_per_us = 25;
constexpr uint32_t longest_delay_us = 60000000;
constexpr uint32_t counter_head_start_us = 1000000;

constexpr uintptr_t counter_value = 0x40028018U;
constexpr uintptr_t counter_prescaler = 0x4002801CU;

/** Serial ports. */
constexpr uintptr_t link_port = 0x40004000U;
constexpr uintptr_t log_port = 0x40005000U;

/** Registers of a serial port, as offsets. */
constexpr uintptr_t port_data = 0x0U;
constexpr uintptr_t port_state = 0x4U;
constexpr uintptr_t port_control = 0x8U;
constexpr uintptr_t port_interrupt_clear = 0xCU;
constexpr uintptr_t port_baud_divider = 0x10U;

constexpr uint32_t state_send_full = 1U << 0U;
constexpr uint32_t state_receive_full = 1U << 1U;
constexpr uint32_t state_receive_overrun = 1U << 3U;
constexpr uint32_t control_send = 1U << 0U;
constexpr uint32_t control_receive = 1U << 1U | 1U << 3U;
constexpr uint32_t receive_interrupt = 1U << 1U;

bool can_send(uintptr_t port)
{
    return (hardware_register(port + port_state) & state_send_full) == 0U;
}

void open(uintptr_t port, uint32_t baudrate, uint32_t control)
{
    hardware_register(port + port_control) = 0;
    hardware_register(port + port_baud_divider) = cycles_per_us * 1000000U / baudrate;
    hardware_register(port + port_control) = control;
}

} // namespace

void emulated_timer_set(emulated_timer_t timer, uint32_t delay_us)
{
    const auto base = static_cast<uintptr_t>(timer);
    const uint32_t cycles = std::min(delay_us, longest_delay_us) * cycles_per_us;
    hardware_register(base) = 0;
    hardware_register(base + 0x8U) = cycles;
    hardware_register(base + 0x4U) = cycles;
    hardware_register(base) = 1U << 0U | 1U << 3U;
}

void emulated_timer_clear(emulated_timer_t timer)
{
    const auto base = static_cast<uintptr_t>(timer);
    hardware_register(base) = 0;
    hardware_register(base + 0xCU) = 1;
}

void board_start(void)
{
    hardware_register(counter_prescaler) = cycles_per_us - 1U;
    open(log_port, 115200, control_send);
}

// It goes round soon after the start, so that every session shows whether the clock goes on.
uint32_t board_counter_us(void)
{
    return hardware_register(counter_value) - counter_head_start_us;
}

void board_alarm_set(uint32_t delay_us)
{
    emulated_timer_set(emulated_timer_t::alarm, delay_us);
}

void board_alarm_clear(void)
{
    emulated_timer_clear(emulated_timer_t::alarm);
}

// The emulator sends at any speed, so the log tells which one was set.
void board_link_open(uint32_t baudrate)
{
    open(link_port, baudrate, control_send | control_receive);
    zet_integration_log(ZET_LOG_LEVEL_WARNING, "board", "link at %lu baud",
                        static_cast<unsigned long>(baudrate));
}

bool board_link_can_send(void)
{
    return can_send(link_port);
}

void board_link_send(uint8_t byte)
{
    hardware_register(link_port + port_data) = byte;
}

// The port does not tell when the wire is idle; the emulator sends a byte at once.
bool board_link_is_drained(void)
{
    return can_send(link_port);
}

// The interrupt is cleared first: reading lets the next byte come, whose interrupt must not be lost.
bool board_link_receive(uint8_t *byte)
{
    hardware_register(link_port + port_interrupt_clear) = receive_interrupt;
    const uint32_t state = hardware_register(link_port + port_state);
    if ((state & state_receive_full) != 0U)
    {
        *byte = static_cast<uint8_t>(hardware_register(link_port + port_data));
        return true;
    }
    if ((state & state_receive_overrun) != 0U)
    {
        hardware_register(link_port + port_state) = state_receive_overrun;
        *byte = 0;
        return true;
    }
    return false;
}

bool board_log_can_send(void)
{
    return can_send(log_port);
}

void board_log_send(uint8_t byte)
{
    hardware_register(log_port + port_data) = byte;
}
