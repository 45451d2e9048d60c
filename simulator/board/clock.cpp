/** @file
 * The virtual clock, which advances only by sleeping on it.
 */
#include "zet_simulator.h"

namespace
{

uint64_t virtual_time_us;

uint64_t virtual_now_us()
{
    return virtual_time_us;
}

void virtual_sleep_until_us(uint64_t time_us)
{
    if (time_us > virtual_time_us)
    {
        virtual_time_us = time_us;
    }
}

} // namespace

zet_simulator_clock_t zet_simulator_virtual_clock(void)
{
    return {virtual_now_us, virtual_sleep_until_us};
}
