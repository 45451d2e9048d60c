/** @file
 * Builds the map of the level over velocity and distance.
 */
#ifndef VANTOR_VELOCITY_MAP_BUILDER_H
#define VANTOR_VELOCITY_MAP_BUILDER_H

#include <complex>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "plot/distance_bins.h"
#include "plot/item_analysis.h"
#include "plot/spectrum.h"

namespace vantor
{

/** The velocities of a spectrum of this length, in m/s. */
std::vector<double> spectrum_velocities(size_t length, double rate);

/** Whether the frames of an item have enough sweeps for a velocity map. */
bool has_velocity_map(const item_layout &layout);

/** Builds the velocity map of an item from the sweeps within its frames; keeps only what a picture shows. */
class velocity_map_builder
{
public:
    explicit velocity_map_builder(const recorded_item &item);

    /** Adds the samples of a frame, sweep after sweep. */
    void add(const std::vector<sample> &samples);

    /**
     * The map; empty if a frame has too few sweeps, or there is no frame.
     *
     * @param rate   sweeps per second
     * @param noise  its RMS amplitude in the sub-sweep with the least noise; NaN if unknown
     */
    [[nodiscard]] velocity_map finish(double rate, double noise) const;

private:
    void add_segment(const std::vector<sample> &samples, size_t first_sweep, size_t point);

    const item_layout &layout_;
    distance_bins bins_;
    size_t length_; /**< of a segment; 0 if there are too few sweeps */
    spectrum spectrum_;
    std::vector<std::vector<double>> sums_; /**< of the powers in each bin */
    std::vector<uint64_t> counts_;          /**< of the segments in each bin */
    std::vector<std::complex<double>> segment_;
};

} // namespace vantor

#endif
