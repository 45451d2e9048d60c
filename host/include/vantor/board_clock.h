/** @file
 * Relates the clock of a server to the clock of the host, with bounds.
 */
#ifndef VANTOR_BOARD_CLOCK_H
#define VANTOR_BOARD_CLOCK_H

#include <chrono>
#include <cstdint>
#include <optional>

namespace vantor
{

/** A tick of a server's clock, which was current at some moment between two times of the host's clock. */
struct clock_reading
{
    std::chrono::steady_clock::time_point sent;     /**< when the host asked for it */
    std::chrono::steady_clock::time_point received; /**< when the answer was there */
    uint32_t tick = 0;
};

/** Bounds of a moment, by the host's clock. */
struct time_bounds
{
    std::chrono::steady_clock::time_point earliest;
    std::chrono::steady_clock::time_point latest;

    /** The moment in the middle; the true one is at most half the width() away. */
    [[nodiscard]] std::chrono::steady_clock::time_point middle() const noexcept
    {
        return earliest + (latest - earliest) / 2;
    }

    /** How far the bounds are apart. */
    [[nodiscard]] std::chrono::steady_clock::duration width() const noexcept
    {
        return latest - earliest;
    }
};

/**
 * Most by which the rates of the two clocks may differ from each other: crystals of up to 100 ppm on both
 * sides. The difference may change at any time.
 */
inline constexpr double most_drift = 200e-6;

/**
 * The time at which a server's clock showed a tick, as an interval that certainly contains it.
 *
 * A reading says that the tick was current between two times. Later, the interval becomes wider by twice the
 * largest drift, and the next reading cuts it: a short round trip counts more than a long one, whichever way
 * took the time. All that is assumed is that the rates of the clocks never differ by more than most_drift.
 *
 * If a tick contradicts that, one of the clocks was set or stopped, or does not run at its rate: the readings
 * are forgotten, and no time is known until further readings agree: a second one after the first
 * contradiction, and with each contradiction twice as many. Times before it may be wrong.
 */
class board_clock
{
public:
    /** @param ticks_per_second  0 if the server has no clock; below 1, bounds() returns nothing */
    explicit board_clock(double ticks_per_second);

    /** Adds a reading, not older than the last one. */
    void add(const clock_reading &reading);

    /**
     * The bounds of the time at which the clock showed a tick, from the readings so far.
     *
     * @param tick     the tick, at most half a wrap of the ticks before that of the last reading
     * @param arrival  a later time of the host's clock: when the tick was received
     * @return nothing if the time is not known, also because the tick may have come once more since then
     */
    std::optional<time_bounds> bounds(uint32_t tick, std::chrono::steady_clock::time_point arrival);

    /** How often a tick contradicted the readings before it. */
    [[nodiscard]] unsigned contradictions() const noexcept
    {
        return contradictions_;
    }

private:
    [[nodiscard]] double seconds_since_reading(uint32_t tick,
                                               std::chrono::steady_clock::time_point near) const;
    [[nodiscard]] time_bounds bounds_after(double seconds) const;
    void forget() noexcept;

    double ticks_per_second_;
    uint32_t tick_ = 0;               /**< of the last reading */
    std::optional<time_bounds> last_; /**< of that tick */
    uint64_t doubts_ = 0;             /**< readings that must agree before times are known */
    unsigned contradictions_ = 0;
};

} // namespace vantor

#endif
