/** @file
 * A clock that only advances when a test moves it.
 */
#ifndef VANTOR_MANUAL_CLOCK_H
#define VANTOR_MANUAL_CLOCK_H

#include <algorithm>
#include <chrono>
#include <functional>

#include "vantor/event_loop.h"

namespace vantor::test
{

/** A clock that stops until it is moved; its time points are durations since its start. */
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

    /** The current time. */
    [[nodiscard]] duration now() const noexcept
    {
        return now_;
    }

    /** Moves the clock by a duration. */
    void advance(duration span) noexcept
    {
        now_ += span;
    }

    /** Moves the clock to a time point, unless that has passed. */
    void advance_to(duration moment) noexcept
    {
        now_ = std::max(now_, moment);
    }

    /** The clock for the tested object, which must not outlive this one. */
    [[nodiscard]] time_source source() const
    {
        return [this] { return std::chrono::steady_clock::time_point(std::chrono::hours(1) + now_); };
    }

private:
    duration now_{};
};

/** An event loop on which waiting takes no real time: it moves the clock to the deadline. Without one, it
 * waits for other threads. */
class manual_loop : public event_loop
{
public:
    /** @param clock  must outlive the loop */
    explicit manual_loop(manual_clock &clock) : event_loop(clock.source()), clock_(clock)
    {
    }

protected:
    bool wait(const std::function<bool()> &done, time_point deadline) override
    {
        const bool is_endless = deadline == time_point::max();
        if (event_loop::wait(done, is_endless ? deadline : now()))
        {
            return true;
        }
        if (cancel_requested())
        {
            return false;
        }
        clock_.advance(std::max(deadline - now(), manual_clock::duration(0)));
        return done();
    }

private:
    manual_clock &clock_;
};

} // namespace vantor::test

#endif
