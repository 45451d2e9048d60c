/** @file
 * Writes one item of a recording: its samples, and a table with one line per frame.
 */
#ifndef VANTOR_ITEM_WRITER_H
#define VANTOR_ITEM_WRITER_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "recording/output_file.h"
#include "recording/sha512.h"
#include "vantor/arrived_frame.h"
#include "vantor/tick_clock.h"

namespace vantor
{

/** The first line of a frame table: the column names. */
inline constexpr std::string_view frame_table_head =
    "frame,time_s,tick,temperature,data_saturated,frame_delayed,calibration_needed,data_valid,cca_value,"
    "cca_detected,tx_enabled,utc_s,utc_bound_s\n";

/** The first line of frame tables of earlier versions, without the time in UTC. */
inline constexpr std::string_view frame_table_head_without_utc =
    "frame,time_s,tick,temperature,data_saturated,frame_delayed,calibration_needed,data_valid,cca_value,"
    "cca_detected,tx_enabled\n";

/** The digests of an item's files. */
struct item_digests
{
    sha512 samples;
    sha512 table;
};

/**
 * Writes one item of a recording. Blocks of frames are first appended and then committed, so that an
 * incomplete one can be removed from all items when the disk is full.
 */
class item_writer
{
public:
    /**
     * Creates the files.
     *
     * @param base              path and name of the files, without their extensions
     * @param index             index of the item in the session metadata
     * @param ticks_per_second  unit of the ticks of frames
     * @param digests           new ones
     * @throws recording_error if they cannot be created
     */
    item_writer(const std::filesystem::path &base, size_t index, double ticks_per_second,
                item_digests digests);

    /**
     * Appends the item's part of some frames, with one call of the system for each file. The frames must
     * exist until the next commit() or rollback().
     *
     * @throws recording_error if it cannot be written; rollback() then removes what was written
     */
    void append(std::span<const arrived_frame> block);

    /** Notes that the ticks of the next frame may have no relation to those before. @p gap  in seconds */
    void begin_segment(double gap)
    {
        clock_.restart(gap);
    }

    /** Commits what was appended last. */
    void commit();

    /** Removes what was appended since the last commit. */
    void rollback() noexcept;

    /** Waits until everything is on the disk. */
    void sync() const
    {
        data_.sync();
        table_.sync();
    }

    /**
     * Checks that the files still exist.
     *
     * @throws recording_error if somebody has removed one of them
     */
    void require_existing() const;

    /**
     * Checks that the files are still where they were created.
     *
     * @throws recording_error if somebody has removed, moved or replaced one of them
     */
    void require_in_place() const;

    /** Number of committed frames. */
    [[nodiscard]] uint64_t frames() const noexcept
    {
        return frames_;
    }

    /** Number of committed bytes of samples. */
    [[nodiscard]] uint64_t data_length() const noexcept
    {
        return data_length_;
    }

    /** Time from the first to the last committed frame, in seconds. */
    [[nodiscard]] double seconds() const
    {
        return clock_.seconds();
    }

    /** SHA-512 digests of the committed samples, and of the frame table up to the last committed row. */
    [[nodiscard]] const item_digests &digests() const noexcept
    {
        return digests_;
    }

private:
    [[nodiscard]] const frame_item &item_of(const arrived_frame &arrived) const
    {
        return arrived.what->items()[index_];
    }

    [[nodiscard]] std::span<const std::byte> samples_of(std::span<const arrived_frame> block);

    /** What was appended and is not committed yet. */
    struct appended_block
    {
        uint64_t frames = 0;
        std::string rows;
        std::span<const std::byte> samples; /**< of the only frame, or in gathered_ */
        tick_clock clock;                   /**< after the last frame */
    };

    output_file data_;
    output_file table_;
    size_t index_;
    tick_clock clock_;
    appended_block appended_;
    std::vector<std::byte> gathered_; /**< samples of several frames */
    item_digests digests_;
    uint64_t frames_ = 0;
    uint64_t data_length_ = 0;
    uint64_t table_length_ = 0;
};

} // namespace vantor

#endif
