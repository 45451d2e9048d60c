/** @file
 * Has something to construct before the start, which nobody would do.
 */
#include "interrupts.h"
#include "settings.h"
#include "start.h"

static const volatile settings_t settings = read_settings();

void sensor_handler()
{
}

void run_board()
{
    (void)settings.seed;
}
