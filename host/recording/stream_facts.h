/** @file
 * What a person should know before using the frames of a stream or a recording.
 */
#ifndef VANTOR_STREAM_FACTS_H
#define VANTOR_STREAM_FACTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "recording/frame_figures.h"
#include "vantor/capture.h"
#include "vantor/flag_counts.h"
#include "vantor/segment.h"
#include "vantor/session_description.h"

namespace vantor
{

/** The flags of one item. */
struct item_flags
{
    size_t group = 0; /**< from 1 */
    size_t item = 0;  /**< position in its group, from 1 */
    flag_counts counts;
};

/** What is known about a stream or a recording. */
struct stream_facts
{
    uint64_t frames = 0;
    uint64_t missing = 0;
    uint64_t damaged = 0;      /**< messages */
    double nominal_rate = 0.0; /**< frames per second that were due; 0 if unknown */
    /** Frames per second that were requested, if the nominal rate differs; otherwise 0. */
    double refused_rate = 0.0;
    /** Frames per second that arrived, if the server has no clock; otherwise 0. */
    double measured_rate = 0.0;
    bool has_clock = true; /**< the server has a clock */
    bool lost = false;     /**< the link was lost at the end */
    double silence = 0.0;  /**< seconds from the last frame to the end */
    /** Frames that were due between the last frame and the end, as far as the server reports them. */
    uint64_t due_at_end = 0;
    uint64_t truth_missing = 0;   /**< items of frames whose truth was to be found, but is missing */
    std::string truth_fault = {}; /**< why that of a whole session is missing; empty if it is not */
    bool end_known = true;        /**< the server has reported what was due at the end */
    std::vector<segment> breaks;
    uint64_t unlisted_breaks = 0; /**< number of breaks that are not among these */
    std::vector<item_flags> items;
};

/** The share of the nominal frame rate from which on it counts as reached. */
inline constexpr double least_share_of_rate = 0.99;

/** The number of invalid frames, without the first one of each session, which is never valid. */
uint64_t notable_invalid(const flag_counts &counts, const std::vector<segment> &breaks);

/** The facts of a recording without those of its items. */
stream_facts recording_facts(const session_description &session, uint64_t frames, uint64_t missing,
                             const std::vector<capture> &captures);

/** The flags of an item of a recording. */
item_flags flags_of(const item_layout &layout, const frame_figures &figures);

/** One line for each thing that a person should know; none if all is well. */
std::vector<std::string> describe_warnings(const stream_facts &facts);

/** Those about frames that are missing, and about breaks. */
std::vector<std::string> describe_gaps(const stream_facts &facts);

/** Those about the frames of one item. */
std::vector<std::string> describe_flags(const stream_facts &facts, const item_flags &item);

} // namespace vantor

#endif
