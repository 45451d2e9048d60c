/** @file
 * Compares the detections in one frame of one item with what should have been found.
 */
#include "score/frame_comparison.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <queue>
#include <tuple>
#include <utility>

namespace vantor
{
namespace
{

/** A point and the closest detection that is left. */
struct candidate
{
    double difference_m; /**< its magnitude */
    size_t point;
    size_t detection;

    /** The order in which pairs are matched: the closest one first. */
    friend bool operator>(const candidate &left, const candidate &right)
    {
        return std::tie(left.difference_m, left.point, left.detection) >
               std::tie(right.difference_m, right.point, right.detection);
    }
};

/** Does the work of compare_frame(). */
class frame_comparison
{
public:
    frame_comparison(std::span<const detection> detections, const scored_things &expected, item_score &score)
        : detections_(detections), points_(expected.points), things_(expected.things), score_(score),
          is_matched_(detections.size()), is_found_(expected.things.size())
    {
    }

    /** Adds the result to the score. */
    void run()
    {
        score_.detections += detections_.size();
        for (const auto &thing : things_)
        {
            score_.things[thing.name].due += thing.due ? 1 : 0;
        }
        match_closest_first();
        count_rest();
    }

private:
    /** Index of the first detection that is not nearer than a distance. */
    [[nodiscard]] size_t first_from(double distance_m) const
    {
        return static_cast<size_t>(
            std::ranges::lower_bound(detections_, distance_m, {}, &detection::distance_m) -
            detections_.begin());
    }

    /** Adds the closest detection that is left to the candidates, unless it is beyond the gate. */
    void add_candidate(size_t index)
    {
        const auto &point = points_[index];
        size_t above = first_from(point.distance_m);
        size_t below = above;
        while (above < detections_.size() && is_matched_[above])
        {
            ++above;
        }
        while (below > 0 && is_matched_[below - 1])
        {
            --below;
        }
        const auto difference = [&](size_t place) {
            return place < detections_.size() ? std::fabs(detections_[place].distance_m - point.distance_m)
                                              : INFINITY;
        };
        // Without one below, the index is beyond the last one.
        const size_t nearest = difference(below - 1) <= difference(above) ? below - 1 : above;
        if (difference(nearest) <= point.gate_m)
        {
            candidates_.push({.difference_m = difference(nearest), .point = index, .detection = nearest});
        }
    }

    /** Matches the closest pairs of a detection and a thing that is due. */
    void match_closest_first()
    {
        for (size_t i = 0; i < points_.size(); ++i)
        {
            if (things_[points_[i].thing].due)
            {
                add_candidate(i);
            }
        }
        while (!candidates_.empty())
        {
            const auto closest = candidates_.top();
            candidates_.pop();
            if (is_found_[points_[closest.point].thing])
            {
                continue;
            }
            if (is_matched_[closest.detection])
            {
                add_candidate(closest.point);
                continue;
            }
            match(closest);
        }
    }

    /** Counts a pair. */
    void match(const candidate &pair)
    {
        const auto &found = detections_[pair.detection];
        const auto &point = points_[pair.point];
        is_matched_[pair.detection] = true;
        is_found_[point.thing] = true;
        auto &figures = score_.things[things_[point.thing].name];
        ++figures.detected;
        figures.distance.add(found.distance_m - point.distance_m);
        if (const auto velocity_m_s = found.velocity())
        {
            figures.velocity.add(*velocity_m_s - point.velocity_m_s);
        }
    }

    /** Counts the detections that are left: of a body that was found, of things that are not due, or of
     * nothing. */
    void count_rest()
    {
        // Where the number of points whose gate covers a detection changes, and by how much.
        std::vector<int64_t> changes(detections_.size() + 1);
        for (const auto &point : points_)
        {
            const auto &thing = things_[point.thing];
            if (!thing.due || thing.name.is_body)
            {
                const auto [first, end] = covered_by(point);
                changes[first] += 1;
                changes[end] -= 1;
            }
        }
        int64_t covering = 0;
        for (size_t i = 0; i < detections_.size(); ++i)
        {
            covering += changes[i];
            score_.ignored += !is_matched_[i] && covering > 0 ? 1 : 0;
            score_.false_alarms += !is_matched_[i] && covering == 0 ? 1 : 0;
        }
    }

    /** The detections within the gate of a point: the first one, and the one after the last one. */
    [[nodiscard]] std::pair<size_t, size_t> covered_by(const scored_point &point) const
    {
        const auto is_nearer = [&](const detection &each) {
            return point.distance_m - each.distance_m > point.gate_m;
        };
        const auto is_within = [&](const detection &each) {
            return each.distance_m - point.distance_m <= point.gate_m;
        };
        const auto first = std::ranges::partition_point(detections_, is_nearer);
        const auto end = std::ranges::partition_point(detections_, is_within);
        return {static_cast<size_t>(first - detections_.begin()),
                static_cast<size_t>(end - detections_.begin())};
    }

    std::span<const detection> detections_;
    const std::vector<scored_point> &points_;
    const std::vector<scored_thing> &things_;
    item_score &score_;
    std::vector<bool> is_matched_; /**< for each detection */
    std::vector<bool> is_found_;   /**< for each thing */
    std::priority_queue<candidate, std::vector<candidate>, std::greater<>> candidates_;
};

} // namespace

void compare_frame(std::span<const detection> detections, const scored_things &expected, item_score &score)
{
    frame_comparison(detections, expected, score).run();
}

} // namespace vantor
