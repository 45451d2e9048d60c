/** @file
 * The last frames of a stream.
 */
#include "hub/frame_ring.h"

#include <utility>

namespace vantor
{

frame_ring::frame_ring(double seconds, size_t bytes, const event_loop &loop, calendar now)
    : longest_(seconds), most_bytes_(bytes), loop_(loop), now_(std::move(now))
{
}

void frame_ring::begin(const segment &next)
{
    next_ = next;
}

void frame_ring::add(const std::shared_ptr<const frame> &received)
{
    bytes_ += queued_size(*received);
    frames_.push_back(
        {.kept = {.what = received, .arrival = now_(), .begins = std::exchange(next_, std::nullopt)},
         .arrival = loop_.now()});
    while (frames_.size() > 1 && (bytes_ > most_bytes_ || loop_.now() - frames_.front().arrival > longest_))
    {
        remove_oldest();
    }
}

void frame_ring::clear() noexcept
{
    frames_.clear();
    bytes_ = 0;
    next_.reset();
}

std::vector<kept_frame> frame_ring::last(double seconds) const
{
    const std::chrono::duration<double> longest(seconds);
    std::vector<kept_frame> kept;
    for (const auto &[what, arrival] : frames_)
    {
        if (loop_.now() - arrival <= longest)
        {
            kept.push_back(what);
        }
    }
    return kept;
}

/** Removes the oldest frame. */
void frame_ring::remove_oldest() noexcept
{
    bytes_ -= queued_size(*frames_.front().kept.what);
    frames_.pop_front();
}

} // namespace vantor
