/** @file
 * When the frames of a recording are due.
 */
#include "hub/playback_pace.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace vantor
{
namespace
{

using clock_seconds = std::chrono::duration<double>;

/** More seconds than anybody waits for a frame; longer spans might not be representable. */
constexpr double longest_wait_s = 1e9;

} // namespace

void playback_pace::start(double seconds, time_point now) noexcept
{
    seconds_ = seconds;
    at_ = now;
}

void playback_pace::set_speed(double speed, double next, time_point now) noexcept
{
    continue_from(next, now);
    speed_ = speed;
}

void playback_pace::set_paused(bool paused, double next, time_point now) noexcept
{
    continue_from(next, now);
    paused_ = paused;
}

playback_pace::time_point playback_pace::due(double seconds) const noexcept
{
    const double wait =
        paused_ ? longest_wait_s : std::clamp((seconds - seconds_) / speed_, -longest_wait_s, longest_wait_s);
    // Rounded, so that a time of the table is not missed by a fraction of a nanosecond.
    return at_ + std::chrono::round<std::chrono::nanoseconds>(clock_seconds(wait));
}

/** Makes the time of the recording that is due now the one from which others are counted. */
void playback_pace::continue_from(double next, time_point now) noexcept
{
    if (!paused_)
    {
        // At an infinite speed, the product may not be a number, which fmin ignores.
        seconds_ = std::fmin(next, seconds_ + clock_seconds(now - at_).count() * speed_);
    }
    at_ = now;
}

} // namespace vantor
