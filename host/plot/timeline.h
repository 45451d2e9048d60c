/** @file
 * When the frames of an item were measured, and where frames are missing.
 */
#ifndef VANTOR_TIMELINE_H
#define VANTOR_TIMELINE_H

#include <cstdint>
#include <optional>
#include <vector>

#include "recording/frame_figures.h"
#include "vantor/capture.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** The gaps of a recording. */
struct recorded_gaps
{
    std::vector<capture> captures; /**< the parts between the gaps, as far as they are listed */
    uint64_t missing = 0;          /**< number of frames missing in all gaps */
};

/** The gaps of a recording; those of one that was never finished follow from the ticks of its frames. */
recorded_gaps find_gaps(const recording_reader &recording);

/** The axis of time of an item. */
struct time_axis
{
    double rate = 0.0;      /**< frames per second between gaps; 0 if unknown */
    double period = 1.0;    /**< between two frames */
    double end = 0.0;       /**< when the last frame began */
    bool in_seconds = true; /**< not in frames, because neither clock nor rate is known */
};

/** Where a frame is on the axis of time. */
struct placed_frame
{
    double begin = 0.0;
    bool after_gap = false; /**< frames are missing before it, or the server was interrupted */
    frame_row row = {};
};

/** Places the frames of an item on an axis of time. */
class timeline
{
public:
    /**
     * @param recording  a recording with at least one frame
     * @param item       index of an item
     * @throws bad_recording if its frame table cannot be read
     */
    timeline(const recording_reader &recording, size_t item);

    /** The axis. */
    [[nodiscard]] const time_axis &axis() const noexcept
    {
        return axis_;
    }

    /** Totals of the frame table. */
    [[nodiscard]] const frame_figures &figures() const noexcept
    {
        return figures_;
    }

    /** Number of frames that are not valid. */
    [[nodiscard]] uint64_t not_valid() const noexcept
    {
        return figures_.channel.invalid;
    }

    /** The maximum number of consecutive valid frames without a gap. */
    [[nodiscard]] uint64_t longest_run() const noexcept
    {
        return longest_run_;
    }

    /** Number of gaps between frames. */
    [[nodiscard]] uint64_t gaps() const noexcept
    {
        return gaps_;
    }

private:
    friend class frame_rows;

    void choose_axis(const recording_reader &recording, size_t item);
    void measure(const recording_reader &recording, size_t item);

    std::vector<capture> captures_;
    uint64_t frames_;
    uint64_t left_out_ = 0;        /**< frames that are usually missing between two frames */
    uint64_t listed_until_;        /**< the frame after which gaps are not listed in the captures */
    double longest_spacing_ = 0.0; /**< a longer time between frames is a gap that is not listed */
    double step_ = 1.0;            /**< between frames that were due */
    bool has_clock_ = true;
    time_axis axis_;
    frame_figures figures_;
    uint64_t longest_run_ = 0;
    uint64_t gaps_ = 0;
};

/** Reads the frame table of an item line by line. */
class frame_rows
{
public:
    /** @param times  of the item; must live longer */
    frame_rows(const recording_reader &recording, size_t item, const timeline &times);

    /** Moves to the next frame. */
    void advance();

    /** When the frame began. */
    [[nodiscard]] double begin() const noexcept
    {
        return current_.begin;
    }

    /** When the next frame began; if there is a gap, one period after the frame began. */
    [[nodiscard]] double end() const noexcept;

    /** Whether there is a gap before the frame. */
    [[nodiscard]] bool after_gap() const noexcept
    {
        return current_.after_gap;
    }

    /** Whether its samples are measured echoes: the sensor may have listened for other transmitters instead.
     */
    [[nodiscard]] bool valid() const
    {
        return current_.row.data_valid.value_or(true);
    }

    /** Its line. */
    [[nodiscard]] const frame_row &row() const noexcept
    {
        return current_.row;
    }

private:
    [[nodiscard]] std::optional<placed_frame> read();
    [[nodiscard]] bool pass_capture();

    const timeline &times_;
    frame_table table_;
    uint64_t number_ = 0; /**< of the next frame to read */
    size_t next_capture_ = 1;
    double breaks_ = 0.0;     /**< time in breaks so far, without a clock */
    double last_begin_ = 0.0; /**< of the frame read last */
    placed_frame current_;
    std::optional<placed_frame> next_;
};

} // namespace vantor

#endif
