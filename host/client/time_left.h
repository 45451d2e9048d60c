/** @file
 * The time left until a deadline.
 */
#ifndef VANTOR_TIME_LEFT_H
#define VANTOR_TIME_LEFT_H

#include <algorithm>
#include <chrono>

#include "vantor/time_source.h"

namespace vantor
{

/** Returns the time left until a deadline, rounded up to a millisecond; 0 if it has passed. */
inline std::chrono::milliseconds time_left(std::chrono::steady_clock::time_point deadline,
                                           const time_source &now)
{
    using std::chrono::milliseconds;
    return std::max(std::chrono::ceil<milliseconds>(deadline - now()), milliseconds(0));
}

} // namespace vantor

#endif
