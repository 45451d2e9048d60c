/** @file
 * The event loop of a host program.
 */
#ifndef VANTOR_EVENT_LOOP_H
#define VANTOR_EVENT_LOOP_H

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "vantor/time_source.h"

namespace boost::asio
{
class io_context;
} // namespace boost::asio

namespace vantor
{

class task_scheduler;
struct task;

/**
 * Runs the work of a host program: of its links, and what other threads post. The work runs only inside
 * run_until() and run_tasks(), on the thread that calls it. Use one loop for all links of a program.
 *
 * Work must not throw: an operation of a link that waits meanwhile could not be stopped. An exception ends
 * the program with std::terminate().
 *
 * Several functions that wait can take turns as tasks: spawn() adds them, and run_tasks() runs them. Each has
 * a stack of its own of 256 KiB; only one runs at a time, and another one only while it waits. Work never
 * runs on the stack of a task. Work that waits itself stops all tasks until it returns: it must not wait for
 * what a task does, and cancel() does not end its wait.
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

    /**
     * Cancels what waits on the loop, or else what waits next: every task that has not ended, once, or the
     * caller of run_until() if there is none, or if all tasks end before check_cancelled() of one reports it.
     * Can be called from any thread.
     */
    void cancel();

    /** What a piece of work completes. While a task waits for it, nothing has to be checked. */
    class completion
    {
    public:
        completion() = default;
        completion(const completion &) = delete;
        completion &operator=(const completion &) = delete;
        completion(completion &&) = delete;
        completion &operator=(completion &&) = delete;
        ~completion() = default;

        /** Completes it. Only work of the loop and its tasks can call it. */
        void set();

        /** Whether it is complete. */
        [[nodiscard]] bool is_set() const noexcept
        {
            return is_set_;
        }

    private:
        friend class task_scheduler;

        bool is_set_ = false;
        task *waiting_ = nullptr;
    };

    /**
     * Runs work until a condition holds, a deadline has passed, or waiting is cancelled.
     *
     * @param done      checked at the start and after every piece of work; must not throw
     * @param deadline  by the clock of the loop
     * @return whether the condition holds
     */
    bool run_until(const std::function<bool()> &done, time_point deadline);

    /** Like the function above, until something is complete. */
    bool run_until(completion &awaited, time_point deadline);

    /**
     * Adds a task, which run_tasks() starts; a task can add others.
     *
     * @param work  may wait on the loop; exceptions end only this task
     */
    void spawn(std::function<void()> work);

    /**
     * Runs the tasks until all have ended. Not to be called by a task, or by work while tasks run.
     *
     * @return for each task, in the order of spawn(), the exception that ended it; null if there was none
     */
    std::vector<std::exception_ptr> run_tasks();

    /** Runs work until a condition holds, even if waiting is cancelled. */
    void run_to_end(const std::function<bool()> &done);

    /** Throws cancelled, once, if waiting was cancelled. */
    void check_cancelled();

    /** Whether waiting is cancelled, for a task or for what is not one. */
    struct cancel_state
    {
        bool cancelled = false;    /**< by cancel() */
        bool *requested = nullptr; /**< of the innermost cancel_scope */
        bool uncancellable = false;

        /** Whether the next wait ends at once. */
        [[nodiscard]] bool is_requested() const noexcept
        {
            return !uncancellable && (cancelled || (requested != nullptr && *requested));
        }
    };

    /** While it exists, a flag cancels waiting of the caller like cancel(). Posted work sets it. */
    class cancel_scope
    {
    public:
        /**
         * @param loop       the loop, on which the caller waits
         * @param requested  the flag; check_cancelled() resets it
         */
        cancel_scope(event_loop &loop, bool &requested) noexcept
            : state_(*loop.cancelling_), outer_(std::exchange(state_.requested, &requested))
        {
        }
        cancel_scope(const cancel_scope &) = delete;
        cancel_scope &operator=(const cancel_scope &) = delete;
        cancel_scope(cancel_scope &&) = delete;
        cancel_scope &operator=(cancel_scope &&) = delete;

        ~cancel_scope()
        {
            state_.requested = outer_;
        }

    private:
        cancel_state &state_;
        bool *outer_;
    };

    /** The Boost.Asio part of the loop, for links. */
    [[nodiscard]] boost::asio::io_context &context() noexcept
    {
        return *context_;
    }

protected:
    /** Waits for run_until() and run_tasks(): runs work until a condition holds, a deadline has passed, or
     * cancel_requested(). Returns whether the condition holds. */
    virtual bool wait(const std::function<bool()> &done, time_point deadline);

    /** Whether wait() has to return because waiting was cancelled. */
    [[nodiscard]] bool cancel_requested() const noexcept
    {
        return cancelling_->is_requested();
    }

private:
    friend class task_scheduler;

    time_source now_;
    std::chrono::sys_time<std::chrono::nanoseconds> utc_of_zero_; /**< when the clock showed 0 */
    cancel_state outside_tasks_;
    cancel_state *cancelling_ = &outside_tasks_; /**< of the task that runs, if one does */
    std::unique_ptr<boost::asio::io_context> context_;
    std::unique_ptr<task_scheduler> tasks_;
};

} // namespace vantor

#endif
