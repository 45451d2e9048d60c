/** @file
 * Frames on their way to a host.
 */
#include "bridge/frame_queue.h"

#include <utility>

namespace vantor
{

void frame_queue::push(ready_frame added)
{
    ready_.push_back(std::move(added));
}

std::string frame_queue::take()
{
    sent_.push_back(std::move(ready_.front()));
    ready_.pop_front();
    sent_bytes_ += sent_.back().message.size();
    while (sent_bytes_ - sent_.front().message.size() > most_unread)
    {
        sent_bytes_ -= sent_.front().message.size();
        sent_.pop_front();
    }
    return sent_.back().message;
}

void frame_queue::note_sent(uint64_t end)
{
    if (!sent_.empty())
    {
        sent_.back().end = end;
    }
}

void frame_queue::put_back_unread(uint64_t read)
{
    while (!sent_.empty() && sent_.back().end > read)
    {
        ready_.push_front(std::move(sent_.back()));
        sent_.pop_back();
    }
    sent_.clear();
    sent_bytes_ = 0;
}

} // namespace vantor
