/** @file
 * The view of the recordings of several boards, on one axis of time.
 */
#ifndef VANTOR_BOARDS_PLAYBACK_H
#define VANTOR_BOARDS_PLAYBACK_H

#include <cstdint>
#include <functional>
#include <list>

#include <nlohmann/json.hpp>

#include "hub/playback_pace.h"
#include "vantor/event_loop.h"
#include "vantor/frame_table.h"
#include "vantor/recording_reader.h"
#include "view/playback_board.h"
#include "view/view_requests.h"
#include "view/viewers.h"

namespace vantor
{

/**
 * Plays the recordings of several boards for their viewers: frames that were measured at the same time in UTC
 * are shown at the same time. What a viewer of one board asks for moves all of them. A board whose time is
 * not known begins with the first of the others.
 */
class boards_playback
{
public:
    /** @param loop  the loop of all viewers; must outlive this object */
    explicit boards_playback(event_loop &loop) noexcept : loop_(loop)
    {
    }
    boards_playback(const boards_playback &) = delete;
    boards_playback &operator=(const boards_playback &) = delete;
    boards_playback(boards_playback &&) = delete;
    boards_playback &operator=(boards_playback &&) = delete;
    ~boards_playback();

    /**
     * Adds a board.
     *
     * @param recording  with at least one frame; must outlive this object, like the viewers
     * @param hello      what viewers receive first
     * @param all        the viewers
     * @throws bad_recording if a file cannot be read
     */
    void add(recording_reader &recording, nlohmann::ordered_json hello, viewers &all);

    /**
     * Runs until asked to stop, or event_loop::cancel().
     *
     * @param stop  called ten times a second; true ends the view
     * @throws bad_recording if a file cannot be read
     */
    void run(const std::function<bool()> &stop);

private:
    /** A board, and where its frames are on the axis. */
    class board
    {
    public:
        board(recording_reader &recording, nlohmann::ordered_json hello, viewers &served, event_loop &loop);

        /** The first known time minus its seconds since the first frame; NaN if no time is known. */
        [[nodiscard]] double offset() const noexcept
        {
            return offset_;
        }

        /** Sets it for a board whose time is not known. */
        void set_offset(double offset) noexcept
        {
            offset_ = offset;
        }

        /** When a frame was measured, in seconds since 1970 in UTC. */
        [[nodiscard]] double time_of(const frame_row &row) const;

        /** The same of a frame by its number. */
        [[nodiscard]] double time_of(uint64_t number);

        /** The same of the next frame; infinite after the last one. */
        [[nodiscard]] double next_time();

        /** The number of the frame that a request names; throws request_error if there is none. */
        [[nodiscard]] uint64_t frame_in(const viewer_request &request) const;

        /** Goes to the last frame at or before a time, after those in a time before it. */
        void show_at(double time, double seconds_before);

        viewers &all;
        playback_board frames;
        request_rules rules;

    private:
        uint64_t frames_until(double time);

        frame_table table_;
        double offset_;
    };

    request_rules rules_of(board &one);
    void seek(const viewer_request &request, board &one);
    void go_to(double time, double seconds_before);
    void set_speed(const viewer_request &request);
    void play();
    void set_paused(bool paused);
    void find_ends();
    void serve();
    void show_or_wait();
    [[nodiscard]] board *next_board();
    [[nodiscard]] double next_seconds();
    [[nodiscard]] bool has_request() const;
    [[nodiscard]] bool ended() const;
    [[nodiscard]] nlohmann::ordered_json state_of(const board &one) const;

    event_loop &loop_;
    std::list<board> boards_;
    playback_pace pace_{1.0}; /**< in seconds since the begin */
    double speed_ = 1.0;
    double begin_ = 0.0; /**< of the axis, in seconds since 1970 in UTC, as are the next */
    double end_ = 0.0;
    double position_ = 0.0;
    bool seen_ = false; /**< by a viewer */
};

} // namespace vantor

#endif
