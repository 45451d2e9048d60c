/** @file
 * Measures the noise of the samples.
 */
#include "plot/noise_meter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace vantor
{

noise_meter::noise_meter(size_t sweep_length) : sums_(sweep_length)
{
}

/** Adds the difference between two sweeps. */
void noise_meter::add_difference(const sample *earlier, const sample *later)
{
    for (size_t i = 0; i < sums_.size(); ++i)
    {
        const double real = later[i].i - earlier[i].i;
        const double imag = later[i].q - earlier[i].q;
        sums_[i] += real * real + imag * imag;
    }
    ++count_;
}

void noise_meter::add(const std::vector<sample> &samples)
{
    const size_t length = sums_.size();
    if (length == 0)
    {
        return;
    }
    for (size_t place = length; place + length <= samples.size(); place += length)
    {
        add_difference(&samples[place - length], &samples[place]);
    }
    if (samples.size() == length)
    {
        if (!previous_.empty())
        {
            add_difference(previous_.data(), samples.data());
        }
        previous_ = samples;
    }
}

void noise_meter::restart()
{
    previous_.clear();
}

double noise_meter::rms(const subsweep_layout &place) const
{
    if (count_ == 0 || place.length == 0)
    {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const auto first = sums_.begin() + static_cast<ptrdiff_t>(place.offset);
    std::vector<double> sums(first, first + static_cast<ptrdiff_t>(place.length));
    // The lower quartile is hardly affected by echoes that move, but too low for a few differences.
    constexpr uint64_t enough = 8;
    const auto rank = sums.begin() + static_cast<ptrdiff_t>(sums.size() / (count_ < enough ? 2 : 4));
    std::nth_element(sums.begin(), rank, sums.end());
    return std::sqrt(*rank / static_cast<double>(count_) / 2.0);
}

double mean_noise_level(double rms)
{
    return rms * std::sqrt(std::numbers::pi) / 2.0;
}

} // namespace vantor
