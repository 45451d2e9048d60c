/** @file
 * Computes what the picture of an item shows: the distance profile, the echoes over time, and the phase and
 * Doppler spectrum of one echo.
 */
#ifndef VANTOR_ITEM_ANALYSIS_H
#define VANTOR_ITEM_ANALYSIS_H

#include <cstddef>
#include <optional>
#include <vector>

#include "recording/recording_reader.h"

namespace vantor
{

/** One strip of the map: the mean magnitude of each point during an interval. */
struct map_strip
{
    double seconds = 0.0; /**< time of its first frame */
    std::vector<double> levels;
};

/** The figures for the pictures of an item. */
struct item_analysis
{
    std::vector<double> profile; /**< mean magnitude of each point */
    size_t point = 0;            /**< the point for phase and Doppler */
    std::vector<map_strip> map;
    std::vector<double> seconds;     /**< time of each phase */
    std::vector<double> phase;       /**< at the point, in radians, unwrapped */
    std::vector<double> frequencies; /**< of the spectrum, in hertz */
    std::vector<double> powers;      /**< at the point, in dB relative to the maximum */
    bool between_frames = false; /**< the spectrum is computed from frames, not from the sweeps within them */
};

/**
 * Computes the figures of an item.
 *
 * Profile, phase and spectrum are computed from the frames with valid data; if there are none, the profile is
 * computed from all frames. The spectrum is computed from the sweeps within a frame if there are enough of
 * them, otherwise from the frames. It is empty if there are too few of both.
 *
 * @param recording  a recording with at least one frame
 * @param index      index of the item
 * @param distance   distance for phase and Doppler, in metres; the strongest echo if not given
 * @throws bad_recording if a file cannot be read
 */
item_analysis analyse_item(recording_reader &recording, size_t index, std::optional<double> distance);

} // namespace vantor

#endif
