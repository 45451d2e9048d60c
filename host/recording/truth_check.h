/** @file
 * Compares the truth in a recording with its frames.
 */
#ifndef VANTOR_TRUTH_CHECK_H
#define VANTOR_TRUTH_CHECK_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "recording/recording_documents.h"
#include "vantor/truth_table.h"

namespace vantor
{

/** What the truth file of a recording contains. */
struct checked_truth
{
    bool readable = false; /**< it exists, and has a first line */
    bool lost = false;     /**< it does not exist, or has no complete line */
    bool whole = true;     /**< it has nothing but the first line and right lines of frames that are left */
    uint64_t lines = 0;    /**< right lines of frames that are left */
    uint64_t surplus = 0;  /**< other lines, except the first one */
    uint64_t frames = 0;   /**< frames with a line for every item */
    std::vector<std::string> faults; /**< sentences; empty if nothing is damaged */
};

/** Receives each right line of a frame that is left. */
using truth_receiver = std::function<void(const recorded_truth &)>;

/**
 * Checks the truth of a recording that has one: every line belongs to a frame and an item, and has the tick
 * of that frame.
 *
 * @param documents  of the recording
 * @param frames     number of frames that are left
 * @param finished   whether the recording is finished; otherwise there may be more lines
 * @param receive    may be empty
 * @param stop       called for each line, may be empty; an exception ends the check
 */
checked_truth check_truth(const recording_documents &documents, uint64_t frames, bool finished,
                          const truth_receiver &receive = {}, const std::function<void()> &stop = {});

/**
 * Replaces the truth file by one with the right lines of the frames that are left.
 *
 * @throws recording_error if it cannot be written; the old file then stays
 */
void rewrite_truth(const recording_documents &documents, uint64_t frames);

} // namespace vantor

#endif
