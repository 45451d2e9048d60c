/** @file
 * Tells when frames were measured, from readings of the server's clock.
 */
#ifndef VANTOR_CLOCK_WATCH_H
#define VANTOR_CLOCK_WATCH_H

#include <chrono>
#include <cstdint>
#include <optional>

#include "vantor/board_clock.h"
#include "vantor/client.h"
#include "vantor/event_loop.h"
#include "vantor/session.h"

namespace vantor
{

/**
 * Asks a server for its clock once a second, and sets the time of its frames. An item to which the server
 * gave a time keeps it, and while all have one, the server is not asked.
 *
 * A question is sent when the server can answer at once: between two frames. If the sensors pace the frames,
 * the server waits for them and answers only when it has read the next frame; the question then goes out
 * shortly before that is due.
 */
class clock_watch
{
public:
    using duration = std::chrono::steady_clock::duration;

    /**
     * @param server  a connected client; must outlive this object, as must the loop
     * @param loop    the loop of the client
     */
    clock_watch(client &server, event_loop &loop);

    /** Forgets the readings, for a server that may have started again. */
    void reset();

    /**
     * Begins with a session, which has no stream yet.
     *
     * @param sensor_period  time between two frames that the sensors pace; 0 if they do not
     */
    void begin(duration sensor_period);

    /** A message was damaged: it may have been the answer to a question. */
    void note_damage();

    /** Asks if that is due and no frame is arriving. */
    void ask_if_due();

    /** How long to wait for frames before the next call of ask_if_due(). */
    [[nodiscard]] std::chrono::milliseconds longest_wait() const;

    /** How often the server's clock contradicted itself, as board_clock::contradictions(). */
    [[nodiscard]] unsigned contradictions() const noexcept
    {
        return earlier_contradictions_ + clock_.contradictions();
    }

    /** Sets the times of a frame that has arrived. */
    void add_times(frame &received);

private:
    using time_point = event_loop::time_point;

    [[nodiscard]] bool has_clock() const;
    void drain();
    std::optional<utc_time> time_of(uint32_t tick);
    [[nodiscard]] time_point due() const;
    [[nodiscard]] std::chrono::milliseconds time_left() const;
    void ask();
    void take_answer();

    client &server_;
    event_loop &loop_;
    board_clock clock_;
    unsigned earlier_contradictions_ = 0; /**< before reset() */
    duration sensor_period_{};
    duration lead_{};                /**< how long before the next frame of the sensors to ask */
    bool open_ = false;              /**< the last question has neither been answered nor given up */
    bool frames_have_times_ = false; /**< the server gave a time to each item of the last frame */
    time_point drained_;             /**< until then, answers to a question that was given up may arrive */
    time_point asked_;               /**< when the last question was sent */
    time_point last_frame_;          /**< when the last frame arrived */
};

} // namespace vantor

#endif
