/** @file
 * What a picture of an item shows: its distance profile, its echoes over time, the phase of one echo, and
 * Doppler.
 */
#ifndef VANTOR_ITEM_ANALYSIS_H
#define VANTOR_ITEM_ANALYSIS_H

#include <cstddef>
#include <optional>
#include <vector>

#include "recording/recording_reader.h"

namespace vantor
{

/** One strip of the map: the mean magnitude of each point during a stretch of time. */
struct map_strip
{
    double seconds = 0.0; /**< of its first frame */
    std::vector<double> levels;
};

/** The figures behind an item's pictures. */
struct item_analysis
{
    std::vector<double> profile; /**< mean magnitude of each point */
    size_t point = 0;            /**< the point that phase and Doppler look at */
    std::vector<map_strip> map;
    std::vector<double> seconds;     /**< of each phase */
    std::vector<double> phase;       /**< at the point, in radians, without jumps */
    std::vector<double> frequencies; /**< of the spectrum, in hertz */
    std::vector<double> powers;      /**< at the point, in dB below the highest */
    bool between_frames = false;     /**< the spectrum is that of the frames, not of the sweeps within them */
};

/**
 * Works an item's figures out.
 *
 * Profile, phase and spectrum are those of the frames whose data are valid; when there are none, the profile
 * is that of all frames. The spectrum is that of the sweeps within a frame when there are enough of them,
 * else that of the frames. It is empty when there are too few of both.
 *
 * @param recording  with at least one frame
 * @param index      which item
 * @param distance   where phase and Doppler look, in metres; the strongest echo when not given
 * @throws bad_recording when a file cannot be read
 */
item_analysis analyse_item(recording_reader &recording, size_t index, std::optional<double> distance);

} // namespace vantor

#endif
