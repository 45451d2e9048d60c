/** @file
 * The Netduino Plus 2 (STM32F405RG, Cortex-M4F at 168 MHz), according to the chip's reference manual RM0090.
 *
 * Link: USART1 (PA9, PA10). Log: USART2 (PA2). Two sensors on SPI1 (PA5, PA6, PA7): chip selects PB0 and PB1,
 * enable lines PB4 and PB5, supplies PB8 and PB9, interrupts PA0 and PA1.
 */
#include "board.h"

#include <initializer_list>

#include "cortex_m4.h"

using cortex_m4::hardware_register;

namespace
{

// Registers of the chip.
constexpr uintptr_t rcc = 0x40023800U;
constexpr uintptr_t flash_access_control = 0x40023C00U;
constexpr uintptr_t gpio_a = 0x40020000U;
constexpr uintptr_t gpio_b = 0x40020400U;
constexpr uintptr_t exti = 0x40013C00U;
constexpr uintptr_t spi1 = 0x40013000U;
constexpr uintptr_t tim2 = 0x40000000U;
constexpr uintptr_t usart1 = 0x40011000U;
constexpr uintptr_t usart2 = 0x40004400U;
constexpr uintptr_t unique_id = 0x1FFF7A10U;

/** Interrupt number of line 0 (PA0). */
constexpr uint32_t first_line_interrupt = 6;

constexpr uint32_t apb2_clock_hz = 84000000;
constexpr uint32_t apb1_clock_hz = 42000000;

/** Bits of a serial port's state. */
constexpr uint32_t usart_damaged = 15U; /**< parity, framing, noise, overrun */
constexpr uint32_t usart_received = 1U << 5U;
constexpr uint32_t usart_all_sent = 1U << 6U;
constexpr uint32_t usart_can_send = 1U << 7U;

/** Bits of the state of SPI. */
constexpr uint32_t spi_received = 1U << 0U;
constexpr uint32_t spi_busy = 1U << 7U;

/** Whether the chip is emulated: a real one always has an oscillator running. */
bool is_emulated;

void set_bits(uintptr_t address, uint32_t bits)
{
    hardware_register(address) = hardware_register(address) | bits;
}

void wait_for(uintptr_t address, uint32_t bits, uint32_t value)
{
    while ((hardware_register(address) & bits) != value)
    {
    }
}

/** Sets the clocks: 168 MHz from the 25 MHz crystal; 84 MHz and 42 MHz for the buses. */
void start_clocks()
{
    // Internal oscillator, crystal.
    set_bits(rcc, 1U << 0U | 1U << 16U);
    wait_for(rcc, 1U << 1U | 1U << 17U, 1U << 1U | 1U << 17U);
    // A boot loader may have switched to the clock that is set up below.
    hardware_register(rcc + 0x08U) = 0;
    wait_for(rcc + 0x08U, 3U << 2U, 0);
    hardware_register(rcc) = hardware_register(rcc) & ~(1U << 24U);
    // Caches, 5 wait states.
    hardware_register(flash_access_control) = 7U << 8U | 5U;
    hardware_register(rcc + 0x04U) = 25U | 336U << 6U | 1U << 22U | 7U << 24U;
    // Starts the PLL.
    set_bits(rcc, 1U << 24U);
    wait_for(rcc, 1U << 25U, 1U << 25U);
    hardware_register(rcc + 0x08U) = 5U << 10U | 4U << 13U | 2U;
    wait_for(rcc + 0x08U, 3U << 2U, 2U << 2U);
}

/** Sets one field of a register whose fields all have the same width. */
void set_field(uintptr_t address, uint32_t field, uint32_t width, uint32_t value)
{
    const uint32_t mask = (1U << width) - 1U;
    const uint32_t others = hardware_register(address) & ~(mask << field * width);
    hardware_register(address) = others | value << field * width;
}

void set_alternate_function(uint32_t pin, uint32_t function)
{
    set_field(gpio_a + 0x20U + pin / 8U * 4U, pin % 8U, 4, function);
    // The alternate function.
    set_field(gpio_a, pin, 2, 2);
}

void set_pin(uint32_t pin, bool high)
{
    hardware_register(gpio_b + 0x18U) = 1U << (high ? pin : pin + 16U);
}

/** Sets up the pins, and SPI and interrupts on them. */
void start_pins()
{
    for (const uint32_t pin : {2U, 5U, 6U, 7U, 9U, 10U})
    {
        set_alternate_function(pin, pin >= 5U && pin <= 7U ? 5U : 7U);
    }
    // Fast outputs.
    set_bits(gpio_a + 0x08U, 2U << 4U | 2U << 10U | 2U << 14U | 2U << 18U);
    // Pull interrupts low, and the link's input high.
    set_bits(gpio_a + 0x0CU, 2U << 0U | 2U << 2U | 1U << 20U);
    for (const uint32_t pin : {0U, 1U, 4U, 5U, 8U, 9U})
    {
        set_pin(pin, false);
        // An output.
        set_field(gpio_b, pin, 2, 1);
    }
    // Master, 5.25 MHz, mode 0.
    hardware_register(spi1) = 3U << 8U | 1U << 6U | 3U << 3U | 1U << 2U;
    // Rising edges of lines 0 and 1.
    hardware_register(exti + 0x08U) = 3;
    hardware_register(exti) = 3;
}

uint32_t divider_for(uint32_t baudrate)
{
    return (apb2_clock_hz + baudrate / 2U) / baudrate;
}

} // namespace

