/** @file
 * Frames on their way to a host.
 */
#ifndef VANTOR_FRAME_QUEUE_H
#define VANTOR_FRAME_QUEUE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "bridge/batch.h"

namespace vantor
{

/** A frame that can be sent to a host. */
struct ready_frame
{
    std::string message;                          /**< of the protocol */
    std::string session_name;                     /**< of its session */
    std::shared_ptr<const batch_session> session; /**< what describes this */
    uint64_t end = 0;                             /**< bytes sent to hosts, with this message */
};

/**
 * Frames on their way to a host. Those that were sent stay here as long as they may be in the buffers of the
 * link, so that another host gets those that the one before has not read.
 */
class frame_queue
{
public:
    /** Most bytes that a link may hold. */
    static constexpr size_t most_unread = size_t{1} << 20U;

    /** Whether take() has nothing to return. */
    [[nodiscard]] bool empty() const noexcept
    {
        return ready_.empty();
    }

    /** The next frame. There must be one. */
    [[nodiscard]] const ready_frame &front() const
    {
        return ready_.front();
    }

    /** Adds a frame behind the others. */
    void push(ready_frame added);

    /** Takes the next frame; returns its message. There must be one. */
    std::string take();

    /** Notes how many bytes hosts were sent with the frame that was taken last, also if sending it fails. */
    void note_sent(uint64_t end);

    /** Puts back the frames that were not read. @param read  how many of the bytes sent hosts have read */
    void put_back_unread(uint64_t read);

private:
    std::deque<ready_frame> ready_;
    std::deque<ready_frame> sent_; /**< that may not have been read yet */
    size_t sent_bytes_ = 0;        /**< of these */
};

} // namespace vantor

#endif
