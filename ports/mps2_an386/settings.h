/** @file
 * The settings of the board, at the end of its flash.
 */
#ifndef VANTOR_MPS2_AN386_SETTINGS_H
#define VANTOR_MPS2_AN386_SETTINGS_H

#include <cstdint>

/** What can be set on a board without building its program anew. */
struct settings_t
{
    uint32_t mark;          ///< settings_mark; anything else stands for default_settings
    uint16_t sensor_count;  ///< sensor positions, at most 8
    uint16_t virtual_clock; ///< 1 for a clock that does not wait: same seed, same run
    uint32_t seed;          ///< all noise follows from it
};

/** Tells settings from flash that holds none. */
constexpr uint32_t settings_mark = 0x31524E56U;

/** The settings in force. */
settings_t read_settings();

#endif
