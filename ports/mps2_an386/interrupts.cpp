/** @file
 * The board's part of the vector table.
 */
#include "interrupts.h"

#include "faults.h"

namespace
{

constexpr uint32_t interrupt_count = 32;

/** The handlers by number of the interrupt. */
struct board_vectors_t
{
    void (*handlers[interrupt_count])();
};

constexpr board_vectors_t make_vectors()
{
    board_vectors_t vectors = {};
    for (auto &handler : vectors.handlers)
    {
        handler = fault_handler;
    }
    vectors.handlers[link_receive_interrupt] = link_receive_handler;
    vectors.handlers[timer_interrupt] = timer_handler;
    return vectors;
}

[[gnu::section(".board_vectors"), gnu::used]] constexpr board_vectors_t board_vectors = make_vectors();

} // namespace
