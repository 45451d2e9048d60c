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

gap_finder::gap_finder(std::vector<capture> known, double period)
    : known_(std::move(known)), period_(period), counter_(period)
{
}

void gap_finder::add(uint32_t tick, bool delayed)
{
    const bool is_known = next_known_ < known_.size() && known_[next_known_].first_frame == frames_;
    if (is_known && known_[next_known_].begins)
    {
        found_.begin(*known_[next_known_].begins);
        counter_ = loss_counter(period_);
    }
    const auto counted = counter_.add(tick, 0, delayed);
    if (is_known)
    {
        listed_ = known_[next_known_].frames_missing;
        counted_before_ = counted;
    }
    // Less than before if the gap that was counted last was one too large.
    counted_before_ = std::min(counted_before_, counted);
    if (found_.add(listed_ + counted - counted_before_) && is_known)
    {
        found_.set_time(known_[next_known_].datetime);
    }
    next_known_ += is_known ? 1 : 0;
    ++frames_;
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
