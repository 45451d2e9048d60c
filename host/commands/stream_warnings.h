/** @file
 * What a person should know before using the frames of a stream.
 */
#ifndef VANTOR_STREAM_WARNINGS_H
#define VANTOR_STREAM_WARNINGS_H

#include <cstdint>
#include <string>
#include <vector>

#include "vantor/frame_tally.h"

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
    double refused_rate =
        0.0; /**< frames per second that were requested, if the nominal rate differs; or 0 */
    double measured_rate =
        0.0;              /**< frames per second that arrived, if the server has no clock; otherwise 0 */
    double silence = 0.0; /**< seconds from the last frame to the end */
    std::vector<segment> breaks;
    std::vector<item_flags> items;
};

/** One line for each thing that a person should know; none if all is well. */
std::vector<std::string> describe_warnings(const stream_facts &facts);

/**
 * The same in a few words for a progress line, such as ", 4 missing, 3 saturated".
 *
 * @param nominal_rate  frames per second that are due; 0 if unknown
 */
std::string short_warnings(const frame_tally &tally, double nominal_rate);

} // namespace vantor

#endif
