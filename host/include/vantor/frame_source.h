/** @file
 * Where the frames of a hub come from.
 */
#ifndef VANTOR_FRAME_SOURCE_H
#define VANTOR_FRAME_SOURCE_H

#include <chrono>
#include <optional>

#include "vantor/segment.h"
#include "vantor/session.h"

namespace vantor
{

/** A source of frames. */
class frame_source
{
public:
    frame_source() = default;
    frame_source(const frame_source &) = delete;
    frame_source &operator=(const frame_source &) = delete;
    frame_source(frame_source &&) = delete;
    frame_source &operator=(frame_source &&) = delete;
    virtual ~frame_source() = default;

    /** Starts the stream of frames. */
    virtual void start() = 0;

    /**
     * Waits for the next frame.
     *
     * @param timeout  how long to wait
     * @return the frame, or nothing if none arrived in time
     */
    virtual std::optional<frame> receive(std::chrono::milliseconds timeout) = 0;

    /** Whether the stream has ended by itself: no further frame will arrive. */
    [[nodiscard]] virtual bool exhausted() const
    {
        return false;
    }

    /** Ends the stream; frames that have not been received are dropped. */
    virtual void end() = 0;

    /** Like end(), but takes at most two seconds, whatever the source does. */
    virtual void end_promptly() = 0;

    /** The segment of the frame that was received last. */
    [[nodiscard]] virtual const segment &current_segment() const noexcept = 0;
};

} // namespace vantor

#endif
