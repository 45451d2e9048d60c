/** @file
 * Synthesis of the samples of a sub-sweep: echoes, the receiver's phase, noise, conversion.
 */
#ifndef ZET_SIMULATOR_SYNTHESIS_H
#define ZET_SIMULATOR_SYNTHESIS_H

#include "common/noise.h"
#include "sensor_library/echoes.h"
#include "zet_definitions_k330.h"

namespace zet_simulator
{

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
 * Listens with the transmitter off, for the clear-channel assessment.
 *
 * @return power of interfering signals as a multiple of the receiver's noise power, less what that noise
 * alone can reach: above 0 only with interfering signals
 */
float synthesis_listen(const view &view, noise_source &noise);

} // namespace zet_simulator

#endif
