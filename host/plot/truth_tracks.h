/** @file
 * Where the targets of a simulated recording really were.
 */
#ifndef VANTOR_TRUTH_TRACKS_H
#define VANTOR_TRUTH_TRACKS_H

#include <cstddef>
#include <functional>
#include <vector>

#include "plot/timeline.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** A true distance at a time on the axis of time. */
struct truth_point
{
    double time = 0.0;
    double distance = 0.0; /**< in metres */
};

/** The true distances of a target, as far as an item measures there. */
struct truth_track
{
    size_t target = 0;               /**< its index in the scene */
    double mean = 0.0;               /**< of all distances, in metres */
    std::vector<truth_point> points; /**< at most as many as a picture shows */
};

/**
 * Reads the true distances of the targets of an item.
 *
 * @param index  of the item
 * @param times  when its frames were measured
 * @param stop   called for each line, if set; true ends the reading
 * @return a track for each target that was within the measured distances; empty without a truth
 * @throws bad_recording if a frame table cannot be read
 * @throws drawing_stopped if asked to stop
 */
std::vector<truth_track> read_truth_tracks(const recording_reader &recording, size_t index,
                                           const timeline &times, const std::function<bool()> &stop);

} // namespace vantor

#endif
