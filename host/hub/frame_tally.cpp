/** @file
 * Counts what a person should know about the frames of a stream.
 */
#include "vantor/frame_tally.h"

#include <algorithm>
#include <optional>

namespace vantor
{

void frame_tally::begin(const segment &next)
{
    breaks_.push_back(next);
}

void frame_tally::add(const std::shared_ptr<const frame> &received)
{
    items_.resize(received->items().size());
    for (size_t i = 0; i < items_.size(); ++i)
    {
        const auto &item = received->items()[i];
        items_[i].saturated += item.data_saturated ? 1U : 0U;
        items_[i].invalid += item.data_valid.value_or(true) ? 0U : 1U;
        items_[i].delayed += item.frame_delayed ? 1U : 0U;
        items_[i].calibration_needed += item.calibration_needed ? 1U : 0U;
    }
    ++frames_;
    missing_ = received->missing();
    const auto utc = received->items().empty() ? std::nullopt : received->items().front().utc;
    undated_ += utc ? 0 : 1;
    largest_bound_ = std::max(largest_bound_, utc ? utc->bound : std::chrono::nanoseconds(0));
}

flag_counts frame_tally::total() const noexcept
{
    flag_counts sum;
    for (const auto &item : items_)
    {
        sum.saturated += item.saturated;
        sum.invalid += item.invalid;
        sum.delayed += item.delayed;
        sum.calibration_needed += item.calibration_needed;
    }
    return sum;
}

double frame_tally::share() const noexcept
{
    const auto frames = static_cast<double>(frames_);
    return frames_ > 0 ? frames / (frames + static_cast<double>(missing_)) : 1.0;
}

} // namespace vantor
