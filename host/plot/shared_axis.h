/** @file
 * An axis of time in UTC that the pictures of several boards share.
 */
#ifndef VANTOR_SHARED_AXIS_H
#define VANTOR_SHARED_AXIS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "recording/frame_figures.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** A part of an axis of time, in seconds. */
struct time_window
{
    double begin = 0.0;
    double end = 0.0;
    std::string start = {}; /**< time of day in UTC at its begin */
};

/** An axis of time that begins with the first frame of all boards. */
struct shared_axis
{
    std::chrono::sys_time<std::chrono::nanoseconds> start; /**< where it shows 0 */
    double length = 0.0;                                   /**< in seconds */
};

/**
 * The times of the frames of an item in UTC.
 *
 * @param on_row  called with the number of rows that have been read; an exception ends it
 */
time_figures read_times(const recording_reader &recording, size_t item,
                        const std::function<void(uint64_t)> &on_row);

/** The axis of recordings, by their first items; nothing if no times are known. */
std::optional<shared_axis> find_shared_axis(const std::vector<time_figures> &times);

/** The whole axis in the time of an item whose times are known, which counts from its first frame. */
time_window window_of(const shared_axis &axis, const time_figures &times);

} // namespace vantor

#endif
