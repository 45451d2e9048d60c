/** @file
 * A moment in UTC that is known within bounds.
 */
#ifndef VANTOR_UTC_TIME_H
#define VANTOR_UTC_TIME_H

#include <chrono>

namespace vantor
{

/** A moment in UTC, and how far the true one can be away. */
struct utc_time
{
    std::chrono::sys_time<std::chrono::nanoseconds> moment;
    std::chrono::nanoseconds bound{}; /**< the true moment is at most this much earlier or later */
};

} // namespace vantor

#endif
