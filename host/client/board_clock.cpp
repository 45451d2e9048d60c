/** @file
 * Relates the clock of a server to the clock of the host, with bounds.
 */
#include "vantor/board_clock.h"

#include <algorithm>
#include <cmath>

namespace vantor
{

namespace
{

using std::chrono::steady_clock;

/** Ticks after which the clock shows the same number again. */
constexpr double wrap = 4294967296.0;

/** Ticks per second of the slowest clock whose wraps can be computed in nanoseconds. */
constexpr double slowest = 1.0;

using seconds = std::chrono::duration<double>;

/** A duration rounded down or up. */
steady_clock::duration floor(double value)
{
    return std::chrono::floor<steady_clock::duration>(seconds(value));
}

steady_clock::duration ceil(double value)
{
    return std::chrono::ceil<steady_clock::duration>(seconds(value));
}

/** The times that lie within both bounds; earliest is after latest if there are none. */
time_bounds common_part(const time_bounds &one, const time_bounds &other)
{
    return {std::max(one.earliest, other.earliest), std::min(one.latest, other.latest)};
}

/** Whether no time is within bounds. */
bool is_empty(const time_bounds &bounds)
{
    return bounds.earliest > bounds.latest;
}

} // namespace

board_clock::board_clock(double ticks_per_second)
    : ticks_per_second_(ticks_per_second >= slowest ? ticks_per_second : 0.0)
{
}

void board_clock::add(const clock_reading &reading)
{
    if (!(ticks_per_second_ > 0.0))
    {
        return;
    }
    time_bounds now = {reading.sent, reading.received};
    if (last_)
    {
        const double seconds = seconds_since_reading(reading.tick, now.middle());
        const double wrap_seconds = wrap / ticks_per_second_;
        if (!is_empty(common_part(now, bounds_after(seconds - wrap_seconds))) ||
            !is_empty(common_part(now, bounds_after(seconds + wrap_seconds))))
        {
            // How often the ticks have wrapped around is not known.
            return;
        }
        now = common_part(now, bounds_after(seconds));
        if (is_empty(now))
        {
            forget();
            return;
        }
        doubts_ -= doubts_ > 0 ? 1 : 0;
    }
    tick_ = reading.tick;
    last_ = now;
}

std::optional<time_bounds> board_clock::bounds(uint32_t tick, steady_clock::time_point arrival)
{
    if (!last_ || doubts_ > 0)
    {
        return std::nullopt;
    }
    const auto ticks = static_cast<int32_t>(tick - tick_);
    const double seconds = ticks / ticks_per_second_;
    if (bounds_after(seconds + wrap / ticks_per_second_).earliest <= arrival)
    {
        return std::nullopt;
    }
    auto bounds = bounds_after(seconds);
    bounds.latest = std::min(bounds.latest, arrival);
    if (is_empty(bounds))
    {
        forget();
        return std::nullopt;
    }
    return bounds;
}

/** After a contradiction. */
void board_clock::forget() noexcept
{
    constexpr unsigned most_doublings = 32;
    last_.reset();
    doubts_ = uint64_t{1} << std::min(contradictions_, most_doublings);
    ++contradictions_;
}

/** Seconds by the server's clock from the last reading to a tick near a time of the host's clock. */
double board_clock::seconds_since_reading(uint32_t tick, steady_clock::time_point near) const
{
    const double ticks = tick - tick_;
    const double expected = seconds(near - last_->middle()).count() * ticks_per_second_;
    return (ticks + std::round((expected - ticks) / wrap) * wrap) / ticks_per_second_;
}

/** Bounds of the moment some seconds by the server's clock after the last reading; before it, if negative. */
time_bounds board_clock::bounds_after(double seconds) const
{
    // Both ticks are whole numbers: each moment was up to one tick later.
    const double error = std::abs(seconds) * most_drift + 1.0 / ticks_per_second_;
    return {last_->earliest + floor(seconds - error), last_->latest + ceil(seconds + error)};
}

} // namespace vantor
