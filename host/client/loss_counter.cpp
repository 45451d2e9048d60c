/** @file
 * Counts the frames that are missing from a stream.
 */
#include "vantor/loss_counter.h"

#include <algorithm>
#include <cmath>

namespace vantor
{
namespace
{

/** How much earlier than on the grid a frame may seem to be, in periods: the grid may have become too late.
 */
constexpr double tolerance = 0.1;

/** How much later the grid may become with each period, in periods: more than the clocks of boards differ. */
constexpr double drift = 200e-6;

/** How much later it may become with one frame, however long the gap was, in periods. */
constexpr double most_drift = 0.05;

/** A frame that is less than this after the previous one, in periods, has the place counted for that one. */
constexpr double same_place = 0.5;

/** Half of the ticks after which they wrap around: with a longer period, one missing frame cannot be seen. */
constexpr double longest_period = 2147483648.0;

/** Number of frames measured in time after which a gap is certain. */
constexpr int frames_to_certainty = 10;

} // namespace

loss_counter::loss_counter(double period) noexcept : period_(period < longest_period ? period : 0.0)
{
}

uint64_t loss_counter::add(uint32_t tick, uint64_t damaged, bool delayed) noexcept
{
    const uint32_t elapsed = tick - last_tick_;
    last_tick_ = tick;
    if (!started_ || !(period_ > 0.0))
    {
        started_ = true;
        missing_ += damaged;
        return missing_;
    }
    late_ += elapsed;
    if (has_place_of_last_frame())
    {
        --missing_;
        late_ -= moved_;
        uncertain_ = 0;
    }
    else
    {
        advance(delayed);
    }
    follow_grid(delayed);
    return missing_;
}

/** Whether this frame shows that one place too many was counted at the last gap. */
bool loss_counter::has_place_of_last_frame() const noexcept
{
    return uncertain_ > 0 && late_ - moved_ < same_place * period_;
}

/** Moves from the place of the last frame to that of this one, and counts the places between them. */
void loss_counter::advance(bool delayed) noexcept
{
    // A delayed frame is never early.
    const double steps = std::max(1.0, std::floor(late_ / period_ + (delayed ? 0.0 : tolerance)));
    late_ -= steps * period_;
    missing_ += static_cast<uint64_t>(steps) - 1;
    if (steps > 1.0)
    {
        uncertain_ = frames_to_certainty;
        moved_ = 0.0;
    }
    else if (!delayed && uncertain_ > 0)
    {
        --uncertain_;
    }
    if (!delayed)
    {
        late_ -= std::min(steps * drift, most_drift) * period_;
    }
}

/** Makes the grid earlier if this frame is earlier than its place. A delayed frame shows the grid only if
 * no gap before it may have been counted too large. */
void loss_counter::follow_grid(bool delayed) noexcept
{
    if (late_ < 0.0 && (!delayed || uncertain_ == 0))
    {
        moved_ -= late_;
        late_ = 0.0;
    }
}

} // namespace vantor
