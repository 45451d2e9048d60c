/** @file
 * A source of time.
 */
#ifndef VANTOR_TIME_SOURCE_H
#define VANTOR_TIME_SOURCE_H

#include <chrono>
#include <functional>

namespace vantor
{

/**
 * Returns the current time; std::chrono::steady_clock::now unless a test passes another clock. It is
 * monotonic: no call returns an earlier time than a previous call.
 */
using time_source = std::function<std::chrono::steady_clock::time_point()>;

} // namespace vantor

#endif
