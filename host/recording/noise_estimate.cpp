/** @file
 * Noise from the differences between consecutive sweeps.
 */
#include "recording/noise_estimate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numeric>

#include "recording/quantile.h"
#include "recording/vector_clones.h"

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

/** Powers up to a bound. */
struct lower_powers
{
    double sum = 0.0;
    size_t count = 0;
};

/** The powers up to a bound. */
VANTOR_VECTOR_CLONES lower_powers powers_up_to(std::span<const float> powers, float bound)
{
    // Several sums, since the compiler does not change the order of additions.
    constexpr size_t lanes = 4;
    std::array<double, lanes> sums{};
    std::array<int32_t, lanes> counts{};
    const auto add = [&](size_t lane, float power) {
        const bool below = power <= bound;
        sums[lane] += static_cast<double>(below ? power : 0.0F);
        counts[lane] += below ? 1 : 0;
    };
    const size_t whole = powers.size() / lanes * lanes;
    for (size_t i = 0; i < whole; i += lanes)
    {
        for (size_t lane = 0; lane < lanes; ++lane)
        {
            add(lane, powers[i + lane]);
        }
    }
    for (size_t i = whole; i < powers.size(); ++i)
    {
        add(i - whole, powers[i]);
    }
    return {.sum = std::accumulate(sums.begin(), sums.end(), 0.0),
            .count = static_cast<size_t>(std::accumulate(counts.begin(), counts.end(), 0))};
}

} // namespace

std::optional<noise_estimate> estimate_noise(std::span<const float> powers, double shape)
{
    if (powers.empty())
    {
        return std::nullopt;
    }
    const double highest = gamma_quantile(shape, normal_bound);
    double power = quantile_of_powers(powers, powers.size() / 4) / gamma_quantile(shape, normal_quartile);
    size_t kept = 0;
    size_t before = 0;
    do
    {
        before = kept;
        const auto lower = powers_up_to(powers, static_cast<float>(std::max(power * highest, rounding)));
        kept = lower.count;
        power = lower.sum / static_cast<double>(kept);
    } while (kept != before);
    return noise_estimate{.power = power, .certain = 2 * kept > powers.size()};
}

} // namespace vantor
