/** @file
 * Where the targets of a simulated recording really were.
 */
#include "plot/truth_tracks.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "plot/drawing_stopped.h"
#include "plot/sensor_scale.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** Maximum number of points of a track: about the number of columns of pixels in a panel. */
constexpr uint64_t most_truth_points = 400;

/** Opens the truth; nothing if there is none, or it cannot be read. */
std::optional<truth_frames> open_truth_frames(const recording_reader &recording,
                                              const std::function<bool()> &stop)
try
{
    const auto check = [stop] {
        if (stop && stop())
        {
            throw drawing_stopped();
        }
    };
    return recording.has_truth() ? std::optional<truth_frames>(std::in_place, recording, check)
                                 : std::nullopt;
}
catch (const bad_recording &)
{
    // The check of the recording has reported it.
    return std::nullopt;
}

/** Collects the true distances of the targets of an item. */
class track_collector
{
public:
    /** @param spacing  of the frames whose distances are kept */
    track_collector(const recorded_item &item, uint64_t spacing) : item_(item), spacing_(spacing)
    {
    }

    /** Adds the targets of a frame that are within the measured distances. */
    void add(const recorded_truth &line, double time)
    {
        for (const auto &target : line.truth.targets)
        {
            if (!covers_distance(item_, target.distance_m))
            {
                continue;
            }
            auto &growing = tracks_[target.target];
            ++growing.frames;
            growing.sum += target.distance_m;
            if (line.frame % spacing_ == 0)
            {
                growing.points.push_back({.time = time, .distance = target.distance_m});
            }
        }
    }

    /** Returns the tracks. */
    std::vector<truth_track> finish()
    {
        std::vector<truth_track> result;
        for (auto &[target, growing] : tracks_)
        {
            result.push_back({.target = target,
                              .mean = growing.sum / static_cast<double>(growing.frames),
                              .points = std::move(growing.points)});
        }
        return result;
    }

private:
    /** A track that is not complete yet. */
    struct growing_track
    {
        uint64_t frames = 0;
        double sum = 0.0; /**< of the distances */
        std::vector<truth_point> points;
    };

    const recorded_item &item_;
    uint64_t spacing_;
    std::map<size_t, growing_track> tracks_;
};

} // namespace

std::vector<truth_track> read_truth_tracks(const recording_reader &recording, size_t index,
                                           const timeline &times, const std::function<bool()> &stop)
{
    auto truth = open_truth_frames(recording, stop);
    const auto &item = recording.items()[index];
    track_collector tracks(item, recording.frames() / most_truth_points + 1);
    frame_rows rows(recording, index, times);
    for (uint64_t number = 0; truth && number < recording.frames(); ++number)
    {
        rows.advance();
        for (const auto &line : truth->move_to(number))
        {
            if (line.group == item.layout.group && line.item == item.layout.index)
            {
                tracks.add(line, rows.begin());
            }
        }
    }
    return tracks.finish();
}

} // namespace vantor
