/** @file
 * Shows how many frames are missing before any frame of a recording.
 */
#ifndef VANTOR_GAP_INDEX_H
#define VANTOR_GAP_INDEX_H

#include <cstdint>
#include <memory>
#include <vector>

#include "recording/capture_list.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/**
 * Counts the frames that are missing from a recording, from any frame on.
 *
 * If its documents do not list all gaps, the frame table is read once, when the first frame other than 0 is
 * asked for. What was counted is kept for 4096 places: less than 1 MB. Between them, rows are read again.
 */
class gap_index
{
public:
    /** @param recording  must outlive this object */
    explicit gap_index(const recording_reader &recording);

    /**
     * Returns a counter whose next frame is the given one.
     *
     * @param frame  less than the number of frames
     * @throws bad_recording if the frame table of the first item cannot be read
     */
    gap_counter before(uint64_t frame);

    /** The captures in the documents of the recording. */
    [[nodiscard]] const std::vector<capture> &captures() const noexcept
    {
        return *captures_;
    }

private:
    void read_table();

    const recording_reader &recording_;
    std::shared_ptr<const std::vector<capture>> captures_;
    double period_;                    /**< of gaps that are not listed; 0 if there are none */
    uint64_t interval_;                /**< frames from one place to the next */
    std::vector<gap_counter> counted_; /**< before each place, if the table has been read */
};

} // namespace vantor

#endif
