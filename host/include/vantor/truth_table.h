/** @file
 * Reads the truth in a recording, which has one line per frame and item.
 */
#ifndef VANTOR_TRUTH_TABLE_H
#define VANTOR_TRUTH_TABLE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
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
     * Continues near the first line of a frame, in a time that hardly depends on the size of the file: next()
     * may return lines of earlier frames first. Damaged lines are passed; many of them are read only once.
     *
     * @param frame  its number, from 0
     * @throws bad_recording if the file cannot be read
     */
    void seek(uint64_t frame);

    /** Sets what is called before each line and each read of the file; an exception ends the call. */
    void on_read(std::function<void()> handler);

    /** The first line, as it is in the file; empty if it is missing or too long. */
    [[nodiscard]] const std::string &head() const noexcept;

    /** Number of bytes up to the end of the line that was read last. */
    [[nodiscard]] uint64_t position() const noexcept;

    /** Number of bytes after the line that was read last. */
    [[nodiscard]] uint64_t rest() const;

private:
    /** A line that is not damaged. */
    struct place
    {
        uint64_t start = 0; /**< its first byte */
        uint64_t frame = 0;
    };

    void read_head();
    void ask_to_go_on() const;
    std::optional<uint64_t> read_frame();
    std::optional<place> next_place(uint64_t end);
    std::optional<place> typical_place(uint64_t begin, uint64_t end);

    std::unique_ptr<line_reader> lines_; /**< null only if moved from */
    std::string head_;
    uint64_t begin_ = 0;                   /**< of the line after the first one */
    std::map<uint64_t, uint64_t> damaged_; /**< where damaged lines begin and end, if there are many */
    std::function<void()> on_read_;
};

class recording_reader;
class truth_lines;

/**
 * Reads the truth of all items of a recording, frame after frame. Lines that are damaged, repeated, or not of
 * this frame, item, sensor and tick are left out.
 */
class truth_frames
{
public:
    /**
     * @param recording  must outlive the object
     * @param stop       called for each line, may be empty; an exception ends the reading
     * @throws bad_recording if it has no truth, or that cannot be read
     */
    explicit truth_frames(const recording_reader &recording, std::function<void()> stop = {});
    truth_frames(const truth_frames &) = delete;
    truth_frames &operator=(const truth_frames &) = delete;
    truth_frames(truth_frames &&other) noexcept;
    truth_frames &operator=(truth_frames &&other) noexcept;
    ~truth_frames();

    /**
     * Moves to a frame, and returns its truth.
     *
     * @param frame  not before the frame of the last call, unless seek() was called
     * @return its lines, in the order of the items; empty if there is none
     * @throws bad_recording if a frame table cannot be read
     */
    const std::vector<recorded_truth> &move_to(uint64_t frame);

    /** Continues with a frame anywhere in the recording. Throws bad_recording if it cannot be read. */
    void seek(uint64_t frame);

private:
    std::unique_ptr<truth_lines> source_; /**< null only if moved from */
    std::optional<recorded_truth> next_;  /**< the line that was read last, if its frame is still to come */
    std::vector<recorded_truth> lines_;
};

} // namespace vantor

#endif
