/** @file
 * The event loop of a host program.
 */
#ifndef VANTOR_EVENT_LOOP_H
#define VANTOR_EVENT_LOOP_H

#include <chrono>
#include <functional>
#include <memory>

#include "vantor/time_source.h"

namespace boost::asio
{
class io_context;
} // namespace boost::asio

namespace vantor
{

/**
 * Runs the work of a host program: of its links, and what other threads post. The work runs only inside
 * run_until(), on the thread that calls it. Use one loop for all links of a program.
 */
class event_loop
{
public:
    using time_point = std::chrono::steady_clock::time_point;

    /** @param now  the clock of everything that uses the loop */
    explicit event_loop(time_source now = std::chrono::steady_clock::now);
    event_loop(const event_loop &) = delete;
    event_loop &operator=(const event_loop &) = delete;
    event_loop(event_loop &&) = delete;
    event_loop &operator=(event_loop &&) = delete;
    virtual ~event_loop();

    /** The current time. */
    [[nodiscard]] time_point now() const
    {
        return now_();
    }

    /** The clock of the loop. */
    [[nodiscard]] const time_source &clock() const noexcept
    {
        return now_;
    }

    /** Has a function called by run_until(). Can be called from any thread. */
    void post(std::function<void()> work);

    /**
     * Runs work until a condition holds, or a deadline has passed.
     *
     * @param done      checked at the start and after every piece of work
     * @param deadline  by the clock of the loop
     * @return whether the condition holds
     */
    virtual bool run_until(const std::function<bool()> &done, time_point deadline);

    /** The Boost.Asio part of the loop, for links. */
    [[nodiscard]] boost::asio::io_context &context() noexcept
    {
        return *context_;
    }

private:
    time_source now_;
    std::unique_ptr<boost::asio::io_context> context_;
};

} // namespace vantor

#endif
