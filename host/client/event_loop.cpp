/** @file
 * The event loop of a host program.
 */
#include "vantor/event_loop.h"

#include <algorithm>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

namespace vantor
{
namespace
{

/** Keeps the sum of clock and waiting time in range, even without a deadline. */
constexpr std::chrono::hours longest_wait{1};

} // namespace

event_loop::event_loop(time_source now)
    : now_(std::move(now)), context_(std::make_unique<boost::asio::io_context>())
{
}

event_loop::~event_loop() = default;

void event_loop::post(std::function<void()> work)
{
    boost::asio::post(*context_, std::move(work));
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
        const auto left = std::min<time_point::duration>(deadline - now(), longest_wait);
        const auto ran = left.count() > 0 ? context_->run_one_for(left) : context_->poll_one();
        if (ran == 0 && now() >= deadline)
        {
            return done();
        }
    }
    return true;
}

} // namespace vantor
