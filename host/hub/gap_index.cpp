/** @file
 * Shows how many frames are missing before any frame of a recording.
 */
#include "hub/gap_index.h"

namespace vantor
{
namespace
{

/** Most places for which it is kept what was counted before them. */
constexpr uint64_t most_places = 4096;

/** Counts a number of frames of a table. */
void count_frames(gap_counter &counter, frame_table &table, uint64_t frames)
{
    for (uint64_t number = 0; number < frames; ++number)
    {
        const auto row = table.require();
        counter.add(row.tick, row.frame_delayed);
    }
}

} // namespace

gap_index::gap_index(const recording_reader &recording)
    : recording_(recording), captures_(std::make_shared<const std::vector<capture>>(recording.captures())),
      period_(period_of_unlisted_gaps(recording.session(), recording.finished(), *captures_)),
      interval_(recording.frames() / most_places + 1)
{
}

gap_counter gap_index::before(uint64_t frame)
{
    gap_counter counter(captures_, period_);
    if (frame == 0)
    {
        return counter;
    }
    if (period_ == 0.0)
    {
        counter.skip_to(frame);
        return counter;
    }
    if (counted_.empty())
    {
        read_table();
    }
    counter = counted_[frame / interval_];
    auto table = recording_.open_table(0);
    table.seek(frame - frame % interval_);
    count_frames(counter, table, frame % interval_);
    return counter;
}

/** Counts the missing frames of the whole recording. */
void gap_index::read_table()
{
    gap_counter counter(captures_, period_);
    auto table = recording_.open_table(0);
    std::vector<gap_counter> counted{counter};
    for (uint64_t number = interval_; number < recording_.frames(); number += interval_)
    {
        count_frames(counter, table, interval_);
        counted.push_back(counter);
    }
    counted_ = std::move(counted);
}

} // namespace vantor
