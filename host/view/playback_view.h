/** @file
 * The view of a recording, with a time line.
 */
#ifndef VANTOR_PLAYBACK_VIEW_H
#define VANTOR_PLAYBACK_VIEW_H

#include <cstdint>
#include <functional>

#include <nlohmann/json.hpp>

#include "vantor/event_loop.h"
#include "vantor/recording_reader.h"
#include "view/playback_board.h"
#include "view/view_requests.h"
#include "view/viewers.h"

namespace vantor
{

/** Plays a recording for viewers: at any speed, from any frame on. */
class playback_view
{
public:
    /**
     * @param recording  a recording with at least one frame; must outlive this object, like viewers and loop
     * @param all        the viewers
     * @param loop       the loop of the viewers
     * @throws bad_recording if a file cannot be read
     */
    playback_view(recording_reader &recording, viewers &all, event_loop &loop);
    playback_view(const playback_view &) = delete;
    playback_view &operator=(const playback_view &) = delete;
    playback_view(playback_view &&) = delete;
    playback_view &operator=(playback_view &&) = delete;
    ~playback_view();

    /**
     * Runs until asked to stop, or event_loop::cancel().
     *
     * @param stop  called ten times a second; true ends the view
     * @throws bad_recording if a file cannot be read
     */
    void run(const std::function<bool()> &stop);

private:
    [[nodiscard]] request_rules rules();
    void check(const viewer_request &request);
    void seek(const viewer_request &request);
    void set_speed(const viewer_request &request);
    void play(const viewer_request &request);
    void pause(const viewer_request &request);

    void play_frames(const std::function<bool()> &stop);
    void begin_with_first_viewer();
    void wait_for_request();
    [[nodiscard]] nlohmann::ordered_json state() const;

    viewers &viewers_;
    event_loop &loop_;
    request_rules rules_;
    playback_board board_;
    bool seen_ = false; /**< by a viewer */
    double speed_ = 1.0;
};

} // namespace vantor

#endif
