/** @file
 * Converts the ticks of a server, which wrap around, to seconds.
 */
#ifndef VANTOR_TICK_CLOCK_H
#define VANTOR_TICK_CLOCK_H

#include <cmath>
#include <cstdint>

namespace vantor
{

/** More than the longest time that a tick_clock can show, in seconds: 2^64 ticks of the slowest server. */
inline constexpr double longest_time = 2e22;

/** Converts a series of 32-bit ticks to seconds since the first one; steps must be shorter than a wrap. */
class tick_clock
{
public:
    /** @param ticks_per_second  0 if there is no clock: all times are then 0 */
    explicit tick_clock(double ticks_per_second) : ticks_per_second_(ticks_per_second)
    {
    }

    /** The time of the next tick, in seconds since the first one. */
    double advance(uint32_t tick)
    {
        if (started_)
        {
            // Modulo 2^32, so a wrap does not matter.
            elapsed_ += tick - last_;
        }
        started_ = true;
        last_ = tick;
        return seconds();
    }

    /**
     * Continues with ticks that have no relation to those before.
     *
     * @param gap  time between the last tick before and the next one, in seconds
     */
    void restart(double gap)
    {
        if (started_)
        {
            elapsed_ += static_cast<uint64_t>(std::llround(gap * ticks_per_second_));
        }
        started_ = false;
    }

    /** The time of the last tick, in seconds since the first one. */
    [[nodiscard]] double seconds() const
    {
        return ticks_per_second_ > 0.0 ? static_cast<double>(elapsed_) / ticks_per_second_ : 0.0;
    }

private:
    double ticks_per_second_;
    uint64_t elapsed_ = 0;
    uint32_t last_ = 0;
    bool started_ = false;
};

} // namespace vantor

#endif
