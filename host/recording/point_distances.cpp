/** @file
 * Distances of the points of a sweep.
 */
#include "recording/point_distances.h"

#include <algorithm>
#include <limits>

namespace vantor
{

std::vector<double> point_distances(const item_layout &layout, const item_configuration &item)
{
    std::vector<double> distances(layout.sweep_length, std::numeric_limits<double>::quiet_NaN());
    const auto count = std::min(layout.subsweeps.size(), item.subsweeps.size());
    for (size_t i = 0; i < count; ++i)
    {
        const auto &place = layout.subsweeps[i];
        const auto &range = item.subsweeps[i];
        for (size_t point = 0; point < place.length; ++point)
        {
            const double steps = range.start_point + static_cast<double>(point) * range.step_length;
            distances[place.offset + point] = steps * layout.base_step_length_m;
        }
    }
    return distances;
}

} // namespace vantor
