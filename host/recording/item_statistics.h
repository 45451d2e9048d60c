/** @file
 * What the samples of an item amount to over many frames: mean level and where the strongest echo is.
 */
#ifndef VANTOR_ITEM_STATISTICS_H
#define VANTOR_ITEM_STATISTICS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "vantor/session.h"

namespace vantor
{

/** Running figures of one item; memory does not grow with the number of frames. */
class item_statistics
{
public:
    /** @param sweep_length  samples of a sweep */
    explicit item_statistics(size_t sweep_length);

    /** Adds the samples of a frame, sweep after sweep. */
    void add(std::span<const sample> samples);

    /** Mean magnitude of all samples, in units of the sensor; 0 without samples. */
    [[nodiscard]] double mean_level() const;

    /** Mean magnitude of each point of the sweep. */
    [[nodiscard]] std::vector<double> profile() const;

    /** The point with the largest mean magnitude; nothing without samples. */
    [[nodiscard]] std::optional<size_t> strongest_point() const;

private:
    std::vector<double> sums_; /**< of the magnitudes, for each point */
    uint64_t sweeps_ = 0;
};

} // namespace vantor

#endif
