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

    /** The mean magnitude of samples that contain noise and offset; NaN if the noise is unknown. */
    [[nodiscard]] double level() const;
};

/** Running statistics of one item; memory does not grow with the number of frames. */
class item_statistics
{
public:
    /** @param sweep_length  number of samples in a sweep */
    explicit item_statistics(size_t sweep_length) noexcept;

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

    /** Mean sample of each point of the sweep. */
    [[nodiscard]] std::vector<std::complex<double>> means() const;

    /**
     * Noise and offset in a sub-sweep. The noise follows from the differences between consecutive sweeps:
     * within frames, or between frames of one sweep. Echoes that do not move cancel; most points must be free
     * of echoes that move. The offset follows from the mean samples; a quarter of the points must be free of
     * echoes.
     */
    [[nodiscard]] background background_of(const subsweep_layout &place) const;

private:
    void add_sweep(std::span<const sample> sweep);
    void compare(std::span<const sample> earlier, std::span<const sample> later);
    [[nodiscard]] double noise_in(const subsweep_layout &place) const;

    size_t sweep_length_;
    std::vector<double> sums_;                /**< of the magnitudes at each point; empty without samples */
    std::vector<std::complex<double>> means_; /**< sums of the samples at each point */
    std::vector<double> differences_;         /**< sums of the squared differences at each point */
    std::vector<sample> previous_;            /**< the previous frame, if it has one sweep */
    uint64_t sweeps_ = 0;
    uint64_t compared_ = 0; /**< number of differences at each point */
};

} // namespace vantor

#endif
