/** @file
 * Reads the truth in a recording, which has one line per frame and item.
 */
#ifndef VANTOR_TRUTH_TABLE_H
#define VANTOR_TRUTH_TABLE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vantor/truth.h"

namespace vantor
{

/** What a sensor should have found in a frame of a recording. */
struct recorded_truth
{
    uint64_t frame = 0; /**< number of the frame in the recording */
    size_t group = 0;   /**< index of the item's group in the session, from 0 */
    size_t item = 0;    /**< index of the item in its group, from 0 */
    item_truth truth;
};

class line_reader;

/** The truth in a recording, read line by line. Lines are in the order of frames and items. */
class truth_table
{
public:
    /**
     * Opens a file.
     *
     * @throws bad_recording if it cannot be read, or has no first line
     */
    explicit truth_table(const std::filesystem::path &path);
    truth_table(const truth_table &) = delete;
    truth_table &operator=(const truth_table &) = delete;
    truth_table(truth_table &&other) noexcept;
    truth_table &operator=(truth_table &&other) noexcept;
    ~truth_table();

    /**
     * Reads the next line.
     *
     * @return the line, or nothing at the end of the file or if the last line is incomplete
     * @throws bad_recording if the line does not describe the truth; call again to continue
     */
    std::optional<recorded_truth> next();

    /**
     * Continues with the first line of a frame, or of the first one after it that has one, in a time that
     * hardly depends on the size of the file.
     *
     * @param frame  its number, from 0
     * @throws bad_recording if the file cannot be read
     */
    void seek(uint64_t frame);

    /** The first line, as it is in the file. */
    [[nodiscard]] const std::string &head() const noexcept;

    /** Number of bytes up to the end of the line that was read last. */
    [[nodiscard]] uint64_t position() const noexcept;

    /** Number of bytes after the line that was read last. */
    [[nodiscard]] uint64_t rest() const;

private:
    std::optional<uint64_t> next_frame();

    std::unique_ptr<line_reader> lines_; /**< null only if moved from */
    std::string head_;
};

/** Reads the truth of all items of a recording, frame after frame. Damaged lines are left out. */
class truth_frames
{
public:
    /** @param table  the truth, from its first line on */
    explicit truth_frames(truth_table table);

    /**
     * Moves to a frame, and returns its truth.
     *
     * @param frame  not before the frame of the last call, unless seek() was called
     * @return its lines, in the order of the items; empty if there is none
     */
    const std::vector<recorded_truth> &move_to(uint64_t frame);

    /** Continues with a frame anywhere in the recording. Throws bad_recording if it cannot be read. */
    void seek(uint64_t frame);

private:
    std::optional<recorded_truth> next_line();

    truth_table table_;
    std::optional<recorded_truth> next_; /**< the line that was read last, if its frame is still to come */
    std::vector<recorded_truth> lines_;
};

} // namespace vantor

#endif
