/** @file
 * Statistics of an item's samples over many frames.
 */
#include "vantor/item_statistics.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace vantor
{

item_statistics::item_statistics(size_t sweep_length) noexcept : sweep_length_(sweep_length)
{
}

void item_statistics::add(std::span<const sample> samples)
{
    if (samples.size() >= sweep_length_)
    {
        // Not before: a document can describe far more samples than there are.
        sums_.resize(sweep_length_);
    }
    while (!sums_.empty() && samples.size() >= sums_.size())
    {
        for (size_t point = 0; point < sums_.size(); ++point)
        {
            const double i = samples[point].i;
            const double q = samples[point].q;
            sums_[point] += std::sqrt(i * i + q * q);
        }
        samples = samples.subspan(sums_.size());
        ++sweeps_;
    }
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
    std::vector<double> means(sums_);
    means.resize(sweep_length_);
    for (auto &mean : means)
    {
        mean /= static_cast<double>(std::max<uint64_t>(sweeps_, 1));
    }
    return means;
}

} // namespace vantor
