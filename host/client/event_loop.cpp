/** @file
 * The event loop of a host program.
 */
#include "vantor/event_loop.h"

#include <algorithm>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <unistd.h>

#include "client/tasks.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

/** Keeps the sum of clock and waiting time in range, even without a deadline. */
constexpr std::chrono::hours longest_wait{1};

/** UTC when a clock showed 0: both clocks are read several times, since a program can be held up in between.
 */
std::chrono::sys_time<std::chrono::nanoseconds> read_utc_of_zero(const time_source &now)
{
    constexpr int attempts = 5;
    auto shortest = event_loop::time_point::duration::max();
    std::chrono::sys_time<std::chrono::nanoseconds> found;
    for (int i = 0; i < attempts; ++i)
    {
        const auto before = now();
        const auto utc = std::chrono::system_clock::now();
        const auto taken = now() - before;
        if (taken < shortest)
        {
            shortest = taken;
            found = utc - std::chrono::nanoseconds(before.time_since_epoch() + taken / 2);
        }
    }
    return found;
}

} // namespace

event_loop::event_loop(time_source now)
    : now_(std::move(now)), utc_of_zero_(read_utc_of_zero(now_)),
      context_(std::make_unique<boost::asio::io_context>()), tasks_(std::make_unique<task_scheduler>(*this))
{
}

event_loop::~event_loop() = default;

void event_loop::post(std::function<void()> work)
{
    boost::asio::post(*context_, [this, work = std::move(work)]() noexcept {
        work();
        tasks_->note_posted_work();
    });
}

void event_loop::when_readable(int descriptor, std::function<void()> work)
{
    using boost::asio::posix::stream_descriptor;
    // A duplicate, because the object closes it.
    auto duplicate = std::make_shared<stream_descriptor>(*context_, dup(descriptor));
    auto &waiting = *duplicate;
    waiting.async_wait(stream_descriptor::wait_read, [duplicate = std::move(duplicate),
                                                      work = std::move(work)](const auto &failure) noexcept {
        if (!failure)
        {
            work();
        }
    });
}

void event_loop::cancel()
{
    post([this] { outside_tasks_.cancelled = !tasks_->cancel() || outside_tasks_.cancelled; });
}

bool event_loop::run_until(const std::function<bool()> &done, time_point deadline)
{
    return tasks_->is_inside() ? tasks_->wait(done, deadline) : wait(done, deadline);
}

bool event_loop::run_until(completion &awaited, time_point deadline)
{
    return tasks_->is_inside() ? tasks_->wait(awaited, deadline)
                               : wait([&awaited] { return awaited.is_set(); }, deadline);
}

void event_loop::spawn(std::function<void()> work)
{
    tasks_->spawn(std::move(work));
}

std::vector<std::exception_ptr> event_loop::run_tasks()
{
    return tasks_->run();
}

bool event_loop::wait(const std::function<bool()> &done, time_point deadline)
{
    // Otherwise the loop would return at once while nothing is pending.
    const auto guard = boost::asio::make_work_guard(*context_);
    if (context_->stopped())
    {
        context_->restart();
    }
    while (!done())
    {
        if (cancel_requested())
        {
            return false;
        }
        const auto left = std::min<time_point::duration>(deadline - now(), longest_wait);
        const auto ran = left.count() > 0 ? context_->run_one_for(left) : context_->poll_one();
        if (ran == 0 && now() >= deadline)
        {
            return done();
        }
    }
    return true;
}

void event_loop::run_to_end(const std::function<bool()> &done)
{
    auto &state = *cancelling_;
    const bool before = std::exchange(state.uncancellable, true);
    run_until(done, time_point::max());
    state.uncancellable = before;
}

void event_loop::check_cancelled()
{
    if (cancel_requested())
    {
        if (std::exchange(cancelling_->cancelled, false))
        {
            tasks_->note_cancelled();
        }
        if (cancelling_->requested != nullptr)
        {
            *cancelling_->requested = false;
        }
        throw vantor::cancelled();
    }
}

void event_loop::completion::set()
{
    is_set_ = true;
    if (waiting_ != nullptr)
    {
        waiting_->scheduler.resume_soon(*waiting_);
    }
}

} // namespace vantor
