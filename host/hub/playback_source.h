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

#include "hub/gap_index.h"
#include "hub/playback_pace.h"
#include "vantor/event_loop.h"
#include "vantor/frame_source.h"
#include "vantor/frame_table.h"
#include "vantor/recording_reader.h"
#include "vantor/truth_table.h"

namespace vantor
{

/** How a recording is played. */
struct playback_options
{
    double speed = 1.0; /**< how many times as fast as measured; infinite for as fast as possible */
    /** One endless segment, as from a server: starts again after the last frame, and leaves out breaks; time
     * and ticks continue with the next frame period. Frames that are repeated have no time in UTC. */
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

    /**
     * What the frame table says about the first item of the next frame.
     *
     * @throws bad_recording if a file cannot be read, or there is no further frame
     */
    [[nodiscard]] const frame_row &next_row()
    {
        return peek().front();
    }

    /**
     * Continues with another frame, which is due now. In an endless segment, time and ticks continue as if
     * the stream had begun with it.
     *
     * @param number  of the frame in the recording; the last frame if there are fewer
     * @throws bad_recording if a file cannot be read: the stream cannot go on
     */
    void seek(uint64_t number);

    /** Returns to the first frame. */
    void rewind()
    {
        seek(0);
    }

    /** Stops or continues. While it is paused, receive() returns nothing; the time does not count. */
    void set_paused(bool paused);

    /** Whether it is paused. */
    [[nodiscard]] bool paused() const noexcept
    {
        return pace_.paused();
    }

    /**
     * Changes the speed from now on: the next frame is due when the rest of the time before it has passed at
     * the new speed.
     *
     * @param speed  as playback_options::speed; more than 0
     */
    void set_speed(double speed);

    /** Number of the next frame in the recording; the number of frames after the last one. */
    [[nodiscard]] uint64_t position() const noexcept
    {
        return number_;
    }

    /** Time of the last frame played, in seconds; after seek(), of the frame before the next one. */
    [[nodiscard]] double seconds() const noexcept
    {
        return seconds_;
    }

    /**
     * Time until the next frame is due: 0 or less if it is, more than 30 years while paused. Only after
     * start(), and unless exhausted().
     */
    [[nodiscard]] event_loop::time_point::duration time_until_due();

private:
    /** The rows of all items in the next frame. */
    using frame_rows = std::vector<frame_row>;

    void go_to(uint64_t number);
    void seek_truth(uint64_t number);
    void enter_segment_before(uint64_t number);
    void begin_lap();
    const frame_rows &peek();
    double next_seconds();
    event_loop::time_point next_due();
    void leave_out_break(const frame_row &next);
    void note_place(const frame_row &row);
    void enter(const segment &begun, uint64_t number);
    [[nodiscard]] double ticks_per_second() const noexcept;
    [[nodiscard]] double period() const noexcept;
    [[nodiscard]] uint32_t tick_after_last() const noexcept;
    std::vector<sample> read_samples();
    void add_truth(frame &played);

    recording_reader &recording_;
    event_loop &loop_;
    playback_pace pace_;
    bool endless_;
    std::shared_ptr<const session_metadata> metadata_;
    double tick_period_; /**< nominal; 0 if unknown */
    gap_index gap_index_;
    gap_counter gaps_; /**< of the current lap */
    std::vector<frame_table> tables_;
    std::optional<truth_frames> truth_; /**< no value if it was not recorded, or cannot be read */
    std::optional<frame_rows> rows_;    /**< of the next frame, if they have been read */
    frame_row last_;                    /**< of the first item in the frame before the next one */
    double seconds_ = 0.0;              /**< of the last frame */
    uint64_t number_ = 0;               /**< of the next frame */
    bool first_lap_ = true;             /**< no frame has been repeated */
    uint64_t more_missing_ = 0;         /**< before the current lap */
    double more_seconds_ = 0.0;         /**< added to the times of the recording */
    uint32_t more_ticks_ = 0;           /**< added to its ticks */
    segment segment_;
};

} // namespace vantor

#endif
