/** @file
 * The captures of a recording: its segments of frames without gaps.
 */
#include "recording/capture_list.h"

#include <algorithm>
#include <utility>

namespace vantor
{

void capture_list::begin(const segment &next)
{
    if (frames_ == 0)
    {
        return;
    }
    if (captures_.size() < most_captures_with_breaks)
    {
        next_ = next;
    }
    else
    {
        ++unlisted_breaks_;
    }
}

bool capture_list::add(uint64_t missing)
{
    missing_ = missing;
    const bool is_gap = missing > captures_.back().frames_missing && captures_.size() < most_captures;
    if (frames_ > 0 && (next_ || is_gap))
    {
        captures_.push_back({.first_frame = frames_,
                             .frames_missing = missing,
                             .datetime = {},
                             .begins = std::exchange(next_, std::nullopt)});
    }
    if (captures_.back().first_frame == frames_ || missing < captures_.back().frames_missing)
    {
        captures_.back().frames_missing = missing;
    }
    if (captures_.size() > 1 && !captures_.back().begins &&
        captures_[captures_.size() - 2].frames_missing == missing)
    {
        // Nothing was missing after all.
        captures_.pop_back();
    }
    return captures_.back().first_frame == frames_++;
}

void capture_list::set_time(std::string datetime)
{
    captures_.back().datetime = std::move(datetime);
}

gap_counter::gap_counter(std::shared_ptr<const std::vector<capture>> known, double period)
    : known_(std::move(known)), period_(period), counter_(period)
{
}

uint64_t gap_counter::add(uint32_t tick, bool delayed)
{
    const auto *const known = next_capture();
    if (known != nullptr && known->begins)
    {
        counter_ = loss_counter(period_);
    }
    const auto counted = counter_.add(tick, 0, delayed);
    if (known != nullptr)
    {
        listed_ = known->frames_missing;
        counted_before_ = counted;
        ++next_known_;
    }
    // Less than before if the gap that was counted last was one too large.
    counted_before_ = std::min(counted_before_, counted);
    missing_ = listed_ + counted - counted_before_;
    ++frames_;
    return missing_;
}

void gap_counter::skip_to(uint64_t frame)
{
    const auto next = std::ranges::lower_bound(*known_, frame, {}, &capture::first_frame);
    next_known_ = static_cast<size_t>(next - known_->begin());
    listed_ = next_known_ > 0 ? (*known_)[next_known_ - 1].frames_missing : 0;
    missing_ = listed_;
    frames_ = frame;
}

const capture *gap_counter::next_capture() const noexcept
{
    const bool begins = next_known_ < known_->size() && (*known_)[next_known_].first_frame == frames_;
    return begins ? &(*known_)[next_known_] : nullptr;
}

gap_finder::gap_finder(std::vector<capture> known, double period)
    : counter_(std::make_shared<const std::vector<capture>>(std::move(known)), period)
{
}

void gap_finder::add(uint32_t tick, bool delayed)
{
    const auto *const known = counter_.next_capture();
    if (known != nullptr && known->begins)
    {
        found_.begin(*known->begins);
    }
    if (found_.add(counter_.add(tick, delayed)) && known != nullptr)
    {
        found_.set_time(known->datetime);
    }
}

double period_of_unlisted_gaps(const session_description &session, bool finished,
                               const std::vector<capture> &captures)
{
    const bool all_listed = finished && captures.size() < most_captures;
    // After a break that is not listed, the ticks have no relation to those before.
    const bool all_breaks_listed = captures.size() < most_captures_with_breaks;
    return all_listed || !all_breaks_listed ? 0.0 : nominal_tick_period(session);
}

} // namespace vantor
