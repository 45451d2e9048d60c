/** @file
 * Power spectrum of complex samples.
 */
#include "plot/spectrum.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <stdexcept>
#include <string>

namespace vantor
{
namespace
{

/** The Hann window; symmetric, so that no weight is 0. */
std::vector<double> hann_window(size_t length)
{
    const double step = 2.0 * std::numbers::pi / static_cast<double>(length);
    std::vector<double> window;
    for (size_t n = 0; n < length; ++n)
    {
        window.push_back(0.5 - 0.5 * std::cos(step * (static_cast<double>(n) + 0.5)));
    }
    return window;
}

/** Returns the length if KissFFT can transform it. */
size_t transformable(size_t length)
{
    if (length == 0)
    {
        throw std::invalid_argument("A segment of a spectrum is empty; it needs at least one sample.");
    }
    return length;
}

} // namespace

spectrum::spectrum(size_t length, spectrum_mean mean)
    : mean_(mean), transform_(transformable(length), false), window_(hann_window(length)), weighted_(length),
      transformed_(length), sums_(length)
{
}

void spectrum::add(const std::vector<std::complex<double>> &segment)
{
    add_powers(segment, sums_);
    ++count_;
}

void spectrum::add_powers(const std::vector<std::complex<double>> &segment, std::vector<double> &sums)
{
    const size_t length = window_.size();
    if (segment.size() != length || sums.size() != length)
    {
        throw std::invalid_argument("A segment of a spectrum has " + std::to_string(segment.size()) +
                                    " samples; it needs " + std::to_string(length) + ".");
    }
    std::complex<double> mean;
    if (mean_ == spectrum_mean::remove)
    {
        mean = std::accumulate(segment.begin(), segment.end(), mean) / static_cast<double>(length);
    }
    for (size_t n = 0; n < length; ++n)
    {
        weighted_[n] = window_[n] * (segment[n] - mean);
    }
    transform_.transform(weighted_.data(), transformed_.data());
    for (size_t k = 0; k < length; ++k)
    {
        sums[k] += std::norm(transformed_[(k + length - length / 2) % length]);
    }
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

double spectrum::tone_power() const
{
    const double sum = std::accumulate(window_.begin(), window_.end(), 0.0);
    return sum * sum;
}

double spectrum::noise_power() const
{
    return std::inner_product(window_.begin(), window_.end(), window_.begin(), 0.0);
}

double spectrum::tone_amplitude(double power) const
{
    return std::sqrt(power / tone_power());
}

double spectrum::noise_amplitude(double rms) const
{
    return rms * std::sqrt(noise_power() / tone_power());
}

} // namespace vantor
