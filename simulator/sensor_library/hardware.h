/** @file
 * What is not ideal in a sensor.
 *
 * Phase: an oscillator whose frequency differs by the fraction y turns the phase of an echo by 4 pi d y /
 * wavelength, because the echo is mixed with what the oscillator sends 2 d / c later. So echoes from near are
 * disturbed less (M. Budge, M. Burt, "Range Correlation Effects in Radars", 1993).
 *
 * Drift: the slow part of y is flicker noise, which has the same power in each octave (IEEE Std 1139): a sum
 * of sines, four at random frequencies in each octave.
 *
 * Temperature: delay and amplitude change linearly with the difference from the calibration.
 *
 * Bursts of interference begin at random times, independently (D. Middleton, "Statistical-Physical Models of
 * Electromagnetic Interference", 1977, class A): in each slot of time as long as a burst, one begins with
 * the same probability, at a random time in the slot. All sensors of a board hear the same bursts.
 */
#ifndef ZET_SIMULATOR_HARDWARE_H
#define ZET_SIMULATOR_HARDWARE_H

#include "sensor_library/echoes.h"

namespace zet_simulator
{

/** Returns the slow difference of the oscillator's frequency, as a fraction of the nominal carrier. */
double hardware_frequency_drift(const view &view);

/**
 * Returns the difference of the oscillator's frequency that is random for each measurement of a sub-sweep.
 *
 * @param measurement  number of the measurement in its frame
 */
double hardware_frequency_noise(const view &view, const subsweep_signal &subsweep, uint32_t measurement);

/** Sets delay and gain for a temperature, in kelvin above that of the calibration, and the levels of
 * sidelobes and ringing. */
void hardware_apply(const zet_simulator_hardware_t &hardware, double kelvin, frame_signal &frame);

/** Returns the power of all interference at a time, as a multiple of the receiver's own noise power. */
float hardware_interference(const view &view);

} // namespace zet_simulator

#endif
