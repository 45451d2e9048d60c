/** @file
 * Computes what the pictures of an item show.
 */
#include "plot/item_analysis.h"

#include <algorithm>
#include <cmath>

#include "plot/echo_search.h"
#include "plot/map_builder.h"
#include "plot/point_analysis.h"
#include "plot/sensor_scale.h"
#include "vantor/item_statistics.h"

namespace vantor
{
namespace
{

/** The point nearest to a distance. */
size_t nearest_point(const recorded_item &item, double distance)
{
    size_t best = 0;
    double away = INFINITY;
    for (size_t i = 0; i < item.layout.distances_m.size(); ++i)
    {
        if (const double difference = std::fabs(item.layout.distances_m[i] - distance); difference < away)
        {
            best = i;
            away = difference;
        }
    }
    return best;
}

/** Selects the point for phase and velocity. */
void choose_point(const recorded_item &item, std::optional<double> distance, uint64_t sweeps,
                  item_analysis &analysis)
{
    analysis.given = distance && covers_distance(item, *distance);
    if (analysis.given)
    {
        analysis.point = nearest_point(item, *distance);
    }
    else
    {
        const auto highest = std::max_element(analysis.profile.begin(), analysis.profile.end());
        const auto echo = strongest_echo(item, analysis.profile);
        analysis.found = echo.has_value();
        analysis.point = echo.value_or(static_cast<size_t>(highest - analysis.profile.begin()));
    }
    const auto &around = analysis.around.at(subsweep_of(item, analysis.point));
    analysis.noise_known = !std::isnan(around.noise);
    analysis.above_noise = is_echo(analysis.profile[analysis.point], around, sweeps);
    analysis.distance = analysis.found ? echo_distance(item, analysis.profile, analysis.point)
                                       : item.layout.distances_m.at(analysis.point);
}

/** Reads the frames a first time: levels and noise. */
void measure_levels(recording_reader &recording, size_t index, const timeline &times,
                    std::optional<double> distance, item_analysis &analysis)
{
    const auto &item = recording.items()[index];
    const bool none_valid = times.not_valid() == recording.frames();
    frame_rows rows(recording, index, times);
    item_statistics statistics(item.layout);
    map_builder map(item, times.axis());
    std::vector<sample> samples;
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        recording.read_frame(index, number, samples);
        rows.advance();
        const bool usable = rows.valid() || none_valid;
        if (rows.after_gap() || !usable)
        {
            statistics.restart();
        }
        if (usable)
        {
            statistics.add(samples);
        }
        map.add(rows, samples, usable);
    }
    analysis.mean = statistics.means();
    analysis.profile = statistics.profile();
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        analysis.around.push_back(statistics.background_of(i));
    }
    choose_point(item, distance, statistics.sweeps(), analysis);
    analysis.clipped = statistics.clipped(analysis.point);
    analysis.map = map.finish();
}

} // namespace

item_analysis analyse_item(recording_reader &recording, size_t index, std::optional<double> distance,
                           const std::function<bool()> &stop)
{
    const timeline times(recording, index);
    item_analysis analysis;
    analysis.figures = times.figures();
    analysis.gaps = times.gaps();
    analysis.time = times.axis();
    measure_levels(recording, index, times, distance, analysis);
    analyse_point(recording, index, times, analysis);
    analysis.truth = read_truth_tracks(recording, index, times, stop);
    return analysis;
}

} // namespace vantor
