/** @file
 * Compares detections with the truth of a recording.
 */
#ifndef VANTOR_SCORE_H
#define VANTOR_SCORE_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "score/detections.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** How detections are compared with the truth. */
struct score_settings
{
    /** Greatest difference in metres between a detection and its target; the width of the response
     * (pulse_width of the sub-sweep with the target) if there is no value. */
    std::optional<double> gate_m = std::nullopt;
    /** Weaker targets need not be found; no value for no limit. */
    std::optional<double> least_snr_db = std::nullopt;
    /** Targets that are slower are as if they were not there, in metres per second; 0 for no limit. */
    double least_speed_m_s = 0.0;
};

/** The name of a thing that can be found: a target that stands alone, or a body. */
struct thing_name
{
    bool is_body = false;
    size_t number = 0; /**< of the body, or the index of the target in the scene */

    /** Targets are before bodies, as in the scene. */
    friend auto operator<=>(const thing_name &, const thing_name &) = default;
};

/** Errors of a quantity. */
struct error_figures
{
    uint64_t count = 0;
    double sum = 0.0;
    double squares = 0.0;

    /** Adds an error. */
    void add(double value);

    /** Adds the errors of another one. */
    void add(const error_figures &other);

    /** The mean; no value without errors. */
    [[nodiscard]] std::optional<double> mean() const;

    /** The root of the mean square; no value without errors. */
    [[nodiscard]] std::optional<double> rms() const;
};

/** How well things were found. */
struct detection_figures
{
    uint64_t due = 0;      /**< things that were to be found, each counted in every frame */
    uint64_t detected = 0; /**< those that were found */
    error_figures distance;
    error_figures velocity; /**< of the detections that have one */

    /** Adds the figures of others. */
    void add(const detection_figures &other);

    /** The share that was found; no value if none was due. */
    [[nodiscard]] std::optional<double> probability() const;
};

/** The score of one item. */
struct item_score
{
    uint64_t frames = 0;       /**< that were compared */
    uint64_t left_out = 0;     /**< frames whose truth is unknown, or whose samples are not valid */
    uint64_t points = 0;       /**< distances measured in all frames that were compared */
    uint64_t detections = 0;   /**< in all frames that were compared */
    uint64_t ignored = 0;      /**< further ones of a body, and those of things that need not be found */
    uint64_t false_alarms = 0; /**< all others that are not that of a thing */
    std::map<thing_name, detection_figures> things;

    /** The figures of all things. */
    [[nodiscard]] detection_figures all() const;
};

/**
 * Compares detections with the truth. The targets of a body are one thing, which is due if one of them is,
 * and whose distance is that of its target that is nearest to the detection. A target is due while it has an
 * echo and lies within the distances that the item measures. In each frame of an item, the pair of a
 * detection and a thing with the least difference in distance is matched first, then the next one, up to the
 * gate. A detection that is left and within the gate of a body, or of a thing that is not due, is ignored;
 * all others are false alarms.
 *
 * @param recording   a recording with truth
 * @param detections  in the order of frames and items
 * @param stop        called for each frame, may be empty; an exception ends the comparison
 * @return the score of each item
 * @throws bad_recording if the recording has no truth, or a file cannot be read
 * @throws detections_error if a gate is required because the width of an item's response is unknown, or if a
 * frame has too many detections
 */
std::vector<item_score> score_detections(const recording_reader &recording,
                                         const std::deque<detection> &detections,
                                         const score_settings &settings,
                                         const std::function<void()> &stop = {});

/** The default gate at a distance: the width of the response of a still target in the sub-sweep there, the
 * greatest one if there is none; no value if unknown. */
std::optional<double> response_width(const recorded_item &item, double distance_m);

} // namespace vantor

#endif