const board_area_t board_areas[BOARD_AREA_COUNT] = {
    {"peripherals", 0x40000000U, 0x20000000U, BOARD_DEVICES},
    {"id", unique_id, 12, BOARD_READ_ONLY},
};

void board_start(void)
{
    is_emulated = hardware_register(rcc) == 0U;
    if (!is_emulated)
    {
        start_clocks();
    }
    // GPIO A, B.
    set_bits(rcc + 0x30U, 3U);
    // TIM2, USART2.
    set_bits(rcc + 0x40U, 1U << 0U | 1U << 17U);
    // USART1, SPI1, SYSCFG.
    set_bits(rcc + 0x44U, 1U << 4U | 1U << 12U | 1U << 14U);
    start_pins();
    // The counter counts microseconds; that of the emulator runs at 1 GHz, whatever the clock.
    hardware_register(tim2 + 0x28U) = (is_emulated ? 1000U : 2U * apb1_clock_hz / 1000000U) - 1U;
    hardware_register(tim2 + 0x2CU) = 0xFFFFFFFFU;
    // Loads the prescaler.
    hardware_register(tim2 + 0x14U) = 1;
    hardware_register(tim2) = 1;
    hardware_register(usart2 + 0x08U) = (apb1_clock_hz + 57600U) / 115200U;
    hardware_register(usart2 + 0x0CU) = 1U << 13U | 1U << 3U;
}

uint32_t board_counter_us(void)
{
    return hardware_register(tim2 + 0x24U);
}

bool board_log_can_send(void)
{
    return (hardware_register(usart2) & usart_can_send) != 0U;
}

void board_log_send(uint8_t byte)
{
    hardware_register(usart2 + 0x04U) = byte;
}

uint32_t board_link_nearest_baudrate(uint32_t baudrate)
{
    const uint32_t divider = divider_for(baudrate);
    return divider >= 16U && divider <= 0xFFFFU ? apb2_clock_hz / divider : 0U;
}

// The port stays on, so that nothing is lost if the host sends immediately at the new baud rate.
void board_link_open(uint32_t baudrate)
{
    hardware_register(usart1 + 0x08U) = divider_for(baudrate);
    hardware_register(usart1 + 0x0CU) = 1U << 13U | 1U << 5U | 1U << 3U | 1U << 2U;
}

bool board_link_can_send(void)
{
    return (hardware_register(usart1) & usart_can_send) != 0U;
}

bool board_link_set_send_interrupt(bool on)
{
    set_field(usart1 + 0x0CU, 7, 1, on ? 1U : 0U);
    return true;
}

void board_link_send(uint8_t byte)
{
    hardware_register(usart1 + 0x04U) = byte;
}

bool board_link_is_drained(void)
{
    return (hardware_register(usart1) & usart_all_sent) != 0U;
}

// Reading the state and then the data acknowledges the interrupt, also for overruns and damaged bytes.
bool board_link_receive(uint8_t *byte)
{
    const uint32_t state = hardware_register(usart1);
    if ((state & (usart_received | usart_damaged)) == 0U)
    {
        return false;
    }
    const auto data = static_cast<uint8_t>(hardware_register(usart1 + 0x04U));
    *byte = (state & usart_damaged) != 0U ? uint8_t{0} : data;
    return true;
}

void board_sensor_set_supply(uint32_t sensor_id, bool on)
{
    set_pin(sensor_id + 7U, on);
}

void board_sensor_set_enable(uint32_t sensor_id, bool on)
{
    // The chip select of a sensor that is off is low too.
    set_pin(sensor_id - 1U, on);
    set_pin(sensor_id + 3U, on);
}

void board_sensor_transfer(uint32_t sensor_id, uint8_t *buffer, size_t size)
{
    set_pin(sensor_id - 1U, false);
    for (size_t i = 0; i < size; ++i)
    {
        hardware_register(spi1 + 0x0CU) = buffer[i];
        wait_for(spi1 + 0x08U, spi_received, spi_received);
        buffer[i] = static_cast<uint8_t>(hardware_register(spi1 + 0x0CU));
    }
    wait_for(spi1 + 0x08U, spi_busy, 0);
    set_pin(sensor_id - 1U, true);
}

// Each line has its own interrupt. An interrupt that comes again because it was acknowledged late is not a
// signal; the emulator does not report which lines are pending.
uint32_t board_sensor_take_interrupts(void)
{
    const uint32_t line = 1U << (cortex_m4::active_interrupt() - first_line_interrupt);
    const uint32_t pending = is_emulated ? line : hardware_register(exti + 0x14U) & line;
    hardware_register(exti + 0x14U) = line;
    return pending;
}

const char *board_reset_cause(void)
{
    const uint32_t flags = hardware_register(rcc + 0x74U);
    // Clears the flags, for the next reset.
    set_bits(rcc + 0x74U, 1U << 24U);
    return (flags & 3U << 29U) != 0U   ? "watchdog"
           : (flags & 1U << 27U) != 0U ? "power on"
           : (flags & 1U << 28U) != 0U ? "software"
           : (flags & 1U << 26U) != 0U ? "reset pin"
                                       : nullptr;
}

const char *board_id(void)
{
    static char text[25];
    if (is_emulated)
    {
        return nullptr;
    }
    for (uint32_t i = 0; i < 24U; ++i)
    {
        const uint32_t word = hardware_register(unique_id + i / 8U * 4U);
        text[i] = "0123456789abcdef"[word >> (28U - i % 8U * 4U) & 15U];
    }
    return text;
}
