/** @file
 * A clock that only a test moves.
 */
#ifndef VANTOR_MANUAL_CLOCK_H
#define VANTOR_MANUAL_CLOCK_H

#include <algorithm>
#include <chrono>

#include "vantor/time_source.h"

namespace vantor::test
{

/** A clock that stands still until it is moved; its moments are given as the time since its start. */
class manual_clock
{
public:
    using duration = std::chrono::steady_clock::duration;

    manual_clock() = default;
    manual_clock(const manual_clock &) = delete;
    manual_clock &operator=(const manual_clock &) = delete;
    manual_clock(manual_clock &&) = delete;
    manual_clock &operator=(manual_clock &&) = delete;
    ~manual_clock() = default;

    /** The present moment. */
    [[nodiscard]] duration now() const noexcept
    {
        return now_;
    }

    /** Lets time pass. */
    void advance(duration span) noexcept
    {
        now_ += span;
    }

    /** Lets time pass until a moment; none when that is over. */
    void advance_to(duration moment) noexcept
    {
        now_ = std::max(now_, moment);
    }

    /** The clock for what is tested, which this object outlives. */
    [[nodiscard]] time_source source() const
    {
        return [this] { return std::chrono::steady_clock::time_point(std::chrono::hours(1) + now_); };
    }

private:
    duration now_{};
};

} // namespace vantor::test

#endif
