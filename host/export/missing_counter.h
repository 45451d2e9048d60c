/** @file
 * Counts the frames that are missing in a recording, frame after frame.
 */
#ifndef VANTOR_MISSING_COUNTER_H
#define VANTOR_MISSING_COUNTER_H

#include <cstdint>

#include "recording/capture_list.h"
#include "vantor/frame_table.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** Counts the missing frames of a recording: those that its documents list, and others from the ticks. */
class missing_counter
{
public:
    explicit missing_counter(const recording_reader &recording)
        : gaps_(recording.captures(),
                period_of_unlisted_gaps(recording.session(), recording.finished(), recording.captures()))
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
        return gaps_.found().missing();
    }

private:
    gap_finder gaps_;
};

} // namespace vantor

#endif
