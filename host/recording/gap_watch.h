/** @file
 * Shows between which frames samples must not be compared.
 */
#ifndef VANTOR_GAP_WATCH_H
#define VANTOR_GAP_WATCH_H

#include <algorithm>
#include <cstdint>

namespace vantor
{

/** Shows between which frames samples must not be compared, because others are missing between them. */
class gap_watch
{
public:
    /**
     * Moves to the next frame.
     *
     * @param missing      the number of frames missing before it, since the start of the recording
     * @param after_break  whether a break is right before it
     * @return whether it is after a gap. If the same number of frames is missing before each frame, as of
     *         sensors that need longer than a period, that is a lower rate, not gaps
     */
    bool next(uint64_t missing, bool after_break) noexcept
    {
        // Less than before if this frame shows that the last one was only late.
        const auto left_out = missing - std::min(missing, missing_);
        const bool gap = after_break || (left_out > 0 && left_out != left_out_);
        missing_ = missing;
        left_out_ = left_out;
        return gap;
    }

private:
    uint64_t missing_ = 0;
    uint64_t left_out_ = 0; /**< right before the last frame */
};

} // namespace vantor

#endif
