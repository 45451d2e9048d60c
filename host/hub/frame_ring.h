/** @file
 * The last frames of a stream.
 */
#ifndef VANTOR_FRAME_RING_H
#define VANTOR_FRAME_RING_H

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "vantor/event_loop.h"
#include "vantor/frame_sink.h"
#include "vantor/recording_sink.h"

namespace vantor
{

/** A frame that was kept. */
struct kept_frame
{
    std::shared_ptr<const frame> what;
    std::chrono::system_clock::time_point arrival;
    std::optional<segment> begins; /**< the segment that begins with it */
};

/** Keeps the frames of the last seconds in memory, never more than a number of bytes. */
class frame_ring : public frame_sink
{
public:
    /**
     * @param seconds  how long a frame is kept
     * @param bytes    of frames that are kept at most; the last frame always is
     * @param loop     shows the time; must outlive this object
     * @param now      shows when a frame arrives
     */
    frame_ring(double seconds, size_t bytes, const event_loop &loop,
               calendar now = std::chrono::system_clock::now);

    void begin(const segment &next) override;
    void add(const std::shared_ptr<const frame> &received) override;

    /** Forgets all frames. */
    void clear() noexcept;

    /** Returns the frames that arrived in the last seconds, the oldest one first. The frames are shared. */
    [[nodiscard]] std::vector<kept_frame> last(double seconds) const;

    /** Number of bytes of the frames. */
    [[nodiscard]] size_t bytes() const noexcept
    {
        return bytes_;
    }

private:
    /** A frame, and when it arrived by the clock of the loop. */
    struct entry
    {
        kept_frame kept;
        event_loop::time_point arrival;
    };

    void remove_oldest() noexcept;

    std::chrono::duration<double> longest_;
    size_t most_bytes_;
    const event_loop &loop_;
    calendar now_;
    std::deque<entry> frames_;
    size_t bytes_ = 0;
    std::optional<segment> next_; /**< begins with the next frame */
};

} // namespace vantor

#endif
