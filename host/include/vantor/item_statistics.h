/** @file
 * Statistics of an item's samples over many frames: levels, noise and constant offset.
 */
#ifndef VANTOR_ITEM_STATISTICS_H
#define VANTOR_ITEM_STATISTICS_H

#include <complex>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "vantor/session.h"

namespace vantor
{

/** What the samples of a sub-sweep contain without echoes. */
struct background
{
    double noise = std::numeric_limits<double>::quiet_NaN(); /**< RMS amplitude; NaN if unknown */
    double offset = 0.0;                                     /**< amplitude of the constant offset */
    double steadiness = 1.0; /**< mean amplitude of the noise over time, divided by its RMS amplitude */

    /** The mean magnitude of samples that contain noise and offset; NaN if the noise is unknown. */
    [[nodiscard]] double level() const;
};

/** Running statistics of one item; memory does not grow with the number of frames. */
class item_statistics
{
public:
    /** @param layout  of the item */
    explicit item_statistics(const item_layout &layout);

    /** Adds the samples of a frame, sweep after sweep. */
    void add(std::span<const sample> samples);

    /** Notes a gap: the sweeps before and after it are not compared. */
    void restart();

    /** Number of sweeps. */
    [[nodiscard]] uint64_t sweeps() const noexcept
    {
        return sweeps_;
    }

    /** Mean magnitude of all samples, in LSB; nothing if there are none. */
    [[nodiscard]] std::optional<double> mean_level() const;

    /** Mean magnitude of each point of the sweep. */
    [[nodiscard]] std::vector<double> profile() const;

    /** Whether a sample at a point of the sweep has reached the end of its range. */
    [[nodiscard]] bool clipped(size_t point) const
    {
        return point < clipped_.size() && clipped_[point];
    }

    /** Mean sample of each point of the sweep. */
    [[nodiscard]] std::vector<std::complex<double>> means() const;

    /**
     * Noise and offset in a sub-sweep. The noise follows from the differences between consecutive sweeps,
     * within frames, or between frames of one sweep. Echoes that do not move cancel. Echoes that move are
     * left out: in each interval of a few sweeps, the points whose differences are greater than those of the
     * noise at the other points. Samples that are clipped are left out, too. The offset follows from the mean
     * samples; a quarter of the points must be free of echoes that do not move.
     *
     * @param subsweep  its index
     */
    [[nodiscard]] background background_of(size_t subsweep) const;

private:
    /** What the intervals so far contain without echoes. */
    struct interval_sums
    {
        double power = 0.0;     /**< of the noise: sum over the intervals with a certain estimate */
        double amplitude = 0.0; /**< square root of this power: sum over these intervals */
        uint64_t count = 0;     /**< number of these intervals */
        double lowest = std::numeric_limits<double>::infinity(); /**< noise power in the other intervals */
        std::complex<double> offset;                             /**< sum over all intervals */
    };

    void add_sweep(std::span<const sample> sweep);
    void note_clipped(std::span<const sample> sweep);
    void compare(std::span<const sample> earlier, std::span<const sample> later, bool clipped);
    void finish_interval();
    void add_noise(size_t subsweep, interval_sums &sums) const;
    [[nodiscard]] std::complex<double> interval_offset(const subsweep_layout &place) const;
    [[nodiscard]] background noise_of(size_t subsweep) const;
    [[nodiscard]] double offset_power(size_t subsweep, double noise) const;

    size_t sweep_length_;
    std::vector<subsweep_layout> subsweeps_;
    std::vector<double> sums_;                /**< of the magnitudes at each point; empty without samples */
    std::vector<std::complex<double>> means_; /**< sums of the samples at each point */
    std::vector<bool> clipped_;    /**< whether a sample at each point has reached the end of its range */
    std::vector<sample> previous_; /**< the previous frame, if it has one sweep */
    uint64_t sweeps_ = 0;
    std::vector<interval_sums> intervals_;      /**< of each sub-sweep */
    uint64_t count_ = 0;                        /**< number of complete intervals */
    std::vector<float> differences_;            /**< in the interval: sums of the squares; NaN: clipped */
    unsigned compared_ = 0;                     /**< number of differences in the interval, at each point */
    double variance_ = 0.0;                     /**< of a sum, relative to the square of the noise power */
    bool consecutive_ = false;                  /**< the next difference begins where the last one ended */
    std::vector<std::complex<double>> earlier_; /**< the sums of the samples before the interval */
    uint64_t earlier_sweeps_ = 0;               /**< number of sweeps before the interval */
};

} // namespace vantor

#endif
