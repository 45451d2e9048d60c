/** @file
 * Divides the points of a sweep into the rows of a picture.
 */
#ifndef VANTOR_DISTANCE_BINS_H
#define VANTOR_DISTANCE_BINS_H

#include <cstddef>
#include <vector>

#include "vantor/recorded_item.h"

namespace vantor
{

/** Bins of neighbouring points, of equal size within a sub-sweep: no more than a picture can show. */
class distance_bins
{
public:
    explicit distance_bins(const recorded_item &item);

    /** Number of bins. */
    [[nodiscard]] size_t size() const noexcept
    {
        return size_;
    }

    /** The bin that contains a point. */
    [[nodiscard]] size_t bin_of(size_t point) const
    {
        return bins_.at(point);
    }

    /** The first bin of a sub-sweep. */
    [[nodiscard]] size_t first(size_t subsweep) const
    {
        return parts_.at(subsweep).first;
    }

    /** The number of bins in a sub-sweep. */
    [[nodiscard]] size_t count(size_t subsweep) const
    {
        return parts_.at(subsweep).count;
    }

    /** The distance where a bin of a sub-sweep begins, in metres; the first one half a step before its first
     * point. The number of bins is the end of the last one. */
    [[nodiscard]] double begin(size_t subsweep, size_t bin) const;

    /** The mean of the values of the points in each bin. */
    [[nodiscard]] std::vector<float> means(const std::vector<double> &values) const;

private:
    /** The bins of a sub-sweep. */
    struct part
    {
        size_t first = 0;
        size_t count = 0;
        double begin = 0.0; /**< distance in metres */
        double size = 0.0;  /**< of a bin, in metres */
    };

    std::vector<part> parts_;
    std::vector<size_t> bins_;
    size_t size_ = 0;
};

} // namespace vantor

#endif
