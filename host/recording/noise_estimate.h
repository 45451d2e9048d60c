/** @file
 * Noise from the differences between consecutive sweeps.
 */
#ifndef VANTOR_NOISE_ESTIMATE_H
#define VANTOR_NOISE_ESTIMATE_H

#include <optional>
#include <span>

namespace vantor
{

/** The noise in a short time. */
struct noise_estimate
{
    double power = 0.0;   /**< mean square of the amplitude */
    bool certain = false; /**< more than half of the points contain noise only */
};

/**
 * Estimates noise from the mean square of some differences at each point, beside points that contain more.
 *
 * Such a mean of Gaussian noise has about a gamma distribution. Points above its 99.9 % quantile contain
 * echoes that move and are left out: first with the noise that the lower quartile of all points has, then
 * with the mean of the points that are left, until no further one is left out or taken back.
 *
 * @param powers  half of the mean square of the differences at each point
 * @param shape   of the gamma distribution
 * @return nothing if there are no points
 */
std::optional<noise_estimate> estimate_noise(std::span<const float> powers, double shape);

} // namespace vantor

#endif
