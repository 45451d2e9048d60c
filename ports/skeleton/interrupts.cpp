/** @file
 * The board's part of the vector table.
 */
#include "interrupts.h"

#include "board.h"
#include "faults.h"

namespace
{

/** The handlers by number of the interrupt. */
struct board_vectors_t
{
    void (*handlers[BOARD_INTERRUPT_COUNT])();
};

constexpr board_vectors_t make_vectors()
{
    board_vectors_t vectors = {};
    for (auto &handler : vectors.handlers)
    {
        handler = fault_handler;
    }
    vectors.handlers[BOARD_ALARM_INTERRUPT] = alarm_handler;
    vectors.handlers[BOARD_LINK_INTERRUPT] = link_handler;
    vectors.handlers[BOARD_SENSOR_INTERRUPT] = sensor_handler;
    return vectors;
}

[[gnu::section(".board_vectors"), gnu::used]] constexpr board_vectors_t board_vectors = make_vectors();

} // namespace
