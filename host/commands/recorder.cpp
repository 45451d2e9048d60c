/** @file
 * Moves frames from a server into a recording.
 */
#include "commands/recorder.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

using steady = std::chrono::steady_clock;

/** How often the limits are looked at while no frame comes. */
constexpr std::chrono::milliseconds patience{100};

/** How long a frame may be late before the server is given up, in seconds. */
constexpr double longest_silence = 10.0;

/** Frames that may be missing before the server is given up, when they come slowly. */
constexpr double longest_gap = 3.0;

/** Most frames that can be lost at once: the server's tick goes no farther. */
constexpr double most_lost = std::numeric_limits<std::uint32_t>::max();

/** A span of time in seconds. */
double in_seconds(steady::duration span)
{
    return std::chrono::duration<double>(span).count();
}

} // namespace

recorder::recorder(client &source, session_writer &destination, const session_metadata &metadata,
                   double period)
    : source_(source), destination_(destination), period_(period)
{
    for (const auto &layout : metadata.items)
    {
        statistics_.emplace_back(layout.sweep_length);
    }
}

void recorder::run(const recorder_limits &limits)
{
    source_.start();
    start_ = last_ = steady::now();
    while (!done(limits))
    {
        if (const auto received = receive())
        {
            store(*received);
            if (limits.progress)
            {
                limits.progress(destination_.frames());
            }
        }
    }
    source_.end(); // frames that are still on their way are dropped
}

/** Whether a limit is reached. */
bool recorder::done(const recorder_limits &limits)
{
    if ((limits.frames > 0 && destination_.frames() >= limits.frames) ||
        (limits.seconds > 0.0 && in_seconds(steady::now() - start_) >= limits.seconds))
    {
        return true;
    }
    interrupted_ = limits.stop && limits.stop();
    return interrupted_;
}

/** Waits a little for the next frame. */
std::optional<frame> recorder::receive()
{
    const double silence = in_seconds(steady::now() - last_);
    const bool too_long = silence > std::max(longest_silence, longest_gap * period_);
    try
    {
        auto received = source_.receive_frame(patience);
        if (!received && frame_grows())
        {
            last_ = steady::now();
        }
        else if (!received && too_long)
        {
            throw timeout_error("The server has sent no frame for " + std::to_string(std::lround(silence)) +
                                " s. Check the line, and that the sensors are still powered.");
        }
        return received;
    }
    catch (const bad_message &)
    {
        if (too_long)
        {
            throw;
        }
        damaged_ = true;
        return std::nullopt;
    }
}

/** Whether more of a frame has come, which a slow line takes its time for. */
bool recorder::frame_grows()
{
    const auto before = std::exchange(missing_, source_.bytes_missing());
    return !damaged_ && missing_ != 0 && (before == 0 || missing_ < before);
}

/** Puts a frame into the recording. */
void recorder::store(const frame &received)
{
    last_ = steady::now();
    if (damaged_)
    {
        note_loss(received);
    }
    destination_.add(received);
    for (std::size_t i = 0; i < statistics_.size(); ++i)
    {
        statistics_[i].add(received.items()[i].samples);
    }
    if (!received.items().empty())
    {
        last_tick_ = received.items().front().tick;
    }
    seconds_ = in_seconds(last_ - start_);
}

/** Notes that frames were lost before this one: as many as the ticks show, at least one. */
void recorder::note_loss(const frame &next)
{
    double lost = 1.0;
    const double ticks_per_frame = source_.server().ticks_per_second * period_;
    if (ticks_per_frame > 0.0 && last_tick_ && !next.items().empty())
    {
        const std::uint32_t ticks = next.items().front().tick - *last_tick_;
        lost = std::clamp(std::round(ticks / ticks_per_frame) - 1.0, 1.0, most_lost);
    }
    destination_.add_loss(static_cast<std::uint64_t>(lost));
    damaged_ = false;
    ++losses_;
}

} // namespace vantor
