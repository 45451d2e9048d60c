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
      context_(std::make_unique<boost::asio::io_context>())
{
}

event_loop::~event_loop() = default;

void event_loop::post(std::function<void()> work)
{
    boost::asio::post(*context_, [work = std::move(work)]() noexcept { work(); });
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
    post([this] { cancelled_ = true; });
}

bool event_loop::run_until(const std::function<bool()> &done, time_point deadline)
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
    const bool before = std::exchange(uncancellable_, true);
    run_until(done, time_point::max());
    uncancellable_ = before;
}

void event_loop::check_cancelled()
{
    if (cancel_requested())
    {
        cancelled_ = false;
        if (requested_ != nullptr)
        {
            *requested_ = false;
        }
        throw vantor::cancelled();
    }
}

bool event_loop::cancel_requested() const noexcept
{
    return !uncancellable_ && (cancelled_ || (requested_ != nullptr && *requested_));
}

} // namespace vantor
