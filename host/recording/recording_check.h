/** @file
 * Compares the files of a recording with what was recorded.
 */
#ifndef VANTOR_RECORDING_CHECK_H
#define VANTOR_RECORDING_CHECK_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/capture_list.h"
#include "recording/frame_figures.h"
#include "recording/recording_documents.h"
#include "recording/truth_check.h"
#include "vantor/item_statistics.h"

namespace vantor
{

/** What the files of an item contain. */
struct checked_item
{
    std::optional<uint64_t> data_size;  /**< bytes of samples; no value if the file cannot be read */
    std::optional<uint64_t> table_size; /**< bytes of the frame table; no value if it cannot be read */
    std::string_view table_head;        /**< of the frame table; that of a new one if it is damaged */
    uint64_t frames = 0;                /**< number of frames with all samples */
    uint64_t rows = 0;                  /**< number of correct rows at the start of the frame table */
    uint64_t rows_size = 0;             /**< bytes of the head and these rows; 0 if the head is damaged */
    uint64_t left_table_size = 0;       /**< bytes of the rows of the frames that are left */
    std::string left_digest;            /**< SHA-512 of the samples of the frames that are left */
    std::string left_table_digest;      /**< SHA-512 of the frame table with the rows of these frames */
    bool differs = false;               /**< samples or rows are not those that were recorded */
    frame_figures figures;              /**< of the frames that are left */
    item_statistics level; /**< of the frames that are left; empty if it was not to be computed */
};

/** The result of a check. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct recording_check
{
    recording_documents documents;
    std::vector<checked_item> items;
    bool finished = false;              /**< the documents announce a number of frames, and digests */
    bool in_progress = false;           /**< "vantor record" is still writing it */
    std::optional<uint64_t> recorded;   /**< the number of frames that they announce */
    uint64_t block_frames = 1;          /**< most frames that were written at once */
    uint64_t frames = 0;                /**< number of frames that are left: complete in every item */
    std::vector<capture> captures;      /**< of the frames that are left */
    uint64_t missing = 0;               /**< number of frames missing between those that are left */
    uint64_t unlisted_breaks = 0;       /**< number of breaks that are not among the captures */
    std::optional<checked_truth> truth; /**< no value if none was recorded */
    std::vector<std::string> faults;    /**< sentences; empty if nothing is damaged */
};

/** What a check computes. */
enum class check_scope
{
    damage,           /**< not checked_item::level */
    damage_and_levels /**< everything */
};

/** Receives how many frames of how many have been read. */
using check_progress = std::function<void(uint64_t done, uint64_t total)>;

/** Is called often while files are read; an exception ends the check. */
using check_stop = std::function<void()>;

/**
 * Checks a recording: the sizes of all files, the numbers of frames and rows, and the digests. A recording
 * whose program was killed is not damaged, only not finished.
 *
 * @param place     the directory of the recording, or any of its SigMF documents
 * @param progress  is called after each frame of each item; may be empty
 * @param stop      may be empty
 * @param scope     what to compute
 * @throws bad_recording if there is no recording
 * @throws damaged_recording if none of its documents describes the session
 */
recording_check check_recording(const std::filesystem::path &place, const check_progress &progress = {},
                                const check_stop &stop = {},
                                check_scope scope = check_scope::damage_and_levels);

} // namespace vantor

#endif
