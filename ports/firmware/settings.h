/** @file
 * The settings of the simulated sensors, at the end of the flash.
 */
#ifndef VANTOR_FIRMWARE_SETTINGS_H
#define VANTOR_FIRMWARE_SETTINGS_H

#include <cstdint>

/** Settings that can be changed without rebuilding the program. */
struct settings_t
{
    uint32_t mark;          /**< settings_mark; any other value means the defaults */
    uint16_t sensor_count;  /**< sensor positions, at most 8 */
    uint16_t virtual_clock; /**< 1 for a clock that does not wait: the same seed gives the same run */
    uint32_t seed;          /**< seed of all noise */
};

/** Distinguishes settings from empty flash. */
constexpr uint32_t settings_mark = 0x31524E56U;

/** Returns the settings in use; the defaults are BOARD_SENSOR_COUNT, the real clock and seed 1. */
settings_t read_settings();

#endif
