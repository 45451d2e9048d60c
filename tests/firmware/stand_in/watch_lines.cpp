/** @file
 * Watches the lines of the sensors in an image that is linked with the options listed in stand_in.h.
 */
#include "stand_in.h"

// The linker's names for a wrapped function and for its replacement. Without the options the former do not
// exist.
extern "C" {

[[gnu::weak]] void __real_board_sensor_set_supply(uint32_t sensor_id, bool on);
[[gnu::weak]] void __real_board_sensor_set_enable(uint32_t sensor_id, bool on);

void __wrap_board_sensor_set_supply(uint32_t sensor_id, bool on)
{
    stand_in_note_supply(sensor_id, on);
    __real_board_sensor_set_supply(sensor_id, on);
}

void __wrap_board_sensor_set_enable(uint32_t sensor_id, bool on)
{
    stand_in_note_enable(sensor_id, on);
    __real_board_sensor_set_enable(sensor_id, on);
}
}

bool stand_in_sees_lines(void)
{
    return __real_board_sensor_set_supply != nullptr && __real_board_sensor_set_enable != nullptr;
}
