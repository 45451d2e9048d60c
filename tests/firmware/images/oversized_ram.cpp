/** @file
 * Asks for more memory than the board has.
 */
#include <cstdint>

#include "start.h"

volatile uint8_t too_much[64 * 1024];

void run_board()
{
    too_much[0] = 1;
}
