/** @file
 * Builds the map of the level over velocity and distance.
 */
#include "plot/velocity_map_builder.h"

#include <algorithm>

#include "plot/sensor_scale.h"

namespace vantor
{
namespace
{

/** Minimum number of sweeps in a frame for a map. */
constexpr size_t fewest_sweeps_of_map = 4;

/** Maximum length of a segment of sweeps. */
constexpr size_t longest_segment_of_map = 128;

} // namespace

std::vector<double> spectrum_velocities(size_t length, double rate)
{
    std::vector<double> velocities;
    const size_t centre = length / 2;
    for (size_t k = 0; k < length; ++k)
    {
        const auto offset = static_cast<double>(k) - static_cast<double>(centre);
        velocities.push_back(2.0 * velocity_bound(rate) * offset / static_cast<double>(length));
    }
    return velocities;
}

bool has_velocity_map(const item_layout &layout)
{
    return layout.sweeps() >= fewest_sweeps_of_map;
}

velocity_map_builder::velocity_map_builder(const recorded_item &item)
    : layout_(item.layout), bins_(item),
      length_(has_velocity_map(layout_) ? std::min(layout_.sweeps(), longest_segment_of_map) : 0),
      spectrum_(std::max<size_t>(length_, 1), spectrum_mean::keep),
      sums_(bins_.size(), std::vector<double>(length_)), counts_(bins_.size())
{
}

void velocity_map_builder::add(const std::vector<sample> &samples)
{
    const size_t segments = length_ == 0 ? 0 : layout_.sweeps() / length_;
    for (size_t point = 0; point < layout_.sweep_length; ++point)
    {
        for (size_t segment = 0; segment < segments; ++segment)
        {
            add_segment(samples, segment * length_, point);
        }
    }
}

/** Adds the samples of a point in the sweeps of a segment. */
void velocity_map_builder::add_segment(const std::vector<sample> &samples, size_t first_sweep, size_t point)
{
    segment_.clear();
    for (size_t sweep = first_sweep; sweep < first_sweep + length_; ++sweep)
    {
        segment_.emplace_back(samples[sweep * layout_.sweep_length + point]);
    }
    const auto bin = bins_.bin_of(point);
    spectrum_.add_powers(segment_, sums_[bin]);
    ++counts_[bin];
}

velocity_map velocity_map_builder::finish(double rate, double noise) const
{
    velocity_map map;
    if (counts_.empty() || counts_.front() == 0)
    {
        return map;
    }
    map.floor = dbfs(spectrum_.noise_amplitude(noise));
    map.velocities = spectrum_velocities(length_, rate);
    map.levels.resize(length_);
    for (size_t bin = 0; bin < sums_.size(); ++bin)
    {
        for (size_t k = 0; k < length_; ++k)
        {
            const double power = sums_[bin][k] / static_cast<double>(counts_[bin]);
            map.levels[k].push_back(static_cast<float>(dbfs(spectrum_.tone_amplitude(power))));
        }
    }
    return map;
}

} // namespace vantor
