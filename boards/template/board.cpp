/** @file
 * A board to copy. Its chip is imaginary: a serial port for the link, another one for the log, a counter of
 * microseconds, SPI, pins, a watchdog. Replace the registers and functions with those of your chip.
 *
 * The registers are at 0xA0000000, which your own board_areas does not open: a function that you forgot to
 * replace faults, and once counter and log work, the report shows an address that begins with a0.
 */
#include "board.h"

#include "cortex_m4.h"

using cortex_m4::hardware_register;

namespace
{

constexpr uintptr_t clocks = 0xA0000000U;        /**< +0 ports that are on, +4 state, +8 flags of a reset */
constexpr uintptr_t counter = 0xA0001000U;       /**< +0 value, +4 control */
constexpr uintptr_t watchdog = 0xA0002000U;      /**< +0 count */
constexpr uintptr_t link_port = 0xA0003000U;     /**< +0 state, +4 data, +8 divider, +12 control */
constexpr uintptr_t log_port = 0xA0004000U;      /**< the same */
constexpr uintptr_t spi = 0xA0005000U;           /**< +0 state, +4 data, +8 control */
constexpr uintptr_t pins = 0xA0006000U;          /**< +0 set, +4 clear, +8 outputs */
constexpr uintptr_t pin_interrupt = 0xA0007000U; /**< +0 pending, +4 rising edges that interrupt */
constexpr uintptr_t serial_number = 0xA0008000U; /**< +0 a word */

constexpr uint32_t port_clock_hz = 50000000;
constexpr uint32_t largest_divider = 0xFFFF;

// Bits of a serial port's state.
constexpr uint32_t can_send = 1U << 0U;
constexpr uint32_t all_sent = 1U << 1U;
constexpr uint32_t received = 1U << 2U;
constexpr uint32_t damaged = 1U << 3U; /**< overrun, framing error */

// Bits of a serial port's control.
constexpr uint32_t send_on = 1U << 0U;
constexpr uint32_t receive_on = 1U << 1U | 1U << 2U; /**< with its interrupt */
constexpr uint32_t send_interrupt_on = 1U << 3U;     /**< comes as long as the port can send */

constexpr uint32_t spi_done = 1U << 0U;

// Pins of sensor 1; those of the other sensors follow.
constexpr uint32_t first_supply = 0;
constexpr uint32_t first_enable = 8;
constexpr uint32_t first_select = 16; /**< low: selected */
constexpr uint32_t sensor_pins = 0x00030303U;

uint32_t divider_for(uint32_t baudrate)
{
    return (port_clock_hz + baudrate / 2U) / baudrate;
}

void set_pin(uint32_t pin, bool high)
{
    hardware_register(high ? pins : pins + 4U) = 1U << pin;
}

} // namespace

// All registers that the functions below use; an access to any other register faults. The memory protection
// unit opens powers of two; the startup line of the log shows which addresses are actually open. A unique id
// outside this area needs a separate one, such as {"id", 0x1FFF7A10U, 12, BOARD_READ_ONLY}.
extern const board_area_t board_areas[BOARD_AREA_COUNT] = {
    {"peripherals", 0xA0000000U, 0x00010000U, BOARD_DEVICES},
};

// First the clock of the processor, then everything that needs it. The chip's SystemInit can be called here.
// A sensor without supply must not be powered through its pins: all of them are low, and its interrupt line
// is pulled to its inactive level.
void board_start(void)
{
    hardware_register(clocks) = 0xFFU;
    while ((hardware_register(clocks + 4U) & 1U) == 0U)
    {
    }
    hardware_register(pins + 4U) = sensor_pins;
    hardware_register(pins + 8U) = sensor_pins;
    hardware_register(counter + 4U) = 1;
    hardware_register(spi + 8U) = 1;
    // Edges: a level would cause interrupts until the sensor is read.
    hardware_register(pin_interrupt + 4U) = 3;
    hardware_register(log_port + 8U) = divider_for(115200);
    hardware_register(log_port + 12U) = send_on;
}

// All 32 bits, 1 MHz, also during sleep. A 16-bit timer is not enough: chain two of them.
uint32_t board_counter_us(void)
{
    return hardware_register(counter);
}

bool board_log_can_send(void)
{
    return (hardware_register(log_port) & can_send) != 0U;
}

