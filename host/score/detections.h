/** @file
 * Reads the detections of a detector from a CSV file.
 */
#ifndef VANTOR_DETECTIONS_H
#define VANTOR_DETECTIONS_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>

#include "vantor/errors.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** A file of detections cannot be used. */
class detections_error : public error
{
public:
    using error::error;
};

/** What a detector has found in one frame of one item. Small, because there may be millions. */
struct detection
{
    uint64_t frame : 40 = 0; /**< number of the frame in the recording */
    uint64_t item : 24 = 0;  /**< index of the item in the recording */
    double distance_m = 0.0;
    double velocity_m_s = std::numeric_limits<double>::quiet_NaN(); /**< NaN if not given */

    /** Its velocity in metres per second, positive if it moves away; no value if not given. */
    [[nodiscard]] std::optional<double> velocity() const
    {
        return std::isnan(velocity_m_s) ? std::nullopt : std::optional(velocity_m_s);
    }
};

/** Most detections that are read: 500 MB of memory. */
inline constexpr uint64_t most_detections = 20'000'000;

/** Most detections in one frame of one item: far more than it has distances. */
inline constexpr size_t most_detections_in_frame = 100'000;

/**
 * Reads a file of detections: a line with the names of the columns, then a line for each detection, in any
 * order. The columns frame, group, item and distance_m are required, velocity_m_s is optional, and others are
 * ignored, as are blanks around names and numbers.
 *
 * @param path       the file; not a pipe
 * @param recording  the recording in which the detections were made
 * @param stop       called for each line, may be empty; an exception ends the reading
 * @param most       the most detections that the file may have
 * @return the detections, in the order of frames and items
 * @throws detections_error with the number of the line if the file cannot be used, or has too many detections
 */
std::deque<detection> read_detections(const std::filesystem::path &path, const recording_reader &recording,
                                      const std::function<void()> &stop = {},
                                      uint64_t most = most_detections);

} // namespace vantor

#endif
