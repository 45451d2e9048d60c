/** @file
 * The frames that wait for a viewer.
 */
#ifndef VANTOR_VIEWER_QUEUE_H
#define VANTOR_VIEWER_QUEUE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "view/view_server.h"

namespace vantor
{

/** A frame, as viewers receive it. */
struct viewer_frame
{
    std::string message; /**< of the protocol */
    std::string truth;   /**< a text that is sent before it: see truth_message(); empty for none */
};

/** How many frames can wait for a viewer. */
struct viewer_queue_limits
{
    size_t frames = 256;
    size_t bytes = 4U << 20U; /**< one frame can always wait */
};

/** The frames that wait for a viewer. Never full: the oldest ones are dropped, and counted. */
class viewer_queue
{
public:
    explicit viewer_queue(viewer_queue_limits limits = {}) noexcept : limits_(limits)
    {
    }

    /** Adds an encoded frame, unless the viewer wants only some of the frames and this is another one. */
    void add(const std::shared_ptr<const viewer_frame> &frame);

    /**
     * Returns the next message: the truth of the oldest frame, and then that frame, which is removed.
     *
     * @param kind  receives the kind of the message
     * @return null if there is none
     */
    std::shared_ptr<const std::string> take(view_message &kind);

    /** Removes the frames of an earlier session or place, which do not count as dropped. */
    void clear() noexcept;

    /** Passes on only one of this many frames from now on; the others do not count as dropped. */
    void set_every(uint64_t frames) noexcept
    {
        every_ = frames;
        next_ = 0;
    }

    /** Number of frames that were dropped because the viewer was too slow. */
    [[nodiscard]] uint64_t dropped() const noexcept
    {
        return dropped_;
    }

private:
    void remove_oldest() noexcept;

    viewer_queue_limits limits_;
    std::deque<std::shared_ptr<const viewer_frame>> frames_;
    bool truth_taken_ = false; /**< of the oldest frame */
    size_t bytes_ = 0;
    uint64_t every_ = 1;
    uint64_t next_ = 0; /**< frames until the next one that is wanted */
    uint64_t dropped_ = 0;
};

} // namespace vantor

#endif
