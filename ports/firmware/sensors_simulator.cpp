/** @file
 * Simulated sensors, for a board without sensors: the board computes their frames.
 */
#include "board.h"
#include "clock.h"
#include "host.h"
#include "interrupts.h"
#include "log.h"
#include "sensors.h"
#include "settings.h"
#include "zet_simulator.h"

namespace
{

zet_simulator_clock_t sensor_clock;
bool is_virtual;

/** Waits for a simulated sensor; false when the host needs the measurement no more. */
bool wait_until_us(uint64_t time_us)
{
    return !clock_wait_until(time_us, host_ends_wait);
}

} // namespace

const char *sensors_kind()
{
    return "simulated";
}

bool sensors_start()
{
    const settings_t settings = read_settings();
    is_virtual = settings.virtual_clock != 0;
    sensor_clock = is_virtual ? zet_simulator_virtual_clock()
                              : zet_simulator_clock_t{clock_now_us, clock_sleep_until_us};
    zet_simulator_options_t options = {};
    options.sensor_count = settings.sensor_count;
    options.seed = settings.seed;
    options.clock = sensor_clock;
    options.log = log_line;
    options.log_level = ZET_LOG_LEVEL_DEBUG;
    // On a virtual clock no wait takes time.
    options.wait_until_us = is_virtual ? nullptr : wait_until_us;
    return zet_simulator_start(&options);
}

uint64_t sensors_now_us()
{
    return sensor_clock.now_us();
}

bool sensors_have_virtual_clock()
{
    return is_virtual;
}

void sensors_advance_clock(uint32_t duration_us)
{
    sensor_clock.sleep_until_us(sensor_clock.now_us() + duration_us);
}

void sensor_handler()
{
}
