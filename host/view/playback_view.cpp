/** @file
 * The view of a recording, with a time line.
 */
#include "view/playback_view.h"

#include <algorithm>

#include "vantor/errors.h"
#include "vantor/hub.h"

namespace vantor
{
namespace
{

/** Time between two checks whether to stop while nothing is played. */
constexpr std::chrono::milliseconds poll_interval{100};

} // namespace

playback_view::playback_view(recording_reader &recording, viewers &all, event_loop &loop)
    : viewers_(all), loop_(loop), rules_(rules()),
      board_(recording, playback_board::greeting(recording), all, loop)
{
    viewers_.set_state([this] { return state(); });
    board_.source().set_paused(true);
}

playback_view::~playback_view()
{
    viewers_.set_state({});
}

void playback_view::run(const std::function<bool()> &stop)
try
{
    while (!stop())
    {
        if (board_.ended())
        {
            wait_for_request();
        }
        else
        {
            play_frames(stop);
        }
    }
}
catch (const cancelled &) // NOLINT(bugprone-empty-catch): a request to stop
{
}

/** What viewers can ask for. */
request_rules playback_view::rules()
{
    const auto rule = [this](void (playback_view::*execute)(const viewer_request &)) {
        return request_rule{.needs_control = true, .execute = [this, execute](const viewer_request &request) {
                                (this->*execute)(request);
                            }};
    };
    request_rules all{{"check", rule(&playback_view::check)},
                      {"seek", rule(&playback_view::seek)},
                      {"speed", rule(&playback_view::set_speed)},
                      {"play", rule(&playback_view::play)},
                      {"pause", rule(&playback_view::pause)}};
    all["check"].needs_control = false;
    return all;
}

/** Derives the figures of a configuration, such as that of the recording. */
void playback_view::check(const viewer_request &request)
{
    board_.check(request);
}

/** Continues with another frame, which is shown even if the recording is paused. */
void playback_view::seek(const viewer_request &request)
{
    if (board_.ended())
    {
        board_.source().set_paused(true);
    }
    const auto last = board_.recording().frames() - 1;
    const double number = number_in(request.document, "frame", 0.0, static_cast<double>(last));
    const bool has_before = request.document.contains("before");
    const double before =
        has_before ? number_in(request.document, "before", 0.0, playback_board::longest_before) : 0.0;
    const auto target = std::min(static_cast<uint64_t>(number), last);
    viewers_.skip_frames();
    board_.show_before(target, before);
    board_.source().seek(target);
    if (board_.source().paused())
    {
        board_.show_next();
    }
}

/** Plays faster or slower. */
void playback_view::set_speed(const viewer_request &request)
{
    speed_ = number_in(request.document, "value", playback_board::slowest, playback_board::fastest);
    board_.source().set_speed(speed_);
}

/** Goes on; at the end, from the first frame. */
void playback_view::play(const viewer_request & /*request*/)
{
    if (board_.ended())
    {
        board_.source().seek(0);
    }
    board_.source().set_paused(false);
}

/** Stops at the present frame. */
void playback_view::pause(const viewer_request & /*request*/)
{
    seen_ = true;
    board_.source().set_paused(true);
}

/** Plays until the last frame. */
void playback_view::play_frames(const std::function<bool()> &stop)
{
    hub stream(board_.source(), {&board_.watch(), &viewers_}, loop_);
    stream.run({.stop = [&] {
        serve_viewers(viewers_, rules_, loop_);
        begin_with_first_viewer();
        return board_.ended() || stop();
    }});
    loop_.check_cancelled();
}

/** Begins to play when the first viewer is there. */
void playback_view::begin_with_first_viewer()
{
    if (!seen_ && viewers_.count() > 0)
    {
        seen_ = true;
        board_.source().set_paused(false);
    }
}

/** Waits at the end of the recording. */
void playback_view::wait_for_request()
{
    loop_.run_until([this] { return viewers_.has_request(); }, loop_.now() + poll_interval);
    loop_.check_cancelled();
    serve_viewers(viewers_, rules_, loop_);
}

/** The state that viewers receive. */
nlohmann::ordered_json playback_view::state() const
{
    const char *const connection = board_.ended() ? "ended" : board_.source().paused() ? "paused" : "playing";
    return board_.state(connection, speed_, board_.position(speed_));
}

} // namespace vantor
