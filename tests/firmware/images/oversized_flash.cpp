/** @file
 * Needs more flash than the board has.
 */
#include <cstdint>

#include "interrupts.h"
#include "start.h"

extern const uint8_t too_much[1024 * 1024];
const uint8_t too_much[1024 * 1024] = {1};

void sensor_handler()
{
}

void run_board()
{
    volatile uint32_t place = 0;
    place = too_much[place];
}
