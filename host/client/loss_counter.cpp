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

} // namespace

loss_counter::loss_counter(double period) noexcept : period_(period)
{
}

uint64_t loss_counter::add(uint32_t tick, bool damaged) noexcept
{
    const uint32_t elapsed = tick - last_tick_;
    last_tick_ = tick;
    if (!started_ || !(period_ > 0.0))
    {
        started_ = true;
        missing_ += damaged ? 1 : 0;
        return missing_;
    }
    late_ += elapsed;
    const double steps = steps_to_now();
    if (steps == 0.0)
    {
        --missing_;
        late_ = 0.0;
        may_be_late_ = false;
        return missing_;
    }
    missing_ += static_cast<uint64_t>(steps) - 1;
    may_be_late_ = steps > 1.0;
    follow_grid(steps);
    return missing_;
}

/** Periods from the place of the last frame to that of this one: 0 if the last one was counted too far. */
double loss_counter::steps_to_now() const noexcept
{
    const double periods = late_ / period_;
    if (may_be_late_ && periods < same_place)
    {
        return 0.0;
    }
    return std::max(1.0, std::floor(periods + tolerance));
}

/** Moves the grid to the place of this frame, a little later if this frame is late and earlier if it is
 * early. */
void loss_counter::follow_grid(double steps) noexcept
{
    const double moved = std::min(steps * drift, most_drift);
    late_ = std::max(0.0, late_ - (steps + moved) * period_);
}

} // namespace vantor
