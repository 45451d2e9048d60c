/** @file
 * Passes frames from one source to many sinks.
 */
#include "vantor/hub.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

/** How often the limits are checked while no frame arrives. */
constexpr std::chrono::milliseconds poll_interval{100};

} // namespace

hub::hub(frame_source &source, std::vector<frame_sink *> sinks, event_loop &loop)
    : source_(source), sinks_(std::move(sinks)), loop_(loop), start_(loop.now())
{
}

void hub::run(const stream_limits &limits)
try
{
    source_.start();
    start_ = loop_.now();
    while (!done(limits))
    {
        for (auto *sink : sinks_)
        {
            sink->check();
        }
        const auto wait = longest_wait(limits);
        if (!wait_for_sinks(wait))
        {
            loop_.check_cancelled();
            continue;
        }
        if (auto received = source_.receive(wait))
        {
            pass_on(std::move(*received));
        }
    }
    silence_ = elapsed() - seconds_;
    source_.end();
}
catch (const cancelled &)
{
    silence_ = elapsed() - seconds_;
    interrupted_ = true;
    source_.end_promptly();
}
catch (...)
{
    silence_ = elapsed() - seconds_;
    source_.end_promptly();
    throw;
}

double hub::measured_rate() const noexcept
{
    const double span = seconds_ - first_seconds_;
    return span > 0.0 ? static_cast<double>(frames_ - 1) / span : 0.0;
}

/** The time since the start of the stream, in seconds. */
double hub::elapsed() const
{
    return std::chrono::duration<double>(loop_.now() - start_).count();
}

/** Whether a limit has been reached. */
bool hub::done(const stream_limits &limits)
{
    if (source_.exhausted() || (limits.frames > 0 && frames_ >= limits.frames) ||
        (limits.seconds > 0.0 && elapsed() >= limits.seconds))
    {
        return true;
    }
    interrupted_ = limits.stop && limits.stop();
    return interrupted_;
}

/** How long to wait for a frame before checking the limits again. */
std::chrono::milliseconds hub::longest_wait(const stream_limits &limits) const
{
    if (limits.seconds <= 0.0)
    {
        return poll_interval;
    }
    using namespace std::chrono;
    const duration<double> left(limits.seconds - elapsed());
    return left < poll_interval ? ceil<milliseconds>(round<nanoseconds>(left)) : poll_interval;
}

/** Waits until every sink can accept a frame; false if one cannot in time. */
bool hub::wait_for_sinks(std::chrono::milliseconds longest)
{
    const auto all_ready = [this] {
        return std::all_of(sinks_.begin(), sinks_.end(),
                           [](const frame_sink *sink) { return sink->ready(); });
    };
    return all_ready() || loop_.run_until(all_ready, loop_.now() + longest);
}

/** Passes a frame to all sinks. */
void hub::pass_on(frame &&received)
{
    const auto &current = source_.current_segment();
    const bool is_new = std::exchange(segment_, current.number) != current.number;
    const auto shared = std::make_shared<const frame>(std::move(received));
    for (auto *sink : sinks_)
    {
        if (is_new)
        {
            sink->begin(current);
        }
        sink->add(shared);
    }
    seconds_ = elapsed();
    if (++frames_ == 1)
    {
        first_seconds_ = seconds_;
    }
}

} // namespace vantor
