/** @file
 * The tasks of an event loop: functions that wait in turn, each on its own stack.
 */
#ifndef VANTOR_TASKS_H
#define VANTOR_TASKS_H

#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "client/fiber.h"
#include "vantor/event_loop.h"

namespace vantor
{

/**
 * A task. While it does not run, it waits for a deadline, and for a condition or a completion; or it is in
 * the queue of those that run next.
 */
struct task
{
    task(task_scheduler &owner, size_t number, std::function<void()> what);

    task_scheduler &scheduler;
    size_t index; /**< in the order of spawn() */
    std::function<void()> work;
    std::exception_ptr failure; /**< that ended the task */
    event_loop::cancel_state cancelling;
    const std::function<bool()> *condition = nullptr; /**< that others can change; null if it does not wait */
    bool is_queued = false;
    bool is_waiting = false;
    bool is_late = false; /**< its deadline has passed */
    fiber own;            /**< last, because its stack uses the other members */
};

/** Sorts tasks in the order of spawn(). */
struct earlier_task
{
    bool operator()(const task *one, const task *other) const noexcept
    {
        return one->index < other->index;
    }
};

/**
 * Runs the tasks of an event loop. The loop waits on the stack of run(), never on that of a task: when a task
 * has to wait, the next one that need not runs instead.
 *
 * A wait for a completion costs nothing until it is set. All other conditions are checked after each piece of
 * work, and whether waiting was cancelled after each piece of posted work.
 */
class task_scheduler
{
public:
    explicit task_scheduler(event_loop &loop) noexcept : loop_(loop)
    {
    }

    /** Adds a task; run() starts it. */
    void spawn(std::function<void()> work);

    /** Whether the caller is a task. */
    [[nodiscard]] bool is_inside() const noexcept
    {
        return current_ != nullptr;
    }

    /** Waits in a task like event_loop::run_until(). */
    bool wait(const std::function<bool()> &done, event_loop::time_point deadline);

    /** Like the function above, for a condition that is only set by a completion. */
    bool wait(event_loop::completion &awaited, event_loop::time_point deadline);

    /** Runs the tasks until all have ended. See event_loop::run_tasks() */
    std::vector<std::exception_ptr> run();

    /** Cancels every task; false if none runs. */
    bool cancel() noexcept;

    /** Has it checked which tasks were cancelled: posted work has run. */
    void note_posted_work() noexcept
    {
        check_cancelled_ = true;
    }

    /** Has run() forget that the tasks were cancelled: one of them has noticed. */
    void note_cancelled() noexcept
    {
        cancel_unseen_ = false;
    }

    /** Runs a task soon, because what it waits for has happened. */
    void resume_soon(task &ready);

private:
    // NOLINTNEXTLINE(bugprone-exception-escape): that is how it ends the program
    void run_all() noexcept;
    void run_ready();
    static void resume(task &next);
    void wait_for_ready();
    bool find_ready();
    void find_cancelled();
    void find_late();
    bool suspend(const std::function<bool()> &done, event_loop::time_point deadline);

    event_loop &loop_;
    std::vector<std::unique_ptr<task>> tasks_;
    size_t running_ = 0;      /**< tasks that have not ended */
    bool is_running_ = false; /**< run() has not returned */
    task *current_ = nullptr;
    std::vector<task *> ready_;
    std::set<task *, earlier_task> conditional_; /**< those that wait for a condition others can change */
    std::set<std::pair<event_loop::time_point, task *>> deadlines_;
    bool check_cancelled_ = false;
    bool cancel_unseen_ = false; /**< no task has noticed the last cancel() */
};

} // namespace vantor

#endif
