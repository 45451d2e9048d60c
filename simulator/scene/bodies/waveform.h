/** @file
 * Periodic motions as sums of sines.
 */
#ifndef ZET_SIMULATOR_WAVEFORM_H
#define ZET_SIMULATOR_WAVEFORM_H

#include <cstddef>

namespace zet_simulator
{

constexpr size_t harmonic_count = 4;

/** A sine with a multiple of the frequency of a motion. */
struct harmonic
{
    double amplitude;
    double phase_turns;
};

/** The first terms of a Fourier series. */
struct waveform
{
    double mean;
    harmonic harmonics[harmonic_count];
};

/**
 * Returns the motion of a chest: 1 between its ends. It rises as half a cosine during the inhalation, which
 * is shorter than the exhalation, during which it falls as half a cosine.
 */
waveform breathing_waveform();

/**
 * Returns the position of a walker's foot relative to the body, for a body that moves 1 in one cycle. The
 * foot rests on the ground at first; then its speed is half a sine.
 *
 * @param support  part of the cycle in which it rests
 */
waveform foot_waveform(double support);

} // namespace zet_simulator

#endif
