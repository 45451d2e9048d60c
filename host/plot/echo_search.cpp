/** @file
 * Finds the strongest echo in a sweep.
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

/** Whether the level at a point is that of an echo. */
bool is_echo_of(const recorded_item &item, const item_statistics &statistics,
                const std::vector<double> &levels, size_t point)
{
    const auto around = statistics.background_of(subsweep_of(item, point));
    return is_echo(levels[point], around, statistics.sweeps());
}

/** Why an item has no strongest echo. */
std::string why_none(const recorded_item &item, const item_statistics &statistics,
                     const std::vector<double> &levels)
{
    bool known = false;
    bool left_out = false;
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        const auto around = statistics.background_of(i);
        const auto &place = item.layout.subsweeps[i];
        const auto part = std::span(levels).subspan(place.offset, place.length);
        const auto has_echo = [&](double level) { return is_echo(level, around, statistics.sweeps()); };
        known = known || !std::isnan(around.noise);
        left_out = left_out || std::any_of(part.begin(), part.end(), has_echo);
    }
    if (!known)
    {
        return statistics.sweeps() == 0 ? "no valid frame" : "noise unknown: too few sweeps";
    }
    return left_out ? "only direct leakage, or an echo at an edge" : "no echo above the noise";
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

double echo_distance(const recorded_item &item, const std::vector<double> &levels, size_t point)
{
    const auto subsweep = subsweep_of(item, point);
    const auto &place = item.layout.subsweeps[subsweep];
    if (point == place.offset || point + 1 >= place.offset + place.length)
    {
        return item.layout.distances_m[point];
    }
    const double before = dbfs(levels[point - 1]);
    const double after = dbfs(levels[point + 1]);
    const double curvature = before - 2.0 * dbfs(levels[point]) + after;
    const double shift = curvature < 0.0 ? std::clamp((before - after) / (2.0 * curvature), -0.5, 0.5) : 0.0;
    return item.layout.distances_m[point] + shift * step_length(item, subsweep);
}

bool is_echo(double level, const background &around, uint64_t sweeps)
{
    // With fewer sweeps, the highest of many levels of noise is farther above their mean.
    constexpr double least = 2.0;
    const double ratio = std::max(least, 1.0 + 4.0 / std::sqrt(static_cast<double>(sweeps)));
    return level > ratio * around.level();
}

found_echo find_strongest_echo(const recorded_item &item, const item_statistics &statistics)
{
    const auto levels = statistics.profile();
    const auto point = strongest_echo(item, levels);
    if (!point || !is_echo_of(item, statistics, levels, *point))
    {
        return {.note = why_none(item, statistics, levels)};
    }
    return {.distance = echo_distance(item, levels, *point),
            .note = statistics.clipped(*point) ? "saturated" : ""};
}

size_t subsweep_of(const recorded_item &item, size_t point)
{
    const auto &subsweeps = item.layout.subsweeps;
    for (size_t i = 0; i < subsweeps.size(); ++i)
    {
        if (point >= subsweeps[i].offset && point < subsweeps[i].offset + subsweeps[i].length)
        {
            return i;
        }
    }
    return 0;
}

} // namespace vantor
