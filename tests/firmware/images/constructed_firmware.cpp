/** @file
 * Has a static constructor, which the firmware would not run.
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
