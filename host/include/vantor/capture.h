/** @file
 * A part of a recording without gaps.
 */
#ifndef VANTOR_CAPTURE_H
#define VANTOR_CAPTURE_H

#include <cstdint>
#include <optional>
#include <string>

#include "vantor/segment.h"

namespace vantor
{

/** A segment of frames without gaps. */
struct capture
{
    uint64_t first_frame = 0;    /**< its index in the recording */
    uint64_t frames_missing = 0; /**< before it, since the start of the recording */
    std::string datetime;        /**< arrival of its first frame in UTC, as in RFC 3339; empty if unknown */
    std::optional<segment> begins = std::nullopt; /**< the break before it, if there was one */
};

} // namespace vantor

#endif
