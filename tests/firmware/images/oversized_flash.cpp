/** @file
 * Asks for more flash than the board has.
 */
#include <cstdint>

#include "start.h"

extern const uint8_t too_much[512 * 1024];
const uint8_t too_much[512 * 1024] = {1};

void run_board()
{
    volatile uint32_t place = 0;
    place = too_much[place];
}
