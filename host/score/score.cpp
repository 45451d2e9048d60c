/** @file
 * Compares detections with the truth of a recording.
 */
#include "score/score.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <string>
#include <tuple>
#include <utility>

#include "configuration/sensor_knowledge.h"
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

/** A detection and a target that may belong together. */
struct possible_match
{
    double difference_m; /**< its magnitude */
    size_t detection;
    size_t target;
};

/** Compares the detections in a frame of an item with its targets. */
class frame_comparison
{
public:
    frame_comparison(const recorded_item &item, std::span<const detection> detections,
                     const item_truth &truth, const score_settings &settings)
        : item_(item), settings_(settings), detections_(detections), targets_(truth.targets),
          is_matched_(detections.size()), is_found_(targets_.size())
    {
    }

    /** Adds the result to the score of the item. */
    void add_to(item_score &score)
    {
        score.detections += detections_.size();
        for (const auto &target : targets_)
        {
            score.targets[target.target].due += is_due(target) ? 1 : 0;
        }
        for (const auto &pair : possible_matches(true))
        {
            match(pair, score);
        }
        // What is left may be other targets.
        for (const auto &pair : possible_matches(false))
        {
            score.ignored += is_matched_[pair.detection] ? 0 : 1;
            is_matched_[pair.detection] = true;
        }
        score.false_alarms += static_cast<uint64_t>(std::ranges::count(is_matched_, false));
    }

private:
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

    /** All pairs within the gate, the closest one first. @p due  of targets that are due, or of all others */
    [[nodiscard]] std::vector<possible_match> possible_matches(bool due) const
    {
        std::vector<possible_match> pairs;
        for (size_t t = 0; t < targets_.size(); ++t)
        {
            if (is_due(targets_[t]) != due)
            {
                continue;
            }
            const double gate = gate_of(targets_[t]);
            for (size_t d = 0; d < detections_.size(); ++d)
            {
                const double difference = std::fabs(detections_[d].distance_m - targets_[t].distance_m);
                if (difference <= gate)
                {
                    pairs.push_back({.difference_m = difference, .detection = d, .target = t});
                }
            }
        }
        const auto order = [](const possible_match &pair) {
            return std::tuple(pair.difference_m, pair.target, pair.detection);
        };
        std::ranges::sort(pairs, {}, order);
        return pairs;
    }

    /** Counts a pair unless one of the two belongs to another pair. */
    void match(const possible_match &pair, item_score &score)
    {
        if (is_matched_[pair.detection] || is_found_[pair.target])
        {
            return;
        }
        is_matched_[pair.detection] = true;
        is_found_[pair.target] = true;
        const auto &found = detections_[pair.detection];
        const auto &target = targets_[pair.target];
        auto &figures = score.targets[target.target];
        ++figures.detected;
        figures.distance.add(found.distance_m - target.distance_m);
        if (const auto velocity_m_s = found.velocity())
        {
            figures.velocity.add(*velocity_m_s - target.velocity_m_s);
        }
    }

    const recorded_item &item_;
    const score_settings &settings_;
    std::span<const detection> detections_;
    const std::vector<target_truth> &targets_;
    std::vector<bool> is_matched_; /**< for each detection */
    std::vector<bool> is_found_;   /**< for each target */
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
    for (const auto &[target, figures] : targets)
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
            frame_comparison(items[i], found, *known, settings).add_to(scores[i]);
        }
    }
    return scores;
}

} // namespace vantor
