/** @file
 * Makes a recording complete that was not finished, or that has lost data.
 */
#ifndef VANTOR_REPAIR_H
#define VANTOR_REPAIR_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "recording/recording_check.h"

namespace vantor
{

/** Whether a repair may remove frames whose samples are complete in an item. */
enum class frame_loss
{
    refused, /**< only the last frames, which a program that was killed has not written to all items */
    accepted /**< all but the first frame */
};

/** Sizes of what a repair has removed, because the frames were not complete in every item. */
struct removed_bytes
{
    uint64_t samples = 0;
    uint64_t tables = 0; /**< frame tables */
};

/** What a repair has changed. */
struct repair_result
{
    bool changed = false; /**< false if the recording was complete */
    uint64_t frames = 0;  /**< number of frames in the recording now */
    uint64_t dropped = 0; /**< frames removed whose samples were complete in an item */
    removed_bytes removed = {};
    bool has_truth = false;   /**< the recording has the truth of simulated sensors, or has lost it */
    uint64_t truth_lines = 0; /**< lines of it that were removed: damaged, repeated, or of no frame */
    bool truth_lost = false;  /**< its file was missing or empty: the documents do not refer to it any more */
};

/**
 * Why a damaged recording cannot be repaired, as far as its files have been checked.
 *
 * @return a sentence, or nothing if nothing prevents it
 */
std::optional<std::string> repair_obstacle(const recording_check &check,
                                           frame_loss loss = frame_loss::refused);

/**
 * Repairs a recording in its place: keeps the frames that are complete in every item, removes the rest,
 * writes the final documents, restores damaged ones from the others, and checks the result.
 *
 * @param place     the directory of the recording, or any of its SigMF documents
 * @param loss      which frames it may remove
 * @param progress  is called after each frame of each item; may be empty
 * @throws damaged_recording if it cannot be repaired; nothing has been changed then
 * @throws bad_recording if there is no recording
 * @throws recording_error if a file cannot be written; repairing again then continues
 */
repair_result repair_recording(const std::filesystem::path &place, frame_loss loss = frame_loss::refused,
                               const check_progress &progress = {});

} // namespace vantor

#endif
