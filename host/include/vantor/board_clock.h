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
 */
class board_clock
{
public:
    /** @param ticks_per_second  0 if the server has no clock; bounds() then returns nothing */
    explicit board_clock(double ticks_per_second);

    /**
     * Adds a reading, not older than the last one.
     *
     * If it contradicts the earlier ones, the server's clock was set, or runs at a wrong rate: the readings
     * before are forgotten.
     */
    void add(const clock_reading &reading);

    /**
     * The bounds of the time at which the clock showed a tick, from the readings so far.
     *
     * @param tick  the tick
     * @param near  a time of the host's clock that is less than half a wrap of the ticks away from it
     * @return nothing without a clock or a reading
     */
    [[nodiscard]] std::optional<time_bounds> bounds(uint32_t tick,
                                                    std::chrono::steady_clock::time_point near) const;

    /** How often a reading contradicted those before it. */
    [[nodiscard]] unsigned contradictions() const noexcept;

private:
    [[nodiscard]] double seconds_since_reading(uint32_t tick,
                                               std::chrono::steady_clock::time_point near) const;
    [[nodiscard]] time_bounds bounds_after(double seconds) const;

    double ticks_per_second_;
    uint32_t tick_ = 0;               /**< of the last reading */
    std::optional<time_bounds> last_; /**< of that tick */
    unsigned contradictions_ = 0;
};

} // namespace vantor

#endif
