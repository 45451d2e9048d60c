/** @file
 * A recording that viewers see.
 */
#ifndef VANTOR_PLAYBACK_BOARD_H
#define VANTOR_PLAYBACK_BOARD_H

#include <cstdint>

#include <nlohmann/json.hpp>

#include "hub/playback_source.h"
#include "vantor/event_loop.h"
#include "vantor/flag_counts.h"
#include "vantor/recording_reader.h"
#include "view/stream_watch.h"
#include "view/view_requests.h"
#include "view/viewers.h"

namespace vantor
{

/** The recording of a board: its frames on their way to viewers, and what viewers are told about it. */
class playback_board
{
public:
    /** How much viewers can ask to see before another frame, in seconds. */
    static constexpr double longest_before = 60.0;

    /** Speeds that viewers can choose. */
    static constexpr double slowest = 0.01;
    static constexpr double fastest = 1000.0;

    /**
     * Announces the recording to viewers.
     *
     * @param recording  a recording with at least one frame; must outlive this object, like viewers and loop
     * @param hello      what viewers receive first
     * @param all        the viewers
     * @param loop       the loop of the viewers
     * @throws bad_recording if a file cannot be read
     */
    playback_board(recording_reader &recording, nlohmann::ordered_json hello, viewers &all, event_loop &loop);

    /** The greeting for viewers of a recording. */
    static nlohmann::ordered_json greeting(const recording_reader &recording);

    [[nodiscard]] const recording_reader &recording() const noexcept
    {
        return recording_;
    }

    /** The frames. */
    [[nodiscard]] playback_source &source() noexcept
    {
        return source_;
    }

    [[nodiscard]] const playback_source &source() const noexcept
    {
        return source_;
    }

    /** What counts the frames that are played. */
    [[nodiscard]] stream_watch &watch() noexcept
    {
        return watch_;
    }

    /** Whether the last frame has been shown. */
    [[nodiscard]] bool ended() const;

    /** Shows the next frame now. */
    void show_next();

    /** Shows the frames before another one now, for pictures over time; as many as can wait for a viewer. */
    void show_before(uint64_t target, double seconds);

    /** Announces the recording again: pictures begin without frames. */
    void begin_again();

    /** Answers a request with the figures of a configuration, such as that of the recording. */
    void check(const viewer_request &request);

    /** Where the view is in the recording. */
    [[nodiscard]] nlohmann::ordered_json position(double speed) const;

    /**
     * The state that viewers receive.
     *
     * @param connection  "playing", "paused" or "ended"
     * @param speed       how many times as fast as measured
     * @param position    where the view is
     */
    [[nodiscard]] nlohmann::ordered_json state(const char *connection, double speed,
                                               nlohmann::ordered_json position) const;

private:
    [[nodiscard]] uint64_t frames_in(double seconds) const;
    [[nodiscard]] double nominal_rate() const;
    void count_flags();

    recording_reader &recording_;
    viewers &viewers_;
    playback_source source_;
    stream_watch watch_;
    uint64_t session_number_ = 0;
    double duration_ = 0.0; /**< from the first to the last frame, in seconds */
    uint64_t missing_;      /**< in the whole recording, as are the next */
    flag_counts counts_;
};

} // namespace vantor

#endif
