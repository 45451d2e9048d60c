/** @file
 * The frames that wait for a viewer.
 */
#include "view/viewer_queue.h"

namespace vantor
{

void viewer_queue::add(const std::shared_ptr<const std::string> &frame)
{
    if (next_ > 0)
    {
        --next_;
        return;
    }
    next_ = every_ - 1;
    bytes_ += frame->size();
    frames_.push_back(frame);
    while (frames_.size() > 1 && (frames_.size() > limits_.frames || bytes_ > limits_.bytes))
    {
        remove_oldest();
        ++dropped_;
    }
}

std::shared_ptr<const std::string> viewer_queue::take()
{
    if (frames_.empty())
    {
        return nullptr;
    }
    auto oldest = frames_.front();
    remove_oldest();
    return oldest;
}

void viewer_queue::clear() noexcept
{
    frames_.clear();
    bytes_ = 0;
    next_ = 0;
}

/** Removes the oldest frame. */
void viewer_queue::remove_oldest() noexcept
{
    bytes_ -= frames_.front()->size();
    frames_.pop_front();
}

} // namespace vantor
