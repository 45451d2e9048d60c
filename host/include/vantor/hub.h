/** @file
 * Passes frames from one source to many sinks.
 */
#ifndef VANTOR_HUB_H
#define VANTOR_HUB_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

#include "vantor/event_loop.h"
#include "vantor/frame_sink.h"
#include "vantor/frame_source.h"

namespace vantor
{

/** When a stream ends. */
struct stream_limits
{
    uint64_t frames = 0;  /**< 0 for no limit */
    double seconds = 0.0; /**< 0 for no limit */
    std::function<bool()>
        stop; /**< called before every frame, and ten times per second; true ends the stream */
};

/** Passes each frame of a source to all sinks, in the order in which they were given. */
class hub
{
public:
    /**
     * @param source  must outlive the hub, as must the sinks
     * @param sinks   where the frames go
     * @param loop    the loop of source and sinks
     */
    hub(frame_source &source, std::vector<frame_sink *> sinks, event_loop &loop);

    /**
     * Passes frames on until a limit is reached or the source is exhausted. While a sink is not ready, no
     * frame is received, so that the source is held back.
     *
     * event_loop::cancel() ends it within about a second.
     *
     * @throws the exceptions of source and sinks except cancelled; every sink has received all frames before,
     * and the source has ended
     */
    void run(const stream_limits &limits);

    /** Number of frames passed on. */
    [[nodiscard]] uint64_t frames() const noexcept
    {
        return frames_;
    }

    /** Time from the start of the stream to the last frame, in seconds. */
    [[nodiscard]] double seconds() const noexcept
    {
        return seconds_;
    }

    /** Time from the last frame to the end of the stream, in seconds. */
    [[nodiscard]] double silence() const noexcept
    {
        return silence_;
    }

    /**
     * Frames per second from the first to the last frame; 0 if fewer than two frames arrived, or all at the
     * same time.
     */
    [[nodiscard]] double measured_rate() const noexcept;

    /** Whether the stream was ended by stream_limits::stop or by event_loop::cancel(). */
    [[nodiscard]] bool interrupted() const noexcept
    {
        return interrupted_;
    }

private:
    [[nodiscard]] double elapsed() const;
    bool done(const stream_limits &limits);
    [[nodiscard]] std::chrono::milliseconds longest_wait(const stream_limits &limits) const;
    bool wait_for_sinks(std::chrono::milliseconds longest);
    void pass_on(frame &&received);

    frame_source &source_;
    std::vector<frame_sink *> sinks_;
    event_loop &loop_;
    event_loop::time_point start_;
    uint64_t frames_ = 0;
    uint64_t segment_ = 0;
    double seconds_ = 0.0;
    double first_seconds_ = 0.0; /**< seconds() at the first frame */
    double silence_ = 0.0;
    bool interrupted_ = false;
};

} // namespace vantor

#endif
