/** @file
 * Converts samples and phases of the sensor to levels, distances and velocities.
 */
#ifndef VANTOR_SENSOR_SCALE_H
#define VANTOR_SENSOR_SCALE_H

#include <cmath>
#include <complex>
#include <cstddef>
#include <string>

#include "configuration/sensor_knowledge.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** Converts an amplitude to dBFS; amplitudes below 0.1 are treated as 0.1. */
double dbfs(double amplitude);

/** The magnitude of a value whose square is in range, in a fraction of the time of std::abs. */
inline double magnitude(std::complex<double> value) noexcept
{
    return std::sqrt(std::norm(value));
}

/** Distance for one radian of phase, in metres. */
double metres_per_radian();

/** A member of a sub-sweep's configuration that is a whole number; its default if it is missing. */
int subsweep_setting(const recorded_item &item, size_t subsweep, const std::string &name);

/** Width of the echo of a still target at half of its height, in metres. */
double pulse_width(const recorded_item &item, size_t subsweep);

/** The distance between two points of a sub-sweep, in metres. */
double step_length(const recorded_item &item, size_t subsweep);

/** Sweeps per second within a frame. */
double sweep_rate(const recorded_item &item);

/** Whether a distance lies in one of the item's sub-sweeps. */
bool covers_distance(const recorded_item &item, double distance);

} // namespace vantor

#endif
