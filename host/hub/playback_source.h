/** @file
 * A recording as a source of frames.
 */
#ifndef VANTOR_PLAYBACK_SOURCE_H
#define VANTOR_PLAYBACK_SOURCE_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "recording/capture_list.h"
#include "vantor/event_loop.h"
#include "vantor/frame_source.h"
#include "vantor/frame_table.h"
#include "vantor/recording_reader.h"

namespace vantor
{

/** How a recording is played. */
struct playback_options
{
    double speed = 1.0; /**< how many times as fast as measured; infinite for as fast as possible */
    /** One endless segment, as from a server: starts again after the last frame, and leaves out breaks; time
     * and ticks continue with the next frame period. */
    bool endless = false;
};

/** The frames of a recording, at the pace at which they were measured or another one. */
class playback_source : public frame_source
{
public:
    /**
     * @param recording  a recording with at least one frame; must outlive this object, like the loop
     * @param options    how it is played
     * @param loop       the loop of the hub
     */
    playback_source(recording_reader &recording, playback_options options, event_loop &loop);

    /** Starts the stream: the next frame is due now. */
    void start() override;

    /**
     * Like frame_source::receive.
     *
     * @throws bad_recording if a file cannot be read
     * @throws cancelled if waiting was cancelled
     */
    std::optional<frame> receive(std::chrono::milliseconds timeout) override;

    [[nodiscard]] bool exhausted() const override;

    /** Does nothing: start() continues with the next frame. */
    void end() override
    {
    }

    /** Does nothing, like end(). */
    void end_promptly() override
    {
    }

    [[nodiscard]] const segment &current_segment() const noexcept override
    {
        return segment_;
    }

    /**
     * Returns the next frame without waiting until it is due.
     *
     * @throws bad_recording if a file cannot be read, or there is no further frame
     */
    frame next();

    /** Returns to the first frame. */
    void rewind();

    /** Time until the next frame is due: 0 or less if it is. Only after start(), and unless exhausted(). */
    [[nodiscard]] event_loop::time_point::duration time_until_due();

private:
    /** The rows of all items in the next frame. */
    using frame_rows = std::vector<frame_row>;

    void open_tables();
    void begin_lap();
    const frame_rows &peek();
    [[nodiscard]] bool at_capture() const noexcept;
    void leave_out_break(const frame_row &next);
    void note_place(const frame_row &row);
    [[nodiscard]] double ticks_per_second() const noexcept;
    [[nodiscard]] double period() const noexcept;
    [[nodiscard]] uint32_t tick_after_last() const noexcept;
    std::vector<sample> read_samples();

    recording_reader &recording_;
    playback_options options_;
    event_loop &loop_;
    std::shared_ptr<const session_metadata> metadata_;
    double tick_period_; /**< nominal; 0 if unknown */
    std::vector<capture> captures_;
    std::vector<frame_table> tables_;
    std::optional<gap_finder> gaps_; /**< of the current lap */
    std::optional<frame_rows> rows_; /**< of the next frame, if they have been read */
    frame_row last_;                 /**< of the first item in the last frame */
    uint64_t number_ = 0;            /**< of the next frame */
    size_t capture_ = 0;             /**< the next capture */
    uint64_t missing_ = 0;           /**< before the last frame, in the current lap */
    uint64_t more_missing_ = 0;      /**< before the current lap */
    double more_seconds_ = 0.0;      /**< added to the times of the recording */
    uint32_t more_ticks_ = 0;        /**< added to its ticks */
    double first_seconds_ = 0.0;     /**< time of the first frame after start() */
    event_loop::time_point started_; /**< when the stream began */
    segment segment_;
};

} // namespace vantor

#endif
