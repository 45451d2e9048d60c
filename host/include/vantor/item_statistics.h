/** @file
 * Statistics of an item's samples over many frames: mean level and position of the strongest echo.
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

/** Running statistics of one item; memory does not grow with the number of frames. */
class item_statistics
{
public:
    /** @param sweep_length  number of samples in a sweep */
    explicit item_statistics(size_t sweep_length) noexcept;

    /** Adds the samples of a frame, sweep after sweep. */
    void add(std::span<const sample> samples);

    /** Mean magnitude of all samples, in LSB; nothing if there are none. */
    [[nodiscard]] std::optional<double> mean_level() const;

    /** Mean magnitude of each point of the sweep. */
    [[nodiscard]] std::vector<double> profile() const;

private:
    size_t sweep_length_;
    std::vector<double> sums_; /**< sum of the magnitudes for each point; empty without samples */
    uint64_t sweeps_ = 0;
};

} // namespace vantor

#endif
