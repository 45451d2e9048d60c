/** @file
 * Where the frames of a hub go.
 */
#ifndef VANTOR_FRAME_SINK_H
#define VANTOR_FRAME_SINK_H

#include <memory>

#include "vantor/segment.h"
#include "vantor/session.h"

namespace vantor
{

/** A receiver of frames. Its functions are called on the thread of the hub, and must not wait. */
class frame_sink
{
public:
    frame_sink() = default;
    frame_sink(const frame_sink &) = delete;
    frame_sink &operator=(const frame_sink &) = delete;
    frame_sink(frame_sink &&) = delete;
    frame_sink &operator=(frame_sink &&) = delete;
    virtual ~frame_sink() = default;

    /**
     * Whether the sink can accept a frame now. While it cannot, the hub receives none: a sink that must not
     * hold the source back is always ready, and drops frames itself.
     */
    [[nodiscard]] virtual bool ready() const
    {
        return true;
    }

    /**
     * Called before each frame, and ten times per second.
     *
     * @throws the failure of an earlier frame, which ends the stream
     */
    virtual void check()
    {
    }

    /** Begins a segment: the next frame is its first one. Not called for the first segment. */
    virtual void begin(const segment &next) = 0;

    /**
     * Accepts a frame, which other sinks use too.
     *
     * @throws the failure of an earlier frame, which ends the stream
     */
    virtual void add(const std::shared_ptr<const frame> &received) = 0;
};

} // namespace vantor

#endif
