/** @file
 * The tasks of an event loop.
 */
#include "client/tasks.h"

#include <new>
#include <stdexcept>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

namespace vantor
{

task::task(task_scheduler &owner, size_t number, std::function<void()> what)
    : scheduler(owner), index(number), work(std::move(what)), own([this] {
          try
          {
              std::exchange(work, nullptr)();
          }
          catch (...)
          {
              failure = std::current_exception();
          }
      })
{
}

void task_scheduler::spawn(std::function<void()> work)
{
    auto &added = *tasks_.emplace_back(std::make_unique<task>(*this, tasks_.size(), std::move(work)));
    ++running_;
    resume_soon(added);
}

bool task_scheduler::wait(const std::function<bool()> &done, event_loop::time_point deadline)
{
    conditional_.insert(current_);
    const bool holds = suspend(done, deadline);
    conditional_.erase(current_);
    return holds;
}

bool task_scheduler::wait(event_loop::completion &awaited, event_loop::time_point deadline)
{
    awaited.waiting_ = current_;
    const bool holds = suspend([&awaited] { return awaited.is_set(); }, deadline);
    awaited.waiting_ = nullptr;
    return holds;
}

/** Leaves the task that runs until its condition holds, it is cancelled, or its deadline has passed. */
bool task_scheduler::suspend(const std::function<bool()> &done, event_loop::time_point deadline)
{
    auto &self = *current_;
    self.condition = &done;
    self.is_late = false;
    const bool is_limited = deadline != event_loop::time_point::max();
    if (is_limited)
    {
        deadlines_.emplace(deadline, &self);
    }
    while (!done() && !self.is_late && !self.cancelling.is_requested())
    {
        self.is_waiting = true;
        self.own.suspend();
        self.is_waiting = false;
    }
    if (is_limited)
    {
        deadlines_.erase({deadline, &self});
    }
    self.condition = nullptr;
    return done();
}

std::vector<std::exception_ptr> task_scheduler::run()
{
    if (std::exchange(is_running_, true))
    {
        throw std::logic_error("The tasks of an event loop run already.");
    }
    auto &outside = loop_.outside_tasks_;
    if (running_ > 0 && std::exchange(outside.cancelled, false))
    {
        cancel();
    }
    const bool before = std::exchange(outside.uncancellable, true);
    run_all();
    outside.uncancellable = before;
    outside.cancelled = std::exchange(cancel_unseen_, false) || outside.cancelled;
    is_running_ = false;
    std::vector<std::exception_ptr> failures;
    for (const auto &ended : std::exchange(tasks_, {}))
    {
        failures.push_back(std::move(ended->failure));
    }
    return failures;
}

bool task_scheduler::cancel() noexcept
{
    if (!is_running_)
    {
        return false;
    }
    for (const auto &one : tasks_)
    {
        one->cancelling.cancelled = true;
    }
    check_cancelled_ = true;
    cancel_unseen_ = true;
    return true;
}

void task_scheduler::resume_soon(task &ready)
{
    if (!std::exchange(ready.is_queued, true))
    {
        ready_.push_back(&ready);
    }
}

/** Runs all tasks to their ends: a task cannot be left, so that a failure of the loop ends the program. */
// NOLINTNEXTLINE(bugprone-exception-escape): that is how it ends the program
void task_scheduler::run_all() noexcept
{
    const auto guard = boost::asio::make_work_guard(*loop_.context_);
    if (loop_.context_->stopped())
    {
        loop_.context_->restart();
    }
    run_ready();
    while (running_ > 0)
    {
        wait_for_ready();
        run_ready();
    }
}

/** Runs a task until it waits or ends. One that cannot start has failed. */
void task_scheduler::resume(task &next)
try
{
    next.own.resume();
}
catch (const std::bad_alloc &)
{
    next.failure = std::current_exception();
}

/** Runs each task in the queue until it waits or ends. */
void task_scheduler::run_ready()
{
    for (auto *next : std::exchange(ready_, {}))
    {
        next->is_queued = false;
        current_ = next;
        loop_.cancelling_ = &next->cancelling;
        resume(*next);
        loop_.cancelling_ = &loop_.outside_tasks_;
        current_ = nullptr;
        running_ -= next->own.can_go_on() ? 0 : 1;
    }
}

/** Runs work until a task is in the queue. */
void task_scheduler::wait_for_ready()
{
    const auto first = deadlines_.empty() ? event_loop::time_point::max() : deadlines_.begin()->first;
    if (find_ready())
    {
        // Tasks that only wait for each other do not keep the others from the work they wait for.
        loop_.context_->poll_one();
    }
    else
    {
        loop_.wait([this] { return find_ready(); }, first);
    }
    if (loop_.now() >= first)
    {
        find_late();
    }
}

/** Queues the tasks that can go on; returns whether there are any in the queue. */
bool task_scheduler::find_ready()
{
    if (std::exchange(check_cancelled_, false))
    {
        find_cancelled();
    }
    for (auto *waiting : conditional_)
    {
        if ((*waiting->condition)())
        {
            resume_soon(*waiting);
        }
    }
    return !ready_.empty();
}

/** Queues the tasks that were cancelled. */
void task_scheduler::find_cancelled()
{
    for (const auto &one : tasks_)
    {
        if (one->is_waiting && one->cancelling.is_requested())
        {
            resume_soon(*one);
        }
    }
}

/** Queues the tasks whose deadlines have passed, but first runs all work that is due. */
void task_scheduler::find_late()
{
    loop_.context_->poll();
    const auto now = loop_.now();
    for (auto late = deadlines_.begin(); late != deadlines_.end() && late->first <= now; ++late)
    {
        late->second->is_late = true;
        resume_soon(*late->second);
    }
}

} // namespace vantor
