/** @file
 * The simulator: a board with `k330` sensors in software, which implements the interfaces of the board layer
 * and of the sensor library.
 *
 * A port starts it before the server and stops it after the server. The sensors see a scene
 * (zet_simulator_scene.h); all times are those of a clock that the port provides. Memory comes from the
 * port's zet_integration_mem_alloc.
 *
 * Not modelled: the motion of a target within one sweep, shadows, multipath, the duration of a transfer over
 * the sensor's link (except with the fault "slow_link"), power consumption.
 */
#ifndef ZET_SIMULATOR_H
#define ZET_SIMULATOR_H

#include <stdbool.h>
#include <stdint.h>

#include "zet_definitions_common.h"
#include "zet_simulator_scene.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The board's clock. */
typedef struct
{
    uint64_t (*now_us)(void);                 /**< time in microseconds; never decreases */
    void (*sleep_until_us)(uint64_t time_us); /**< returns at that time, or immediately if it has passed */
} zet_simulator_clock_t;

/**
 * Receives the board's log lines. Must not allocate.
 *
 * @param level   severity of the line
 * @param module  tag of the module that logs
 * @param text    the text, without a line end
 */
typedef void zet_simulator_log_sink_t(zet_log_level_t level, const char *module, const char *text);

/** A frame while it is read; zet_simulator_truth.h describes it. */
typedef struct zet_simulator_frame zet_simulator_frame_t;

/** Observes the simulation, for programs that compare results with the truth. Functions may be null. */
typedef struct
{
    void (*session)(uint32_t number);                  /**< a session has begun; they are counted from 1 */
    void (*frame)(const zet_simulator_frame_t *frame); /**< a frame is read; valid until the return */
} zet_simulator_observer_t;

/** What a port chooses. The record is copied; what it points to must stay valid until the stop. */
typedef struct
{
    uint16_t sensor_count;              /**< sensor positions on the board */
    uint64_t seed;                      /**< seed of all noise: the same seed gives the same run */
    zet_simulator_clock_t clock;        /**< both operations are required */
    zet_simulator_log_sink_t *log;      /**< receives the log lines; null for none */
    zet_log_level_t log_level;          /**< least severe level that is passed to the log */
    const zet_simulator_scene_t *scene; /**< what the sensors see; null for the default scene */
    /** Waits for a sensor until a time of the clock; returns false as soon as nobody needs the measurement.
     * Null to sleep on the clock. */
    bool (*wait_until_us)(uint64_t time_us);
    zet_simulator_observer_t observer; /**< all null for none */
    /** Time of the scene in microseconds, for boards that see one scene; a time below 0 counts as 0. Null for
     * a scene that starts with the first frame of each session. */
    int64_t (*scene_now_us)(void);
    double
        clock_error; /**< the part by which the board's clock runs faster than scene_now_us; 0 without it */
    uint16_t board;  /**< number of this board if several see one scene, otherwise 0; with the same seed, the
                        noise of several boards is independent */
} zet_simulator_options_t;

/**
 * Sets the board up: every sensor unpowered and disabled.
 *
 * @param options  what the port chooses
 * @return false when the options are null or lack a clock, when memory is exhausted, or when the
 *         simulator is already running
 */
bool zet_simulator_start(const zet_simulator_options_t *options);

/** Stops the simulator. All handles of the sensor library must have been destroyed. */
void zet_simulator_stop(void);

/**
 * Notes the tick of the frame whose interrupt was waited for last, for the truth. Only the first call after
 * each wait has an effect, so that a port can pass every tick that it reads.
 */
void zet_simulator_note_tick(uint32_t tick);

/**
 * Returns a clock that does not wait: sleeping until a time sets the clock to that time. There is only one
 * such clock; it is 0 when the program starts.
 */
zet_simulator_clock_t zet_simulator_virtual_clock(void);

#ifdef __cplusplus
}
#endif

#endif
