/** @file
 * Compares detections with the truth of a recording.
 */
#include "score/score.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <span>
#include <string>
#include <utility>

#include "configuration/sensor_knowledge.h"
#include "score/frame_comparison.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** Whether a sub-sweep measures at a distance. */
bool measures_at(const recorded_item &item, size_t subsweep, double distance_m)
{
    const auto &place = item.layout.subsweeps[subsweep];
    return place.length > 0 && distance_m >= item.layout.distances_m[place.offset] &&
           distance_m <= item.layout.distances_m[place.offset + place.length - 1];
}

/** Whether an item measures at a distance. */
bool measures_at(const recorded_item &item, double distance_m)
{
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        if (measures_at(item, i, distance_m))
        {
            return true;
        }
    }
    return false;
}

/** Finds out what should have been found in one frame of one item. */
class expectation
{
public:
    expectation(const recorded_item &item, const score_settings &settings) : item_(item), settings_(settings)
    {
    }

    /** What should have been found. */
    [[nodiscard]] scored_things of(const item_truth &truth) const
    {
        const auto present = present_in(truth);
        scored_things expected;
        std::map<thing_name, size_t> indexes;
        for (const auto &target : truth.targets)
        {
            const auto name = name_of(target);
            if (!present.contains(name))
            {
                continue;
            }
            const auto [place, is_new] = indexes.emplace(name, expected.things.size());
            if (is_new)
            {
                expected.things.push_back({.name = name});
            }
            auto &thing = expected.things[place->second];
            thing.due = thing.due || is_due(target);
            expected.points.push_back({.distance_m = target.distance_m,
                                       .velocity_m_s = target.velocity_m_s,
                                       .gate_m = gate_of(target),
                                       .thing = place->second});
        }
        return expected;
    }

private:
    /** The thing that a target belongs to. */
    static thing_name name_of(const target_truth &target)
    {
        const bool is_body = target.body > 0;
        return {.is_body = is_body, .number = is_body ? target.body : target.target};
    }

    /** The things of which a target is fast enough. */
    [[nodiscard]] std::set<thing_name> present_in(const item_truth &truth) const
    {
        std::set<thing_name> present;
        for (const auto &target : truth.targets)
        {
            if (std::fabs(target.velocity_m_s) >= settings_.least_speed_m_s)
            {
                present.insert(name_of(target));
            }
        }
        return present;
    }

    /** Whether a target has to be found. */
    [[nodiscard]] bool is_due(const target_truth &target) const
    {
        return target.amplitude > 0.0 && measures_at(item_, target.distance_m) &&
               (!settings_.least_snr_db || target.snr_db.value_or(-INFINITY) >= *settings_.least_snr_db);
    }

    /** The greatest difference between a target and its detection. */
    [[nodiscard]] double gate_of(const target_truth &target) const
    {
        const auto gate = settings_.gate_m ? settings_.gate_m : response_width(item_, target.distance_m);
        if (!gate)
        {
            throw detections_error("The width of the response of " + item_.name +
                                   " is unknown: use --gate to set how far a detection may be from its "
                                   "target.");
        }
        return *gate;
    }

    const recorded_item &item_;
    const score_settings &settings_;
};

/** The detections of a recording, item after item and frame after frame. */
class detection_cursor
{
public:
    detection_cursor(const std::deque<detection> &detections, const std::vector<recorded_item> &items)
        : items_(items), next_(detections.begin()), end_(detections.end())
    {
    }

    /** The detections in an item of a frame, in the order of their distances; valid until the next call. */
    std::span<const detection> next(uint64_t frame, size_t item)
    {
        current_.clear();
        for (; next_ != end_ && next_->frame == frame && next_->item == item; ++next_)
        {
            if (current_.size() == most_detections_in_frame)
            {
                throw detections_error("Frame " + std::to_string(frame) + " of " + items_[item].name +
                                       " has more than " + std::to_string(most_detections_in_frame) +
                                       " detections; raise the threshold of the detector.");
            }
            current_.push_back(*next_);
        }
        // A total order, so that the order of the lines in the file does not matter.
        std::ranges::sort(current_, {}, [](const detection &each) {
            return std::pair(each.distance_m, each.velocity().value_or(INFINITY));
        });
        return current_;
    }

private:
    const std::vector<recorded_item> &items_;
    std::deque<detection>::const_iterator next_;
    std::deque<detection>::const_iterator end_;
    std::vector<detection> current_;
};

/** The truth of an item in a frame; null if unknown. */
const item_truth *truth_of(const std::vector<recorded_truth> &lines, const item_layout &layout)
{
    const auto found = std::ranges::find_if(lines, [&](const recorded_truth &line) {
        return line.group == layout.group && line.item == layout.index;
    });
    return found == lines.end() ? nullptr : &found->truth;
}

} // namespace

void error_figures::add(double value)
{
    ++count;
    sum += value;
    squares += value * value;
}

void error_figures::add(const error_figures &other)
{
    count += other.count;
    sum += other.sum;
    squares += other.squares;
}

std::optional<double> error_figures::mean() const
{
    return count == 0 ? std::nullopt : std::optional(sum / static_cast<double>(count));
}

std::optional<double> error_figures::rms() const
{
    return count == 0 ? std::nullopt : std::optional(std::sqrt(squares / static_cast<double>(count)));
}

void detection_figures::add(const detection_figures &other)
{
    due += other.due;
    detected += other.detected;
    distance.add(other.distance);
    velocity.add(other.velocity);
}

std::optional<double> detection_figures::probability() const
{
    return due == 0 ? std::nullopt : std::optional(static_cast<double>(detected) / static_cast<double>(due));
}

detection_figures item_score::all() const
{
    detection_figures sum;
    for (const auto &[name, figures] : things)
    {
        sum.add(figures);
    }
    return sum;
}

std::optional<double> response_width(const recorded_item &item, double distance_m)
{
    std::optional<double> greatest;
    for (size_t i = 0; i < item.configuration.subsweeps.size(); ++i)
    {
        const auto width = pulse_width(item.configuration.subsweeps[i].profile);
        if (width && i < item.layout.subsweeps.size() && measures_at(item, i, distance_m))
        {
            return width;
        }
        greatest = std::max(greatest, width);
    }
    return greatest;
}

std::vector<item_score> score_detections(const recording_reader &recording,
                                         const std::deque<detection> &detections,
                                         const score_settings &settings, const std::function<void()> &stop)
{
    const auto &items = recording.items();
    std::vector<item_score> scores(items.size());
    truth_frames truth(recording, stop);
    detection_cursor cursor(detections, items);
    std::vector<frame_table> tables;
    for (size_t i = 0; i < items.size(); ++i)
    {
        tables.push_back(recording.open_table(i));
    }
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        if (stop)
        {
            stop();
        }
        const auto &lines = truth.move_to(number);
        for (size_t i = 0; i < items.size(); ++i)
        {
            const auto found = cursor.next(number, i);
            const auto *const known = truth_of(lines, items[i].layout);
            if (!tables[i].require().data_valid.value_or(true) || known == nullptr)
            {
                ++scores[i].left_out;
                continue;
            }
            ++scores[i].frames;
            scores[i].points += items[i].layout.sweep_length;
            compare_frame(found, expectation(items[i], settings).of(*known), scores[i]);
        }
    }
    return scores;
}

} // namespace vantor
