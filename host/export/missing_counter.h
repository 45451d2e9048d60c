/** @file
 * Counts the frames that are missing in a recording, frame after frame.
 */
#ifndef VANTOR_MISSING_COUNTER_H
#define VANTOR_MISSING_COUNTER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "recording/capture_list.h"
#include "recording/sigmf.h"
#include "vantor/capture.h"
#include "vantor/frame_table.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** Counts the missing frames of a recording: those in its documents, or from the ticks if it was not
 * finished. */
class missing_counter
{
public:
    explicit missing_counter(const recording_reader &recording)
        : finished_(recording.finished()), captures_(recording.captures()),
          gaps_(captures_, nominal_tick_period(recording.session()))
    {
    }

    /**
     * Moves to the next frame.
     *
     * @param row  its row in a frame table
     * @return the number of frames missing before it, since the start of the recording
     */
    uint64_t next(const frame_row &row)
    {
        gaps_.add(row.tick, row.frame_delayed);
        if (next_ < captures_.size() && captures_[next_].first_frame == number_++)
        {
            listed_ = captures_[next_++].frames_missing;
        }
        return finished_ ? listed_ : gaps_.found().missing();
    }

private:
    bool finished_;
    std::vector<capture> captures_; /**< that the documents list */
    gap_finder gaps_;
    size_t next_ = 0;     /**< of the captures */
    uint64_t number_ = 0; /**< of the next frame */
    uint64_t listed_ = 0; /**< frames missing before the last one, as listed */
};

} // namespace vantor

#endif
