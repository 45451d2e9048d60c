/** @file
 * The measurement-session parameter block: converts a configuration into the words that control the sensor.
 *
 * These words have an effect: the frequency controls, the frame and sweep timers, the double buffer, the
 * idle states, the high-speed mode, the clear-channel measurement, the limits of the scale, and of each
 * sub-sweep the receiver gain, loopback, both durations, integration repeats, integrator control, transmitter
 * and burst period. The layout of the frame is always that of the configuration. The other words have
 * consistent values, but no effect.
 */
#ifndef ZET_SIMULATOR_PARAMETER_BLOCK_H
#define ZET_SIMULATOR_PARAMETER_BLOCK_H

#include "sensor_library/config.h"
#include "zet_cpd_k330_meas_session_generated.h"

namespace zet_simulator
{

using parameter_block = zet_cpd_k330_meas_session_parameters_t;
using subsweep_parameters = zet_cpd_k330_meas_session_subsweep_parameters_t;

/** Clock of the frame and sweep timers, in hertz. */
constexpr double reference_clock_hz = 26.0e6;

/** Clock of the time from pulse to pulse, in hertz: a multiple of every pulse repetition frequency. */
constexpr double burst_clock_hz = 78.0e6;

/** Base steps that the fine delay covers, equal to one step of the coarse delay. */
constexpr int32_t delay_cell = 24;

/** Integrator control at which the integrator passes its mean unchanged. */
constexpr uint16_t unity_integrator_ctrl = 16;

/** Returns the length of a profile's pulses, in pulse clock cycles; the profile must be valid. */
uint16_t profile_duration(zet_config_profile_t profile);

/** Returns the burst clock cycles from pulse to pulse; the frequency must be valid. */
uint16_t burst_period(zet_config_prf_t prf);

/**
 * Computes the block of a valid configuration.
 *
 * @param calibration  the part that comes from the calibration; null to leave it zero
 * @param block        receives the complete block
 */
void parameter_block_fill(const zet_config &config,
                          const zet_cpd_k330_meas_session_calibration_parameters_t *calibration,
                          parameter_block &block);

} // namespace zet_simulator

#endif
