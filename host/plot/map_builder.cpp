/** @file
 * Builds the map of the level over time and distance.
 */
#include "plot/map_builder.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <utility>

#include "plot/sensor_scale.h"

namespace vantor
{
namespace
{

/** Maximum number of strips: about the number of columns of pixels in a panel. */
constexpr double most_strips = 400.0;

} // namespace

map_builder::map_builder(const recorded_item &item, const time_axis &time)
    : item_(item), bins_(item), sums_(item.layout.sweep_length)
{
    const double length = time.end + time.period;
    map_.width = std::max(time.period, length / most_strips);
    map_.strips.resize(static_cast<size_t>(std::clamp(std::round(length / map_.width), 1.0, most_strips)));
}

/** The first and the last strip of a frame: those whose centres it covers, and the one that contains its own
 * centre. */
std::pair<size_t, size_t> map_builder::strips_of(const frame_rows &row) const
{
    const double last = static_cast<double>(map_.strips.size() - 1);
    const double own = std::floor((row.begin() + row.end()) / 2.0 / map_.width);
    const double from = std::min(own, std::ceil(row.begin() / map_.width - 0.5));
    const double to = std::max(own, std::ceil(row.end() / map_.width - 0.5) - 1.0);
    return {static_cast<size_t>(std::clamp(from, 0.0, last)), static_cast<size_t>(std::clamp(to, 0.0, last))};
}

void map_builder::add(const frame_rows &row, const std::vector<sample> &samples, bool usable)
{
    const auto [from, to] = strips_of(row);
    for (size_t strip = std::max(from, current_); strip <= to; ++strip)
    {
        if (strip > current_)
        {
            finish_strip();
            current_ = strip;
        }
        map_.strips[strip].saturated = map_.strips[strip].saturated || row.row().data_saturated;
        if (!usable)
        {
            continue;
        }
        for (size_t place = 0; place < samples.size(); place += sums_.size())
        {
            for (size_t point = 0; point < std::min(sums_.size(), samples.size() - place); ++point)
            {
                sums_[point] += magnitude(samples[place + point]);
            }
        }
        sweeps_ += item_.layout.sweeps();
    }
}

/** Completes the current strip. */
void map_builder::finish_strip()
{
    if (sweeps_ == 0)
    {
        return;
    }
    for (auto &sum : sums_)
    {
        sum /= static_cast<double>(sweeps_);
    }
    map_.strips[current_].levels = bins_.means(sums_);
    std::fill(sums_.begin(), sums_.end(), 0.0);
    sweeps_ = 0;
}

level_map map_builder::finish()
{
    finish_strip();
    return std::move(map_);
}

} // namespace vantor
