/** @file
 * A moment in UTC that is known within bounds.
 */
#ifndef VANTOR_UTC_TIME_H
#define VANTOR_UTC_TIME_H

#include <chrono>
#include <cstdint>

namespace vantor
{

/** Moments in files and messages are less than this many seconds from 1970, and bounds are shorter: 64 bits
 * count the nanoseconds between any two of them. */
inline constexpr int64_t most_utc_seconds = 4'600'000'000;

/** A moment in UTC, and how far the true one can be away. */
struct utc_time
{
    std::chrono::sys_time<std::chrono::nanoseconds> moment;
    std::chrono::nanoseconds bound{}; /**< the true moment is at most this much earlier or later */
};

} // namespace vantor

#endif
