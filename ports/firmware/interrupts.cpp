/** @file
 * The board's part of the vector table.
 */
#include "interrupts.h"

#include <algorithm>

#include "board.h"
#include "cortex_m4.h"
#include "faults.h"

namespace
{

#ifdef BOARD_SENSOR_INTERRUPTS
constexpr uint32_t sensor_interrupts[] = BOARD_SENSOR_INTERRUPTS;
#endif

/** The handlers, by interrupt number. */
struct board_vectors_t
{
    void (*handlers[BOARD_INTERRUPT_COUNT])();
};

#ifdef BOARD_SENSOR_INTERRUPTS
constexpr bool is_of_sensors(uint32_t number)
{
    return std::ranges::count(sensor_interrupts, number) != 0;
}

static_assert(!is_of_sensors(BOARD_LINK_INTERRUPT),
              "BOARD_LINK_INTERRUPT: it is one of BOARD_SENSOR_INTERRUPTS");
static_assert(!is_of_sensors(BOARD_LINK_SEND_INTERRUPT),
              "BOARD_LINK_SEND_INTERRUPT: it is one of BOARD_SENSOR_INTERRUPTS");
static_assert(std::ranges::max(sensor_interrupts) < BOARD_INTERRUPT_COUNT,
              "BOARD_SENSOR_INTERRUPTS: less than BOARD_INTERRUPT_COUNT");
#endif

constexpr board_vectors_t make_vectors()
{
    board_vectors_t vectors = {};
    for (auto &handler : vectors.handlers)
    {
        handler = fault_handler;
    }
    vectors.handlers[BOARD_LINK_INTERRUPT] = link_handler;
    vectors.handlers[BOARD_LINK_SEND_INTERRUPT] = link_handler;
#ifdef BOARD_SENSOR_INTERRUPTS
    for (const uint32_t number : sensor_interrupts)
    {
        vectors.handlers[number] = sensor_handler;
    }
#endif
    return vectors;
}

[[gnu::section(".board_vectors"), gnu::used]] constexpr board_vectors_t board_vectors = make_vectors();

} // namespace

void enable_link_interrupts()
{
    cortex_m4::enable_interrupt(BOARD_LINK_INTERRUPT);
    cortex_m4::enable_interrupt(BOARD_LINK_SEND_INTERRUPT);
}

void disable_link_interrupts()
{
    cortex_m4::disable_interrupt(BOARD_LINK_INTERRUPT);
    cortex_m4::disable_interrupt(BOARD_LINK_SEND_INTERRUPT);
}

void raise_link_interrupt()
{
    cortex_m4::raise_interrupt(BOARD_LINK_INTERRUPT);
}

void enable_sensor_interrupts()
{
#ifdef BOARD_SENSOR_INTERRUPTS
    for (const uint32_t number : sensor_interrupts)
    {
        cortex_m4::enable_interrupt(number);
    }
#endif
}
