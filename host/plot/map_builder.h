/** @file
 * Builds the map of the level over time and distance.
 */
#ifndef VANTOR_MAP_BUILDER_H
#define VANTOR_MAP_BUILDER_H

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "plot/distance_bins.h"
#include "plot/item_analysis.h"
#include "plot/timeline.h"

namespace vantor
{

/** Builds the level map of an item; keeps only what a picture shows. */
class map_builder
{
public:
    /**
     * @param item  the item
     * @param time  its axis of time
     */
    map_builder(const recorded_item &item, const time_axis &time);

    /**
     * Adds a frame to the strips that it covers.
     *
     * @param row      its place in time
     * @param samples  its samples, sweep after sweep
     * @param usable   whether the samples may be used
     */
    void add(const frame_rows &row, const std::vector<sample> &samples, bool usable);

    /** Completes the map and returns it. */
    level_map finish();

private:
    [[nodiscard]] std::pair<size_t, size_t> strips_of(const frame_rows &row) const;
    void finish_strip();

    const recorded_item &item_;
    distance_bins bins_;
    level_map map_;
    size_t current_ = 0;       /**< the strip that the sums are of */
    std::vector<double> sums_; /**< of the magnitudes at each point */
    uint64_t sweeps_ = 0;      /**< number of sweeps in the sums */
};

} // namespace vantor

#endif
