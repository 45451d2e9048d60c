/** @file
 * Noise from the differences between consecutive sweeps.
 */
#include "recording/noise_estimate.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace vantor
{
namespace
{

/** The lower quartile, and the 99.9 % quantile, of the normal distribution. */
constexpr double normal_quartile = -0.6745;
constexpr double normal_bound = 3.0902;

/** Powers up to this are always noise: that of rounding to whole numbers, and a little more. */
constexpr double rounding = 1.0;

/** A quantile of the gamma distribution with mean 1 (Wilson and Hilferty, "The distribution of chi-square",
 * 1931). */
double gamma_quantile(double shape, double normal_quantile)
{
    const double spread = 1.0 / (9.0 * shape);
    return std::pow(std::max(1.0 - spread + normal_quantile * std::sqrt(spread), 0.0), 3.0);
}

} // namespace

std::optional<noise_estimate> estimate_noise(std::vector<double> powers, double shape)
{
    if (powers.empty())
    {
        return std::nullopt;
    }
    std::sort(powers.begin(), powers.end());
    const double highest = gamma_quantile(shape, normal_bound);
    double power = powers[powers.size() / 4] / gamma_quantile(shape, normal_quartile);
    size_t kept = 0;
    size_t before = 0;
    do
    {
        before = kept;
        const double bound = std::max(power * highest, rounding);
        const auto end = std::upper_bound(powers.begin(), powers.end(), bound);
        kept = static_cast<size_t>(end - powers.begin());
        power = std::accumulate(powers.begin(), end, 0.0) / static_cast<double>(kept);
    } while (kept != before);
    return noise_estimate{.power = power, .certain = 2 * kept > powers.size()};
}

} // namespace vantor
