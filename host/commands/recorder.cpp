/** @file
 * Moves frames from a server into a recording.
 */
#include "commands/recorder.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

/** How often the limits are checked while no frame arrives. */
constexpr std::chrono::milliseconds poll_interval{100};

/** Maximum time without a frame, in seconds. */
constexpr double longest_silence = 10.0;

/** Maximum time without a frame, in frame periods, at low frame rates. */
constexpr double longest_gap = 3.0;

} // namespace

recorder::recorder(client &source, recording_writer &destination, const session_metadata &metadata,
                   double rate, time_source now)
    : source_(source), destination_(destination), rate_(rate), now_(std::move(now))
{
    for (const auto &layout : metadata.items)
    {
        statistics_.emplace_back(layout.sweep_length);
    }
}

double recorder::measured_rate() const noexcept
{
    const double span = seconds_ - first_seconds_;
    return span > 0.0 ? static_cast<double>(destination_.frames() - 1) / span : 0.0;
}

double recorder::share_of_rate() const noexcept
{
    const auto frames = static_cast<double>(destination_.frames());
    return rate_ > 0.0 && frames > 0.0 ? frames / (frames + static_cast<double>(missing_frames_)) : 1.0;
}

void recorder::run(const recorder_limits &limits)
{
    source_.start();
    start_ = last_ = now_();
    while (!done(limits))
    {
        if (const auto received = receive(longest_wait(limits)))
        {
            store(*received);
            if (limits.progress)
            {
                limits.progress(destination_.frames());
            }
        }
    }
    // Drops frames that have not been received yet.
    source_.end();
}

/** The time since a moment, in seconds. */
double recorder::seconds_since(std::chrono::steady_clock::time_point moment) const
{
    return std::chrono::duration<double>(now_() - moment).count();
}

/** Whether a limit has been reached. */
bool recorder::done(const recorder_limits &limits)
{
    if ((limits.frames > 0 && destination_.frames() >= limits.frames) ||
        (limits.seconds > 0.0 && seconds_since(start_) >= limits.seconds))
    {
        return true;
    }
    interrupted_ = limits.stop && limits.stop();
    return interrupted_;
}

/** How long to wait for a frame before checking the limits again. */
std::chrono::milliseconds recorder::longest_wait(const recorder_limits &limits) const
{
    if (limits.seconds <= 0.0)
    {
        return poll_interval;
    }
    using namespace std::chrono;
    const duration<double> left(limits.seconds - seconds_since(start_));
    return left < poll_interval ? ceil<milliseconds>(round<nanoseconds>(left)) : poll_interval;
}

/** Waits for the next frame; returns nothing if none arrives in time or it is damaged. */
std::optional<frame> recorder::receive(std::chrono::milliseconds wait)
{
    try
    {
        auto received = source_.receive_frame(wait);
        if (!received && frame_progressed())
        {
            last_ = now_();
        }
        else if (!received && silent_too_long())
        {
            throw timeout_error(describe_silence());
        }
        return received;
    }
    catch (const bad_message &fault)
    {
        if (silent_too_long())
        {
            throw;
        }
        damage_ = fault.what();
        ++disturbances_;
        return std::nullopt;
    }
}

/** Whether no frame, and no further part of one, has arrived for too long. */
bool recorder::silent_too_long() const
{
    return seconds_since(last_) >= std::max(longest_silence, rate_ > 0.0 ? longest_gap / rate_ : 0.0);
}

/** Describes for how long no frame has arrived, and why the last message was not one, if known. */
std::string recorder::describe_silence() const
{
    return "No frame from the server for " + std::to_string(std::lround(seconds_since(last_))) +
           " s. Check the connection and the power supply of the sensors." +
           (damage_ ? " The last message was damaged: " + *damage_ : std::string());
}

/** Whether another part of a frame has arrived since the last call, as on a slow line. */
bool recorder::frame_progressed()
{
    const auto before = std::exchange(missing_, source_.bytes_missing());
    return !damage_ && missing_ != 0 && (before == 0 || missing_ < before);
}

/** Adds a frame to the recording. */
void recorder::store(const frame &received)
{
    last_ = now_();
    damage_.reset();
    missing_frames_ = received.missing();
    destination_.add(received);
    for (size_t i = 0; i < statistics_.size(); ++i)
    {
        statistics_[i].add(received.items()[i].samples);
    }
    seconds_ = std::chrono::duration<double>(last_ - start_).count();
    if (destination_.frames() == 1)
    {
        first_seconds_ = seconds_;
    }
}

} // namespace vantor
