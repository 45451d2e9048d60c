/** @file
 * Needs more memory than the board has.
 */
#include <cstdint>

#include "interrupts.h"
#include "start.h"

volatile uint8_t too_much[128 * 1024];

void sensor_handler()
{
}

void run_board()
{
    too_much[0] = 1;
}
