/** @file
 * When the frames of a recording are due.
 */
#ifndef VANTOR_PLAYBACK_PACE_H
#define VANTOR_PLAYBACK_PACE_H

#include "vantor/event_loop.h"

namespace vantor
{

/** Relates the times of a recording, in seconds, to the clock of an event loop. */
class playback_pace
{
public:
    using time_point = event_loop::time_point;

    /** @param speed  how many times as fast as measured; more than 0, infinite for as fast as possible */
    explicit playback_pace(double speed) noexcept : speed_(speed)
    {
    }

    /** Starts at a time of the recording, which is due now. */
    void start(double seconds, time_point now) noexcept;

    /**
     * Changes the speed from now on.
     *
     * @param speed  as above
     * @param next   time of the frame that is due next: if it is late, those after it are not due sooner for
     * that
     * @param now    the present time
     */
    void set_speed(double speed, double next, time_point now) noexcept;

    /** Stops or continues; the parameters are those of set_speed(). */
    void set_paused(bool paused, double next, time_point now) noexcept;

    [[nodiscard]] bool paused() const noexcept
    {
        return paused_;
    }

    /** When a time of the recording is due; years from now if that is even later, or while it is paused. */
    [[nodiscard]] time_point due(double seconds) const noexcept;

private:
    void continue_from(double next, time_point now) noexcept;

    double speed_;
    bool paused_ = false;
    double seconds_ = 0.0; /**< the time of the recording... */
    time_point at_;        /**< ... that was due then, or is when it goes on */
};

} // namespace vantor

#endif
