/** @file
 * The frames that wait for a viewer.
 */
#include "view/viewer_queue.h"

#include <utility>

namespace vantor
{
namespace
{

/** The size of a frame in bytes. */
size_t size_of(const viewer_frame &frame)
{
    return frame.message.size() + frame.truth.size();
}

} // namespace

void viewer_queue::add(const std::shared_ptr<const viewer_frame> &frame)
{
    if (next_ > 0)
    {
        --next_;
        return;
    }
    next_ = every_ - 1;
    bytes_ += size_of(*frame);
    frames_.push_back(frame);
    while (frames_.size() > 1 && (frames_.size() > limits_.frames || bytes_ > limits_.bytes))
    {
        remove_oldest();
        ++dropped_;
    }
}

std::shared_ptr<const std::string> viewer_queue::take(view_message &kind)
{
    if (frames_.empty())
    {
        return nullptr;
    }
    const auto oldest = frames_.front();
    if (!oldest->truth.empty() && !std::exchange(truth_taken_, true))
    {
        kind = view_message::text;
        return {oldest, &oldest->truth};
    }
    remove_oldest();
    kind = view_message::binary;
    return {oldest, &oldest->message};
}

void viewer_queue::clear() noexcept
{
    frames_.clear();
    truth_taken_ = false;
    bytes_ = 0;
    next_ = 0;
}

/** Removes the oldest frame. */
void viewer_queue::remove_oldest() noexcept
{
    bytes_ -= size_of(*frames_.front());
    frames_.pop_front();
    truth_taken_ = false;
}

} // namespace vantor
