/** @file
 * Divides the points of a sweep into the rows of a picture.
 */
#include "plot/distance_bins.h"

#include <algorithm>

#include "plot/sensor_scale.h"

namespace vantor
{
namespace
{

/** About the number of rows of pixels in a panel. */
constexpr size_t most_bins = 256;

} // namespace

distance_bins::distance_bins(const recorded_item &item) : bins_(item.layout.sweep_length)
{
    const size_t points_per_bin = bins_.size() / most_bins + 1;
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        const auto &place = item.layout.subsweeps[i];
        part bins{.first = size_, .count = (place.length + points_per_bin - 1) / points_per_bin};
        for (size_t point = 0; point < place.length; ++point)
        {
            bins_.at(place.offset + point) = bins.first + point * bins.count / place.length;
        }
        if (place.length > 0)
        {
            const double step = step_length(item, i);
            bins.begin = item.layout.distances_m.at(place.offset) - step / 2.0;
            bins.size = step * static_cast<double>(place.length) / static_cast<double>(bins.count);
        }
        size_ += bins.count;
        parts_.push_back(bins);
    }
}

double distance_bins::begin(size_t subsweep, size_t bin) const
{
    const auto &bins = parts_.at(subsweep);
    return bins.begin + bins.size * static_cast<double>(bin);
}

std::vector<float> distance_bins::means(const std::vector<double> &values) const
{
    std::vector<double> sums(size_);
    std::vector<size_t> counts(size_);
    for (size_t point = 0; point < std::min(values.size(), bins_.size()); ++point)
    {
        sums[bins_[point]] += values[point];
        ++counts[bins_[point]];
    }
    std::vector<float> means(size_);
    for (size_t bin = 0; bin < size_; ++bin)
    {
        means[bin] = static_cast<float>(sums[bin] / static_cast<double>(std::max<size_t>(counts[bin], 1)));
    }
    return means;
}

} // namespace vantor
