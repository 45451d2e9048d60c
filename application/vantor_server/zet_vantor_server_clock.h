/** @file
 * The server's time: the port's tick without its wraps, and the timing of the frames derived from it.
 */
#ifndef ZET_VANTOR_SERVER_CLOCK_H
#define ZET_VANTOR_SERVER_CLOCK_H

#include <cstdint>

#include "zet_vantor_server_base.h"

/** A clock. */
struct zet_server_clock_t
{
    get_tick_function_t *get_tick; /**< reads the tick; null when the server has no clock */
    uint32_t ticks_per_second;     /**< 0 when the server has no clock */
    uint32_t last_tick;            /**< the tick at the last reading */
    uint64_t now;                  /**< ticks from the start to the last reading */
};

/** Starts a clock at 0. The server has no clock when the link provides no tick or no tick rate. */
void zet_server_clock_start(zet_server_clock_t *clock, const vantor_server_interface_t *link);

/**
 * Reads the clock. To be called at least once per 2^32 ticks.
 *
 * @return ticks since it was started; 0 when there is no clock
 */
uint64_t zet_server_clock_read(zet_server_clock_t *clock);

/**
 * Converts a rate into a period.
 *
 * @param rate  in hertz
 * @return ticks, rounded to nearest, at least 1, at most UINT32_MAX; 0 when there is no clock or the rate is
 *         not above 0: frames are not paced then
 */
uint32_t zet_server_clock_period(const zet_server_clock_t *clock, float rate);

/**
 * Finds when the next frame is due. Frames are due at multiples of the period after the first one; a frame
 * that could not be measured in time is left out, not measured later.
 *
 * @param due     when the last frame was due
 * @param period  ticks between two frames, at least 1
 * @param now     the time
 * @return the first such time after @p due that has not passed
 */
uint64_t zet_server_clock_next_due(uint64_t due, uint32_t period, uint64_t now);

#endif