// Must not use an interrupt, nor a buffer that needs one: a fault handler calls this.
void board_log_send(uint8_t byte)
{
    hardware_register(log_port + 4U) = byte;
}

// Truncates as the port does. The server refuses a rate that is more than 2 % from the requested one.
uint32_t board_link_nearest_baudrate(uint32_t baudrate)
{
    const uint32_t divider = divider_for(baudrate);
    return divider > 0U && divider <= largest_divider ? port_clock_hz / divider : 0U;
}

// Called again for every new rate: switches the port off first, so that no data of the old rate stays in it.
void board_link_open(uint32_t baudrate)
{
    hardware_register(link_port + 12U) = 0;
    hardware_register(link_port + 8U) = divider_for(baudrate);
    hardware_register(link_port + 12U) = send_on | receive_on;
}

bool board_link_can_send(void)
{
    return (hardware_register(link_port) & can_send) != 0U;
}

void board_link_send(uint8_t byte)
{
    hardware_register(link_port + 4U) = byte;
}

// True when the last bit has been sent, not when the buffer is empty, if the port can distinguish the two.
bool board_link_is_drained(void)
{
    return (hardware_register(link_port) & all_sent) != 0U;
}

// An interrupt that is not acknowledged comes again endlessly, also that of an overrun. In this port reading
// the data acknowledges both.
bool board_link_receive(uint8_t *byte)
{
    const uint32_t state = hardware_register(link_port);
    if ((state & (received | damaged)) == 0U)
    {
        return false;
    }
    const auto data = static_cast<uint8_t>(hardware_register(link_port + 4U));
    *byte = (state & damaged) != 0U ? uint8_t{0} : data;
    return true;
}

// For sensors that share a supply: keep a bit for each one that is on, and switch off when none is left.
void board_sensor_set_supply(uint32_t sensor_id, bool on)
{
    set_pin(first_supply + sensor_id - 1U, on);
}

// The idle level of the chip select is high while the sensor is on, and low while it is off.
void board_sensor_set_enable(uint32_t sensor_id, bool on)
{
    set_pin(first_select + sensor_id - 1U, on);
    set_pin(first_enable + sensor_id - 1U, on);
}

// SPI mode, clock rate and chip select timing are in the sensor's data sheet. The buffer may be at an odd
// address. With DMA: wait here until it is done.
void board_sensor_transfer(uint32_t sensor_id, uint8_t *buffer, size_t size)
{
    set_pin(first_select + sensor_id - 1U, false);
    for (size_t i = 0; i < size; ++i)
    {
        hardware_register(spi + 4U) = buffer[i];
        while ((hardware_register(spi) & spi_done) == 0U)
        {
        }
        buffer[i] = static_cast<uint8_t>(hardware_register(spi + 4U));
    }
    set_pin(first_select + sensor_id - 1U, true);
}

// Acknowledges exactly what it returns: an edge that comes in between is for the next call.
uint32_t board_sensor_take_interrupts(void)
{
    const uint32_t sensors = hardware_register(pin_interrupt);
    // Writing ones clears them.
    hardware_register(pin_interrupt) = sensors;
    return sensors;
}

// The functions from here on may be removed: the firmware has a default for each, and also for board_wait and
// board_wake, which an RTOS replaces.

void board_feed_watchdog(void)
{
    hardware_register(watchdog) = 0;
}

// Without this function the firmware polls the port, and waits until a frame is sent before it measures the
// next.
bool board_link_set_send_interrupt(bool on)
{
    hardware_register(link_port + 12U) = send_on | receive_on | (on ? send_interrupt_on : 0U);
    return true;
}

// Called before board_start. The flags survive resets until they are cleared.
const char *board_reset_cause(void)
{
    const uint32_t flags = hardware_register(clocks + 8U);
    hardware_register(clocks + 8U) = 0;
    return (flags & 2U) != 0U ? "watchdog" : (flags & 1U) != 0U ? "power on" : nullptr;
}

// Must be valid for the lifetime of the program: a static text.
const char *board_id(void)
{
    static char text[9];
    for (uint32_t i = 0; i < 8U; ++i)
    {
        text[i] = "0123456789abcdef"[hardware_register(serial_number) >> (28U - i * 4U) & 15U];
    }
    return text;
}
