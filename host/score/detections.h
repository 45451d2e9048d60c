/** @file
 * Reads the detections of a detector from a CSV file.
 */
#ifndef VANTOR_DETECTIONS_H
#define VANTOR_DETECTIONS_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

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

/** What a detector has found in one frame of one item. */
struct detection
{
    uint64_t frame = 0; /**< number of the frame in the recording */
    size_t item = 0;    /**< index of the item in the recording */
    double distance_m = 0.0;
    std::optional<double> velocity_m_s; /**< positive if it moves away; no value if not given */
};

/**
 * Reads a file of detections: a line with the names of the columns, then a line for each detection, in any
 * order. The columns frame, group, item and distance_m are required, velocity_m_s is optional, and others are
 * ignored.
 *
 * @param path       the file
 * @param recording  the recording in which the detections were made
 * @return the detections, in the order of frames and items
 * @throws detections_error with the number of the line if the file cannot be used
 */
std::vector<detection> read_detections(const std::filesystem::path &path, const recording_reader &recording);

} // namespace vantor

#endif
