/** @file
 * Synthesis of the samples of a sub-sweep: echoes, the receiver's phase, noise, conversion.
 */
#ifndef ZET_SIMULATOR_SYNTHESIS_H
#define ZET_SIMULATOR_SYNTHESIS_H

#include "common/noise.h"
#include "common/trigonometry.h"
#include "sensor_library/echoes.h"
#include "zet_definitions_k330.h"

namespace zet_simulator
{

/** Phase error of the delay line for each base step in a cell: an eighth of a turn over a complete cell. */
constexpr binary_angle delay_error_per_step = 0x20000000U / delay_cell;

/**
 * Measures a sub-sweep once.
 *
 * @param noise    the noise of the frame
 * @param samples  receives one sample for each point
 * @return true when a sample reached the end of the scale
 */
bool synthesis_measure(const frame_signal &frame, const subsweep_signal &subsweep, const view &view,
                       noise_source &noise, zet_int16_complex_t *samples);

/**
 * Returns the deviation of the noise in each part of a sample of a sub-sweep.
 *
 * @param interference  power of interfering signals, as a multiple of the receiver's noise power
 */
float noise_amplitude_of(const subsweep_signal &subsweep, float interference);

/**
 * Listens with the transmitter off, for the clear-channel assessment.
 *
 * @return power of interfering signals as a multiple of the receiver's noise power, less what that noise
 * alone can reach: above 0 only with interfering signals
 */
float synthesis_listen(const view &view, noise_source &noise);

} // namespace zet_simulator

#endif
