/** @file
 * The event loop of a host program.
 */
#ifndef VANTOR_EVENT_LOOP_H
#define VANTOR_EVENT_LOOP_H

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

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
 *
 * Work must not throw: an operation of a link that waits meanwhile could not be stopped. An exception ends
 * the program with std::terminate().
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

    /**
     * A time of the loop's clock in UTC. The clock of the computer was read when the loop was created: if it
     * is set afterwards, times neither jump nor come twice.
     */
    [[nodiscard]] std::chrono::sys_time<std::chrono::nanoseconds> utc(time_point time) const noexcept
    {
        return utc_of_zero_ + std::chrono::nanoseconds(time.time_since_epoch());
    }

    /** The clock of the loop. */
    [[nodiscard]] const time_source &clock() const noexcept
    {
        return now_;
    }

    /** Has a function called by run_until(). Can be called from any thread. */
    void post(std::function<void()> work);

    /** Has a function called by run_until(), once, when a file descriptor becomes readable. */
    void when_readable(int descriptor, std::function<void()> work);

    /** Cancels what waits on the loop, or else what waits next. Can be called from any thread. */
    void cancel();

    /**
     * Runs work until a condition holds, a deadline has passed, or waiting is cancelled.
     *
     * @param done      checked at the start and after every piece of work
     * @param deadline  by the clock of the loop
     * @return whether the condition holds
     */
    virtual bool run_until(const std::function<bool()> &done, time_point deadline);

    /** Runs work until a condition holds, even if waiting is cancelled. */
    void run_to_end(const std::function<bool()> &done);

    /** Throws cancelled, once, if waiting was cancelled. */
    void check_cancelled();

    /** While it exists, a flag cancels waiting on the loop like cancel(). The loop and its work set it. */
    class cancel_scope
    {
    public:
        /**
         * @param loop       the loop, on which the caller waits
         * @param requested  the flag; check_cancelled() resets it
         */
        cancel_scope(event_loop &loop, bool &requested) noexcept
            : loop_(loop), outer_(std::exchange(loop.requested_, &requested))
        {
        }
        cancel_scope(const cancel_scope &) = delete;
        cancel_scope &operator=(const cancel_scope &) = delete;
        cancel_scope(cancel_scope &&) = delete;
        cancel_scope &operator=(cancel_scope &&) = delete;

        ~cancel_scope()
        {
            loop_.requested_ = outer_;
        }

    private:
        event_loop &loop_;
        bool *outer_;
    };

    /** The Boost.Asio part of the loop, for links. */
    [[nodiscard]] boost::asio::io_context &context() noexcept
    {
        return *context_;
    }

protected:
    /** Whether run_until() has to return because waiting was cancelled. */
    [[nodiscard]] bool cancel_requested() const noexcept;

private:
    time_source now_;
    std::chrono::sys_time<std::chrono::nanoseconds> utc_of_zero_; /**< when the clock showed 0 */
    bool cancelled_ = false;                                      /**< by cancel() */
    bool *requested_ = nullptr;                                   /**< of the innermost cancel_scope */
    bool uncancellable_ = false;
    std::unique_ptr<boost::asio::io_context> context_;
};

} // namespace vantor

#endif
