/** @file
 * The simulator: a board with `k330` sensors in software, behind the interfaces of the board layer and the
 * sensor library.
 *
 * A port starts it before the server and stops it after. What the sensors see is a scene
 * (zet_simulator_scene.h); when things happen is told by the clock that the port lends.
 *
 * Not modelled: the motion of a target within one sweep, antenna patterns, several paths between sensor and
 * target, the time that a transfer over the sensor's link takes (but for the fault "slow_link"), power.
 */
#ifndef ZET_SIMULATOR_H
#define ZET_SIMULATOR_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "zet_definitions_common.h"
#include "zet_simulator_scene.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The board's clock. */
typedef struct
{
    uint64_t (*now_us)(void);                 /**< time in microseconds; never goes back */
    void (*sleep_until_us)(uint64_t time_us); /**< returns when the time has come, at once if it has */
} zet_simulator_clock_t;

/**
 * Takes the board's log lines. Must not allocate.
 *
 * @param level   severity of the line
 * @param module  tag of the module that logs
 * @param text    the text, without a line end
 */
typedef void zet_simulator_log_sink_t(zet_log_level_t level, const char *module, const char *text);

/** What a port chooses. The record is copied; what it points to must stay valid until the stop. */
typedef struct
{
    uint16_t sensor_count;              /**< sensor positions on the board */
    uint64_t seed;                      /**< all noise follows from it: same seed, same run */
    zet_simulator_clock_t clock;        /**< both operations are required */
    zet_simulator_log_sink_t *log;      /**< receives the log lines; null for none */
    zet_log_level_t log_level;          /**< least severe level that reaches the sink */
    const zet_simulator_scene_t *scene; /**< what the sensors see; null for the default scene */
} zet_simulator_options_t;

/**
 * Use of the board's memory, in bytes.
 *
 * What is in use counts with all that it costs: the allocator's word before each piece and the rounding up to
 * the alignment.
 */
typedef struct
{
    size_t size;         /**< lent by the port */
    size_t live;         /**< in use now */
    size_t peak;         /**< highest value of live since the memory was lent */
    size_t largest_free; /**< largest single request that would succeed now */
    uint32_t failures;   /**< requests that could not be met since the memory was lent */
} zet_simulator_memory_t;

/**
 * Lends the board its memory: all that zet_integration_mem_alloc gives out lies in it. To be called before
 * the first allocation; without memory every request fails.
 *
 * What was lent before is given back, with every piece in it, and the statistics begin anew.
 *
 * @param region  the memory, of any alignment; stays lent until the next call
 * @param size    its size in bytes; the allocator keeps some hundreds, on a PC some thousands, for itself
 */
void zet_simulator_memory_lend(void *region, size_t size);

/** Tells how the board's memory is used. */
void zet_simulator_memory_get(zet_simulator_memory_t *memory);

/**
 * Sets the board up: every sensor unpowered and disabled.
 *
 * @param options  the port's choice
 * @return false when the options are null or lack a clock, when memory is exhausted, or when the
 * simulator runs already
 */
bool zet_simulator_start(const zet_simulator_options_t *options);

/** Takes the board down. Handles of the sensor library must have been destroyed. */
void zet_simulator_stop(void);

/**
 * A clock that does not wait: sleeping moves it to the time slept for. There is one such clock; it starts
 * at 0 with the program.
 */
zet_simulator_clock_t zet_simulator_virtual_clock(void);

#ifdef __cplusplus
}
#endif

#endif
