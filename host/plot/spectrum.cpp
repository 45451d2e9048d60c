/** @file
 * Power spectrum of complex samples.
 */
#include "plot/spectrum.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace vantor
{

spectrum::spectrum(size_t length) : sums_(length)
{
    const double step = 2.0 * std::numbers::pi / static_cast<double>(length);
    for (size_t k = 0; k < length; ++k)
    {
        const double angle = step * static_cast<double>(k);
        window_.push_back(0.5 - 0.5 * std::cos(angle + step / 2.0)); // symmetric, no sample weighted with 0
        turns_.push_back(std::polar(1.0, -angle));
    }
}

void spectrum::add(const std::vector<std::complex<double>> &stretch)
{
    const size_t length = sums_.size();
    const auto mean =
        std::accumulate(stretch.begin(), stretch.end(), std::complex<double>()) / static_cast<double>(length);
    for (size_t k = 0; k < length; ++k)
    {
        const size_t bin = (k + length - length / 2) % length;
        std::complex<double> sum;
        for (size_t n = 0; n < length; ++n)
        {
            sum += window_[n] * (stretch[n] - mean) * turns_[bin * n % length];
        }
        sums_[k] += std::norm(sum);
    }
    ++count_;
}

std::vector<double> spectrum::powers() const
{
    auto means = sums_;
    for (auto &mean : means)
    {
        mean /= static_cast<double>(std::max<size_t>(count_, 1));
    }
    return means;
}

} // namespace vantor
