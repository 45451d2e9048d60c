/** @file
 * The functions of the skeleton's board.h on the emulated board (MPS2, image AN386), but for the sensors.
 */
#include "emulated_registers.h"

#include <algorithm>

#include "board.h"
#include "cortex_m4.h"
#include "mps2_an386/uart.h"
#include "zet_integration_log.h"

using cortex_m4::hardware_register;

namespace
{

constexpr uint32_t cycles_per_us = 25;
constexpr uint32_t longest_delay_us = 60000000;
constexpr uint32_t counter_head_start_us = 1000000;

constexpr uintptr_t counter_value = 0x40028018U;
constexpr uintptr_t counter_prescaler = 0x4002801CU;

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
    (void)uart_open(uart_t::log, 115200, false);
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
    (void)uart_open(uart_t::link, baudrate, true);
    zet_integration_log(ZET_LOG_LEVEL_WARNING, "board", "link at %lu baud",
                        static_cast<unsigned long>(baudrate));
}

bool board_link_can_send(void)
{
    return uart_can_send(uart_t::link);
}

void board_link_send(uint8_t byte)
{
    uart_send(uart_t::link, byte);
}

// The port does not tell when the wire is idle; the emulator sends a byte at once.
bool board_link_is_drained(void)
{
    return uart_can_send(uart_t::link);
}

bool board_link_receive(uint8_t *byte)
{
    return uart_receive(uart_t::link, byte);
}

bool board_log_can_send(void)
{
    return uart_can_send(uart_t::log);
}

void board_log_send(uint8_t byte)
{
    uart_send(uart_t::log, byte);
}
