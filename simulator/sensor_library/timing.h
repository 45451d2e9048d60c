/** @file
 * How long sweeps and frames take.
 *
 * A point takes its pulses plus some pulses while the delay line settles, one pulse per period of the pulse
 * repetition frequency. A sub-sweep takes a set-up time plus its points. In the high-speed mode both
 * overheads are short, because nothing has to be switched between sweeps.
 */
#ifndef ZET_SIMULATOR_TIMING_H
#define ZET_SIMULATOR_TIMING_H

#include "sensor_library/parameter_block.h"

namespace zet_simulator
{

/**
 * Returns whether a configuration is measured in the high-speed mode: one sub-sweep, ready between sweeps,
 * and no continuous sweep mode.
 */
bool timing_is_high_speed(const zet_config &config);

/** Durations of a measurement, in microseconds. */
struct frame_timing
{
    double lead_us;                  /**< from the start of a frame to its first sweep */
    double sweep_period_us;          /**< from sweep to sweep */
    double frame_us;                 /**< from the start of a frame to its interrupt */
    double frame_period_us;          /**< from frame to frame; 0 when the sensor does not pace the frames */
    double shortest_sweep_period_us; /**< lowest possible sweep period */
};

/**
 * Computes the durations.
 *
 * @param config  a configuration with a valid layout; gives the numbers of points and sweeps
 * @param block   the words that control the sensor; give everything else
 */
frame_timing timing_of(const zet_config &config, const parameter_block &block);

/** Returns the highest sweep rate of a configuration with valid sub-sweeps, in hertz. */
float timing_max_sweep_rate(const zet_config &config);

} // namespace zet_simulator

#endif
