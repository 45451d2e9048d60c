/** @file
 * The simulated board as the simulated sensor library sees it: sensor state, clock, scene.
 */
#ifndef ZET_SIMULATOR_BOARD_H
#define ZET_SIMULATOR_BOARD_H

#include <cstdint>

#include "zet_definitions_common.h"
#include "zet_simulator.h"

namespace zet_simulator
{

/** Time of an interrupt that is not expected. */
constexpr uint64_t no_interrupt = UINT64_MAX;

/** A point in time, as two clocks show it. */
struct instant
{
    uint64_t clock_us; /**< the board's clock */
    uint64_t ideal_us; /**< a clock that stands still while the board computes: only waiting advances it */
};

/** One sensor position. */
struct board_sensor
{
    bool supplied;          /**< its supply is on */
    bool enabled;           /**< its enable line is driven */
    bool in_use;            /**< has a handle */
    uint32_t reset_count;   /**< number of times that power or the enable line has reset it */
    instant interrupt;      /**< when its interrupt comes; at no_interrupt on the board's clock if never */
    uint32_t session_count; /**< handles created so far; makes the noise of each session different */
    uint32_t tick;          /**< of its last interrupt, as the port has noted it */
};

/** What the sensors of a session have in common. A session begins when a handle is created and no other
 * exists.
 */
struct board_session
{
    uint32_t handle_count;
    bool has_frames;
    double scene_start_us; /**< when the time of the scene was 0, on the board's clock; infinite if that is
                              not known before the first frame */
};

/** Returns the sensor position of an id; null when there is none. */
board_sensor *board_find_sensor(zet_sensor_id_t sensor_id);

/** Returns whether a sensor has power and its enable line is driven. */
bool board_sensor_is_on(zet_sensor_id_t sensor_id);

/** Returns the options that the port has chosen. */
const zet_simulator_options_t &board_options();

/** Returns the scene in use. */
const zet_simulator_scene_t &board_scene();

/** Returns the current session, or the last one. */
board_session &board_current_session();

/** Counts a new handle of a sensor. The first one begins a session. */
void board_count_handle();

/** Returns the number of the current session, or of the last one; 0 before the first one. */
uint32_t board_session_number();

/** Returns by how much faster the board's clock runs than the time of the scene, as a factor. */
double board_clock_rate();

/** Returns the time of the board's clock, in microseconds. */
uint64_t board_now_us();

/** Returns the current time on both clocks. */
instant board_now();

/** Notes that the current session measures a frame. With the first one its scene starts, unless the scene has
 * a clock of its own, and both clocks agree then. */
void board_start_scene();

/** Sleeps for a time, in microseconds, on the board's clock. */
void board_sleep_us(uint64_t duration_us);

/** Sets when the interrupt of a sensor comes; a "lost_interrupt" of the scene may suppress it. */
void board_schedule_interrupt(zet_sensor_id_t sensor_id, const instant &time);

/**
 * Counts a call of an operation of a sensor and looks for a fault of the scene that affects it.
 *
 * @return the fault that makes this call fail, or null
 */
const zet_simulator_fault_t *board_next_fault(zet_simulator_fault_kind_t kind, zet_sensor_id_t sensor_id);

/** The command byte that asks a sensor for its identity. */
constexpr uint8_t link_command_identify = 0x9F;

/** The two bytes of a sensor's answer to it. */
constexpr uint8_t link_identity[2] = {0x33, 0x01};

} // namespace zet_simulator

#endif
