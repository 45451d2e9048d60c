/** @file
 * Counts what a person should know about the frames of a stream.
 */
#ifndef VANTOR_FRAME_TALLY_H
#define VANTOR_FRAME_TALLY_H

#include <chrono>
#include <cstdint>
#include <vector>

#include "vantor/flag_counts.h"
#include "vantor/frame_sink.h"

namespace vantor
{

/** Counts missing frames, flags and segments. */
class frame_tally : public frame_sink
{
public:
    void begin(const segment &next) override;
    void add(const std::shared_ptr<const frame> &received) override;

    /** The counts of each item, in the order of the session metadata; empty before the first frame. */
    [[nodiscard]] const std::vector<flag_counts> &items() const noexcept
    {
        return items_;
    }

    /** The sums of the counts of all items. */
    [[nodiscard]] flag_counts total() const noexcept;

    /** Number of frames. */
    [[nodiscard]] uint64_t frames() const noexcept
    {
        return frames_;
    }

    /** Number of frames missing between those that arrived. */
    [[nodiscard]] uint64_t missing() const noexcept
    {
        return missing_;
    }

    /** Number of frames whose first item has no time in UTC. */
    [[nodiscard]] uint64_t undated() const noexcept
    {
        return undated_;
    }

    /** The largest bound of the times in UTC of first items. */
    [[nodiscard]] std::chrono::nanoseconds largest_bound() const noexcept
    {
        return largest_bound_;
    }

    /** The share of the frames that are not missing, from 0 to 1. */
    [[nodiscard]] double share() const noexcept;

    /** The segments after the first one. */
    [[nodiscard]] const std::vector<segment> &breaks() const noexcept
    {
        return breaks_;
    }

private:
    std::vector<flag_counts> items_;
    std::vector<segment> breaks_;
    uint64_t frames_ = 0;
    uint64_t missing_ = 0;
    uint64_t undated_ = 0;
    std::chrono::nanoseconds largest_bound_{};
};

} // namespace vantor

#endif
