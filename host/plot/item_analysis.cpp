/** @file
 * Computes what the pictures of an item show.
 */
#include "plot/item_analysis.h"

#include <algorithm>
#include <cmath>

#include "plot/frame_rows.h"
#include "plot/point_analysis.h"
#include "plot/sensor_scale.h"
#include "vantor/item_statistics.h"

namespace vantor
{
namespace
{

/** Maximum number of strips in a map, so that the files for long recordings stay small. */
constexpr uint64_t most_strips = 400;

/** An echo that is followed is this much stronger than noise and offset. */
constexpr double least_followed_echo = 4.0;

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

/** Collects the strips of the map. */
class map_builder
{
public:
    map_builder(uint64_t frames, size_t sweep_length)
        : frames_per_strip_((frames + most_strips - 1) / most_strips), level_(sweep_length),
          sweep_length_(sweep_length)
    {
    }

    /** Adds a frame; its samples are not used if they are not usable. */
    void add(const frame_rows &row, const std::vector<sample> &samples, bool usable,
             std::vector<map_strip> &map)
    {
        if (frames_ == 0)
        {
            map.push_back({.seconds = row.seconds(), .levels = {}});
            level_ = item_statistics(sweep_length_);
        }
        map.back().saturated = map.back().saturated || row.saturated();
        if (usable)
        {
            level_.add(samples);
            any_usable_ = true;
        }
        if (++frames_ == frames_per_strip_)
        {
            finish(map);
        }
    }

    /** Completes the last strip. */
    void finish(std::vector<map_strip> &map)
    {
        if (any_usable_)
        {
            map.back().levels = level_.profile();
        }
        frames_ = 0;
        any_usable_ = false;
    }

private:
    uint64_t frames_per_strip_;
    uint64_t frames_ = 0;     /**< number of frames in the current strip */
    bool any_usable_ = false; /**< the current strip has samples */
    item_statistics level_;
    size_t sweep_length_;
};

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

/** The positions of the strongest echo over time. */
std::vector<echo_position> follow_echo(const recorded_item &item, const item_analysis &analysis)
{
    std::vector<echo_position> positions;
    for (const auto &strip : analysis.map)
    {
        const auto point =
            strip.levels.empty() ? std::optional<size_t>() : strongest_echo(item, strip.levels);
        if (point &&
            strip.levels[*point] > least_followed_echo * analysis.around[subsweep_of(item, *point)].level())
        {
            positions.push_back({.seconds = strip.seconds,
                                 .distance = item.layout.distances_m[*point],
                                 .width = pulse_width(item, subsweep_of(item, *point))});
        }
    }
    return positions;
}

/** Counts the frames that are not valid or saturated, and measures the frame rate. */
void count_frames(const recording_reader &recording, size_t index, item_analysis &analysis)
{
    frame_rows rows(recording, index);
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        rows.advance();
        analysis.not_valid += rows.valid() ? 0 : 1;
        analysis.saturated += rows.saturated() ? 1 : 0;
    }
    analysis.seconds = rows.seconds();
    analysis.frame_rate =
        rows.seconds() > 0.0 ? static_cast<double>(recording.frames() - 1) / rows.seconds() : 0.0;
}

/** Reads the frames a first time: levels and noise; returns the number of sweeps used. */
uint64_t measure_levels(recording_reader &recording, size_t index, item_analysis &analysis)
{
    const auto &item = recording.items()[index];
    const bool none_valid = analysis.not_valid == recording.frames();
    frame_rows rows(recording, index);
    item_statistics statistics(item.layout.sweep_length);
    map_builder map(recording.frames(), item.layout.sweep_length);
    std::vector<sample> samples;
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        recording.read_frame(index, number, samples);
        rows.advance();
        const bool usable = rows.valid() || none_valid;
        usable ? statistics.add(samples) : statistics.restart();
        map.add(rows, samples, usable, analysis.map);
    }
    analysis.mean = statistics.means();
    map.finish(analysis.map);
    analysis.profile = statistics.profile();
    for (const auto &place : item.layout.subsweeps)
    {
        analysis.around.push_back(statistics.background_of(place));
    }
    return statistics.sweeps();
}

} // namespace

item_analysis analyse_item(recording_reader &recording, size_t index, std::optional<double> distance)
{
    const auto &item = recording.items()[index];
    item_analysis analysis;
    count_frames(recording, index, analysis);
    const auto sweeps = measure_levels(recording, index, analysis);
    choose_point(item, distance, sweeps, analysis);
    analysis.motion = widest_motion(follow_echo(item, analysis));
    analyse_point(recording, index, analysis);
    return analysis;
}

} // namespace vantor
