/** @file
 * Compares the detections in one frame of one item with what should have been found.
 */
#ifndef VANTOR_FRAME_COMPARISON_H
#define VANTOR_FRAME_COMPARISON_H

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "score/score.h"

namespace vantor
{

/** A target, as one of the points of a thing. */
struct scored_point
{
    double distance_m;
    double velocity_m_s;
    double gate_m; /**< the greatest difference to a detection */
    size_t thing;  /**< index of its thing */
};

/** A target that stands alone, or the targets of a body. */
struct scored_thing
{
    thing_name name;
    bool due = false; /**< it has to be found */
};

/** What should have been found. */
struct scored_things
{
    std::vector<scored_point> points;
    std::vector<scored_thing> things;
};

/**
 * Compares the detections in one frame of one item with what should have been found.
 *
 * Memory grows with the sum of detections and points, not with their product.
 *
 * @param detections  in the order of their distances
 * @param expected    what should have been found
 * @param score       of the item, to which the result is added
 */
void compare_frame(std::span<const detection> detections, const scored_things &expected, item_score &score);

} // namespace vantor

#endif
