/** @file
 * Computes what the pictures of an item show.
 */
#ifndef VANTOR_ITEM_ANALYSIS_H
#define VANTOR_ITEM_ANALYSIS_H

#include <complex>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "plot/motion_tracker.h"
#include "plot/timeline.h"
#include "plot/truth_tracks.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** One strip of the level map: an interval of time. */
struct map_strip
{
    std::vector<float> levels; /**< mean magnitude in each of the distance_bins; empty without valid frames */
    bool saturated = false;    /**< a frame is saturated */
};

/** The level over time and distance, in strips of equal width. */
struct level_map
{
    double width = 0.0; /**< of a strip, in units of the axis of time; the first strip begins at 0 */
    std::vector<map_strip> strips;
};

/** The phase at the point, at some time on the axis of time. */
struct track_point
{
    double time = 0.0;
    double phase = 0.0; /**< in radians, unwrapped, since the last gap; NaN in a gap */
    bool saturated = false;
};

/**
 * The velocity spectrum at the point, without echoes that do not move: the mean sample of the recording, or
 * of a segment of frames, is subtracted. Empty if there are too few samples. A segment of frames has no gap.
 */
struct velocity_spectrum
{
    bool between_frames = false;    /**< computed from frames, not from the sweeps within them */
    double rate = 0.0;              /**< frames or sweeps per second; 0 if unknown */
    size_t segments = 0;            /**< number of segments of frames or sweeps */
    size_t segment_length = 0;      /**< number of frames or sweeps in a segment */
    std::vector<double> velocities; /**< in m/s, ascending */
    std::vector<double> levels;     /**< in dBFS */
    double floor = 0.0;             /**< mean level of the noise, in dBFS; NaN if unknown */
};

/** Level over velocity and distance, from the sweeps within a frame; empty if a frame has too few. */
struct velocity_map
{
    std::vector<double> velocities;         /**< in m/s, ascending */
    std::vector<std::vector<float>> levels; /**< for each velocity: in each of the distance_bins, in dBFS */
    double floor = 0.0;                     /**< lowest mean level of the noise, in dBFS; NaN if unknown */
};

/** The figures for the pictures of an item. */
struct item_analysis
{
    frame_figures figures; /**< totals of the frame table */
    uint64_t gaps = 0;     /**< number of gaps between frames */
    time_axis time;
    std::vector<double> profile;            /**< mean magnitude of each point */
    std::vector<background> around;         /**< noise and offset in each sub-sweep */
    std::vector<std::complex<double>> mean; /**< mean sample of each point */
    size_t point = 0;                       /**< the point for phase and velocity */
    double distance = 0.0;                  /**< of the echo there, in metres */
    bool found = false;                     /**< the point is the strongest echo */
    bool clipped = false;                   /**< samples at the point have reached the end of their range */
    bool given = false;                     /**< the distance of the point was given */
    bool noise_known = true;                /**< of the sub-sweep with the point */
    bool above_noise = false;          /**< the level at the point is that of an echo, or was in a frame */
    bool mostly_noise = false;         /**< but not in most of the frames */
    double share = 0.0;                /**< of the frames in which there is certainly an echo at the point */
    bool rests = false;                /**< the echo at the point does not move: its mean sample is strong */
    std::optional<echo_motion> motion; /**< of the strongest echo that moves */
    level_map map;
    std::vector<track_point> track;
    velocity_spectrum spectrum;
    velocity_map velocities;
    std::vector<truth_track> truth;        /**< where targets really were; empty if unknown */
    bool aliased = false;                  /**< the echo at the point moves too fast for the frame rate */
    std::optional<aliased_velocity> alias; /**< of the strongest moving echo */
};

/**
 * Computes the figures of an item.
 *
 * Only valid frames are used; if there are none, level and map show all frames. The velocity spectrum is
 * computed from the sweeps within a frame if there are enough of them, otherwise from consecutive frames.
 *
 * @param recording  a recording with at least one frame
 * @param index      index of the item
 * @param distance   distance for phase and velocity, in metres; the strongest echo if not given, or if the
 *                   item does not measure there
 * @param stop       called for each line of truth, if set; true ends the analysis
 * @throws bad_recording if a file cannot be read
 * @throws drawing_stopped if asked to stop
 */
item_analysis analyse_item(recording_reader &recording, size_t index, std::optional<double> distance,
                           const std::function<bool()> &stop = {});

} // namespace vantor

#endif
