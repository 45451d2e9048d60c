/** @file
 * Where the time comes from.
 */
#ifndef VANTOR_TIME_SOURCE_H
#define VANTOR_TIME_SOURCE_H

#include <chrono>
#include <functional>

namespace vantor
{

/**
 * Returns the present moment; std::chrono::steady_clock::now unless a test passes another clock. It is
 * monotonic: no call returns an earlier moment than a call before.
 */
using time_source = std::function<std::chrono::steady_clock::time_point()>;

} // namespace vantor

#endif
