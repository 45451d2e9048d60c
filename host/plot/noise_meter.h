/** @file
 * Measures the noise of the samples.
 */
#ifndef VANTOR_NOISE_METER_H
#define VANTOR_NOISE_METER_H

#include <cstdint>
#include <vector>

#include "vantor/session.h"

namespace vantor
{

/**
 * Measures the noise from the differences between consecutive sweeps: within frames, or between frames of one
 * sweep. Echoes that do not move cancel; most points must be free of echoes that move.
 */
class noise_meter
{
public:
    /** @param sweep_length  number of samples in a sweep */
    explicit noise_meter(size_t sweep_length);

    /** Adds the samples of a frame, sweep after sweep. */
    void add(const std::vector<sample> &samples);

    /** Begins again after a gap between frames. */
    void restart();

    /** The RMS amplitude of the noise in the samples of a sub-sweep; NaN if unknown. */
    [[nodiscard]] double rms(const subsweep_layout &place) const;

private:
    void add_difference(const sample *earlier, const sample *later);

    std::vector<double> sums_;     /**< of the squared differences at each point */
    std::vector<sample> previous_; /**< the previous frame, if it has one sweep */
    uint64_t count_ = 0;           /**< number of differences at each point */
};

/** Mean magnitude of noise with this RMS amplitude. */
double mean_noise_level(double rms);

} // namespace vantor

#endif
