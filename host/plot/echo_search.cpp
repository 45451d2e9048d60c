/** @file
 * Finds the strongest echo in a sweep, and follows it.
 */
#include "plot/echo_search.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "plot/sensor_scale.h"

namespace vantor
{
namespace
{

/** Whether a level falls by 3 dB on both sides of a point. */
bool stands_out(std::span<const double> levels, size_t point)
{
    const double lower = levels[point] * std::sqrt(0.5);
    const auto is_lower = [lower](double level) { return level <= lower; };
    const auto place = levels.begin() + static_cast<ptrdiff_t>(point);
    return levels[point] > 0.0 && std::any_of(levels.begin(), place, is_lower) &&
           std::any_of(place, levels.end(), is_lower);
}

/** Whether a point is a maximum inside a sub-sweep. */
bool is_maximum(std::span<const double> levels, size_t point)
{
    return point > 0 && point + 1 < levels.size() && levels[point] >= levels[point - 1] &&
           levels[point] >= levels[point + 1];
}

/** Whether consecutive positions of the strongest echo belong to one echo. */
bool is_continuous(const echo_position &earlier, const echo_position &later)
{
    return std::fabs(later.distance - earlier.distance) <= std::max(earlier.width, later.width);
}

/** The motion between the extremes of some positions. */
echo_motion motion_in(std::span<const echo_position> positions)
{
    const auto nearer = [](const auto &a, const auto &b) { return a.distance < b.distance; };
    const auto [nearest, farthest] = std::minmax_element(positions.begin(), positions.end(), nearer);
    return nearest < farthest ? echo_motion{.from = *nearest, .to = *farthest}
                              : echo_motion{.from = *farthest, .to = *nearest};
}

/** The distance between the extremes of a motion. */
double extent(const echo_motion &motion)
{
    return std::fabs(motion.to.distance - motion.from.distance);
}

} // namespace

std::optional<size_t> strongest_echo(const recorded_item &item, const std::vector<double> &levels)
{
    std::optional<size_t> best;
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        const auto &place = item.layout.subsweeps[i];
        const auto part = std::span(levels).subspan(place.offset, place.length);
        const double leakage = pulse_width(item, i) / 2.0;
        for (size_t point = 0; point < part.size(); ++point)
        {
            const bool stronger = !best || part[point] > levels[*best];
            if (stronger && is_maximum(part, point) &&
                !(std::fabs(item.layout.distances_m[place.offset + point]) < leakage) &&
                stands_out(part, point))
            {
                best = place.offset + point;
            }
        }
    }
    return best;
}

std::optional<echo_motion> widest_motion(const std::vector<echo_position> &positions)
{
    std::optional<echo_motion> widest;
    for (size_t first = 0; first < positions.size();)
    {
        auto next = first + 1;
        while (next < positions.size() && is_continuous(positions[next - 1], positions[next]))
        {
            ++next;
        }
        auto motion = motion_in(std::span(positions).subspan(first, next - first));
        motion.always = next - first > positions.size() / 2;
        if (extent(motion) > motion.from.width / 2.0 && (!widest || extent(motion) > extent(*widest)))
        {
            widest = motion;
        }
        first = next;
    }
    return widest;
}

} // namespace vantor
