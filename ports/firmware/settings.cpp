/** @file
 * The settings of the simulated sensors.
 */
#include "settings.h"

#include "board.h"

// From the linker script.
extern "C" const volatile settings_t settings_begin;

namespace
{

constexpr settings_t default_settings = {settings_mark, BOARD_SENSOR_COUNT, 0, 1};
constexpr uint16_t most_sensors = 8;

} // namespace

settings_t read_settings()
{
    const settings_t settings = {settings_begin.mark, settings_begin.sensor_count,
                                 settings_begin.virtual_clock, settings_begin.seed};
    const bool usable = settings.mark == settings_mark && settings.sensor_count <= most_sensors;
    return usable ? settings : default_settings;
}
