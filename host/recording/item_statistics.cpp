/** @file
 * Statistics of an item's samples over many frames.
 */
#include "vantor/item_statistics.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace vantor
{
namespace
{

/** The element that this many elements precede in ascending order. */
double quantile(std::vector<double> values, size_t below)
{
    const auto rank = values.begin() + static_cast<ptrdiff_t>(below);
    std::nth_element(values.begin(), rank, values.end());
    return *rank;
}

} // namespace

double background::level() const
{
    // The mean of a Rice distribution; from this ratio of powers on, what it tends to.
    constexpr double great = 100.0;
    if (noise == 0.0 || offset * offset > great * noise * noise)
    {
        return std::sqrt(offset * offset + noise * noise / 2.0);
    }
    const double ratio = offset * offset / (noise * noise);
    const double half = ratio / 2.0;
    return std::isnan(noise)
               ? noise
               : noise * std::sqrt(std::numbers::pi) / 2.0 * std::exp(-half) *
                     ((1.0 + ratio) * std::cyl_bessel_i(0.0, half) + ratio * std::cyl_bessel_i(1.0, half));
}

item_statistics::item_statistics(size_t sweep_length) noexcept : sweep_length_(sweep_length)
{
}

/** Adds a sweep to the sums. */
void item_statistics::add_sweep(std::span<const sample> sweep)
{
    for (size_t point = 0; point < sums_.size(); ++point)
    {
        const double i = sweep[point].i;
        const double q = sweep[point].q;
        sums_[point] += std::sqrt(i * i + q * q);
        means_[point] += std::complex<double>(i, q);
    }
    ++sweeps_;
}

/** Adds the difference between two sweeps. */
void item_statistics::compare(std::span<const sample> earlier, std::span<const sample> later)
{
    for (size_t point = 0; point < differences_.size(); ++point)
    {
        const double i = later[point].i - earlier[point].i;
        const double q = later[point].q - earlier[point].q;
        differences_[point] += i * i + q * q;
    }
    ++compared_;
}

void item_statistics::add(std::span<const sample> samples)
{
    const size_t length = sweep_length_;
    if (length == 0 || samples.size() < length)
    {
        return;
    }
    // Not before: a document can describe far more samples than there are.
    sums_.resize(length);
    means_.resize(length);
    differences_.resize(length);
    for (size_t place = 0; place + length <= samples.size(); place += length)
    {
        const auto sweep = samples.subspan(place, length);
        add_sweep(sweep);
        if (place > 0)
        {
            compare(samples.subspan(place - length, length), sweep);
        }
    }
    if (samples.size() == length)
    {
        if (!previous_.empty())
        {
            compare(previous_, samples);
        }
        previous_.assign(samples.begin(), samples.end());
    }
}

void item_statistics::restart()
{
    previous_.clear();
}

std::optional<double> item_statistics::mean_level() const
{
    if (sweeps_ == 0)
    {
        return std::nullopt;
    }
    const double sum = std::accumulate(sums_.begin(), sums_.end(), 0.0);
    return sum / static_cast<double>(sweeps_) / static_cast<double>(sums_.size());
}

std::vector<double> item_statistics::profile() const
{
    std::vector<double> levels(sums_);
    levels.resize(sweep_length_);
    for (auto &level : levels)
    {
        level /= static_cast<double>(std::max<uint64_t>(sweeps_, 1));
    }
    return levels;
}

std::vector<std::complex<double>> item_statistics::means() const
{
    auto means = means_;
    means.resize(sweep_length_);
    for (auto &mean : means)
    {
        mean /= static_cast<double>(std::max<uint64_t>(sweeps_, 1));
    }
    return means;
}

/** The RMS amplitude of the noise; NaN if unknown. */
double item_statistics::noise_in(const subsweep_layout &place) const
{
    if (compared_ == 0 || place.length == 0)
    {
        return std::numeric_limits<double>::quiet_NaN();
    }
    // The lower quartile is hardly affected by echoes that move, but too low for a few differences.
    constexpr uint64_t enough = 8;
    const auto first = differences_.begin() + static_cast<ptrdiff_t>(place.offset);
    const auto sum = quantile({first, first + static_cast<ptrdiff_t>(place.length)},
                              place.length / (compared_ < enough ? 2 : 4));
    return std::sqrt(sum / static_cast<double>(compared_) / 2.0);
}

background item_statistics::background_of(const subsweep_layout &place) const
{
    background found{.noise = noise_in(place)};
    if (place.length > 0 && sweeps_ > 0)
    {
        std::vector<double> means;
        for (size_t point = place.offset; point < place.offset + place.length; ++point)
        {
            means.push_back(std::norm(means_[point]) / static_cast<double>(sweeps_ * sweeps_));
        }
        // Noise adds to the mean samples, too.
        const double noise = std::isnan(found.noise) ? 0.0 : found.noise;
        const double power =
            quantile(std::move(means), place.length / 4) - noise * noise / static_cast<double>(sweeps_);
        found.offset = std::sqrt(std::max(power, 0.0));
    }
    return found;
}

} // namespace vantor
