/** @file
 * Finds the lines of truth that belong to the frames of a recording.
 */
#ifndef VANTOR_TRUTH_LINES_H
#define VANTOR_TRUTH_LINES_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vantor/frame_table.h"
#include "vantor/recorded_item.h"
#include "vantor/truth_table.h"

namespace vantor
{

/** The frames of a recording that its truth belongs to. */
struct recorded_frames
{
    const std::filesystem::path &directory;
    const std::vector<recorded_item> &items;
    uint64_t count = 0;
};

/** What is wrong with the lines that were read. */
struct wrong_lines
{
    uint64_t damaged = 0; /**< not understood, repeated, or of another frame, item, sensor or tick */
    uint64_t surplus = 0; /**< of frames that the recording does not have */
    std::string first;    /**< describes the first one that is damaged or misplaced; empty if none is */
};

/** Reads the ticks of all items, frame after frame. */
class tick_reader
{
public:
    explicit tick_reader(const recorded_frames &frames);

    /** The tick of an item in a frame; frames must be asked for in their order, unless seek() was called. */
    uint32_t tick(uint64_t frame, size_t item);

    /** Continues with a frame. */
    void seek(uint64_t frame);

private:
    void read_rows();

    std::vector<frame_table> tables_;
    std::vector<frame_row> rows_;
    uint64_t next_ = 0; /**< frame after the one that the rows are of */
};

/**
 * Reads the lines of truth that belong to a frame and item and have its sensor and tick, in the order of
 * frames and items and each one once. A line in a wrong place is read too, unless it is far behind its place.
 */
class truth_lines
{
public:
    /**
     * @param table   the truth, from its first line on
     * @param frames  must outlive the object, with what it refers to
     */
    truth_lines(truth_table table, recorded_frames frames);

    /**
     * Reads the next line.
     *
     * @return the line; nothing at the end of the file
     * @throws bad_recording if a frame table cannot be read
     */
    std::optional<recorded_truth> next();

    /** Continues with a frame. Throws bad_recording if the file cannot be read. */
    void seek(uint64_t frame);

    /** What was wrong since the first line, if seek() was not called. */
    [[nodiscard]] const wrong_lines &wrong() const noexcept
    {
        return wrong_;
    }

    /** The file. */
    [[nodiscard]] const truth_table &table() const noexcept
    {
        return table_;
    }

private:
    /** A frame, and the index of an item in the recording. */
    using place = std::pair<uint64_t, size_t>;

    void read_line();
    void keep(recorded_truth line);
    bool is_right(const place &at, const recorded_truth &line);
    void refuse(const std::string &reason);
    void refuse(const recorded_truth &line);

    truth_table table_;
    recorded_frames frames_;
    tick_reader ticks_;
    std::multimap<place, recorded_truth> waiting_; /**< lines whose turn has not come yet */
    place expected_;                               /**< after the line that was returned last */
    place farthest_;                               /**< of all lines so far */
    bool ended_ = false;
    wrong_lines wrong_;
};

} // namespace vantor

#endif
