/** @file
 * A part of a stream of frames without a break.
 */
#ifndef VANTOR_SEGMENT_H
#define VANTOR_SEGMENT_H

#include <cstdint>
#include <string>
#include <vector>

namespace vantor
{

/** The reason of a segment that began when the host connected to the server again. */
inline constexpr const char *connected_again = "connected again";

/** A part of a stream of frames: a session of the server, measured without a break. */
struct segment
{
    uint64_t number = 0; /**< 0 for the first one */
    std::string reason;  /**< why it began; empty for the first one */
    double gap = 0.0;    /**< seconds between the last frame before it and its first frame */
    std::vector<int> calibration_temperatures; /**< of its session, for each item; empty for the first one */
};

} // namespace vantor

#endif
