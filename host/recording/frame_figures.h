/** @file
 * What the frame table of an item shows in total.
 */
#ifndef VANTOR_FRAME_FIGURES_H
#define VANTOR_FRAME_FIGURES_H

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>

#include "vantor/frame_table.h"

namespace vantor
{

/** Totals of the clear-channel assessment; frames without it do not count. */
struct channel_figures
{
    uint64_t valid = 0;    /**< frames with valid data */
    uint64_t invalid = 0;  /**< frames without */
    uint64_t detected = 0; /**< frames in which another transmitter was detected */
    uint64_t values = 0;   /**< frames with a value */
    double lowest = std::numeric_limits<double>::infinity();
    double highest = -std::numeric_limits<double>::infinity();
    double sum = 0.0; /**< of the values */

    /** Adds a frame. */
    void add(const frame_row &row);
};

/** A moment by two clocks. */
struct dated_moment
{
    double seconds = 0.0; /**< since the item's first frame, by the clock of the server */
    utc_time utc;
};

/** What is known of the times of frames in UTC. */
struct time_figures
{
    uint64_t unknown = 0;              /**< frames whose time is not known */
    std::optional<dated_moment> first; /**< of the frames whose time is known, like the next two */
    std::optional<dated_moment> last;
    std::chrono::nanoseconds largest_bound{};

    /** Adds a frame. */
    void add(const frame_row &row);
};

/** Totals of the rows of a frame table. */
struct frame_figures
{
    double seconds = 0.0; /**< from the first to the last frame */
    uint64_t saturated = 0;
    uint64_t delayed = 0;
    uint64_t calibration_needed = 0;
    int lowest_temperature = std::numeric_limits<int>::max();
    int highest_temperature = std::numeric_limits<int>::min();
    channel_figures channel;
    time_figures times;

    /** Adds a frame. */
    void add(const frame_row &row);
};

} // namespace vantor

#endif
