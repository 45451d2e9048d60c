/** @file
 * The view of a recording, with a time line.
 */
#include "view/playback_view.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

#include "recording/stream_facts.h"
#include "vantor/errors.h"
#include "vantor/hub.h"
#include "view/view_messages.h"
#include "view/viewer_queue.h"

namespace vantor
{
namespace
{

/** Time between two checks whether to stop while nothing is played. */
constexpr std::chrono::milliseconds poll_interval{100};

/** Speeds that viewers can choose. */
constexpr double slowest = 0.01;
constexpr double fastest = 1000.0;

/** How much viewers can ask to see before another frame, in seconds. */
constexpr double longest_before = 60.0;

/** Counts the flags of an item's frames. */
frame_figures figures_of(const recording_reader &recording, size_t item)
{
    auto table = recording.open_table(item);
    frame_figures figures;
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        figures.add(table.require());
    }
    return figures;
}

/** The number of frames missing in a recording. */
uint64_t missing_in(const std::vector<capture> &captures)
{
    return captures.empty() ? 0 : captures.back().frames_missing;
}

/** When a recording began; null if that is not known. */
nlohmann::ordered_json begin_of(const std::vector<capture> &captures)
{
    const bool known = !captures.empty() && !captures.front().datetime.empty();
    return known ? nlohmann::ordered_json(captures.front().datetime) : nlohmann::ordered_json();
}

} // namespace

playback_view::playback_view(recording_reader &recording, viewers &all, event_loop &loop)
    : recording_(recording), viewers_(all), loop_(loop), rules_(rules()), source_(recording, {}, loop),
      watch_(sensors_of(recording.session().configuration), loop), missing_(missing_in(recording.captures()))
{
    count_flags();
    const auto &directory = recording.directory();
    auto hello = hello_message(view_kind::recording, directory.filename().string(), directory.string());
    hello["recorded"] = begin_of(recording.captures());
    viewers_.set_greeting(std::move(hello));
    viewers_.set_state([this] { return state(); });
    viewers_.begin_session(session_message(1, recording.session()));
    source_.set_paused(true);
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
        if (ended())
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
    viewers_.send(request.viewer, checked_message(request.document, &recording_.session()));
}

/** Continues with another frame, which is shown even if the recording is paused. */
void playback_view::seek(const viewer_request &request)
{
    if (ended())
    {
        source_.set_paused(true);
    }
    const auto last = recording_.frames() - 1;
    const double number = number_in(request.document, "frame", 0.0, static_cast<double>(last));
    const bool has_before = request.document.contains("before");
    const double before = has_before ? number_in(request.document, "before", 0.0, longest_before) : 0.0;
    const auto target = std::min(static_cast<uint64_t>(number), last);
    viewers_.skip_frames();
    show_before(target, before);
    source_.seek(target);
    if (source_.paused())
    {
        show_next();
    }
}

/** Shows the frames before another one at once, for pictures over time. */
void playback_view::show_before(uint64_t target, double seconds)
{
    const auto count = std::min(target, frames_in(seconds));
    source_.seek(target - count);
    while (source_.position() < target)
    {
        viewers_.add(std::make_shared<const frame>(source_.next()));
    }
}

/** The number of frames in a time, or fewer if not all of them can wait for a viewer, with one more. */
uint64_t playback_view::frames_in(double seconds) const
{
    const auto &session = recording_.session();
    const double rate = nominal_frame_rate(session.configuration, session.metadata, session.server);
    const viewer_queue_limits limits;
    const size_t frame_bytes = std::max<size_t>(session.metadata.frame_length() * sizeof(sample), 1);
    // Half of the bytes, because frames have headers.
    const size_t most = std::min(limits.frames - 1, limits.bytes / 2 / frame_bytes);
    const double wanted = rate > 0.0 ? std::ceil(seconds * rate) : static_cast<double>(most);
    return seconds > 0.0 ? static_cast<uint64_t>(std::min(wanted, static_cast<double>(most))) : 0;
}

/** Plays faster or slower. */
void playback_view::set_speed(const viewer_request &request)
{
    speed_ = number_in(request.document, "value", slowest, fastest);
    source_.set_speed(speed_);
}

/** Goes on; at the end, from the first frame. */
void playback_view::play(const viewer_request & /*request*/)
{
    if (ended())
    {
        source_.seek(0);
    }
    source_.set_paused(false);
}

/** Stops at the present frame. */
void playback_view::pause(const viewer_request & /*request*/)
{
    seen_ = true;
    source_.set_paused(true);
}

/** Plays until the last frame. */
void playback_view::play_frames(const std::function<bool()> &stop)
{
    hub stream(source_, {&watch_, &viewers_}, loop_);
    stream.run({.stop = [&] {
        serve_viewers(viewers_, rules_, loop_);
        begin_with_first_viewer();
        return ended() || stop();
    }});
    loop_.check_cancelled();
}

/** Begins to play when the first viewer is there. */
void playback_view::begin_with_first_viewer()
{
    if (!seen_ && viewers_.count() > 0)
    {
        seen_ = true;
        source_.set_paused(false);
    }
}

/** Waits at the end of the recording. */
void playback_view::wait_for_request()
{
    loop_.run_until([this] { return viewers_.has_request(); }, loop_.now() + poll_interval);
    loop_.check_cancelled();
    serve_viewers(viewers_, rules_, loop_);
}

/** Shows the next frame although the recording is paused. */
void playback_view::show_next()
{
    const auto shown = std::make_shared<const frame>(source_.next());
    watch_.add(shown);
    viewers_.add(shown);
}

/** Counts the flags of all frames. */
void playback_view::count_flags()
{
    for (size_t i = 0; i < recording_.items().size(); ++i)
    {
        const auto figures = figures_of(recording_, i);
        counts_.saturated += figures.saturated;
        counts_.delayed += figures.delayed;
        counts_.invalid += figures.channel.invalid;
        duration_ = std::max(duration_, figures.seconds);
    }
}

/** Whether the last frame has been shown. */
bool playback_view::ended() const
{
    return source_.position() == recording_.frames();
}

/** Where the view is in the recording. */
nlohmann::ordered_json playback_view::position() const
{
    return {{"frame", std::max<uint64_t>(source_.position(), 1) - 1},
            {"frames", recording_.frames()},
            {"seconds", source_.seconds()},
            {"duration", duration_},
            {"speed", speed_}};
}

/** The state that viewers receive. */
nlohmann::ordered_json playback_view::state() const
{
    const auto &session = recording_.session();
    const bool playing = !ended() && !source_.paused();
    const double rate = nominal_frame_rate(session.configuration, session.metadata, session.server) * speed_;
    nlohmann::ordered_json all{
        {"type", "state"},     {"connection", ended() ? "ended" : source_.paused() ? "paused" : "playing"},
        {"reason", nullptr},   {"rate_due", playing ? rate : 0.0},
        {"recorder", nullptr}, {"memory", nullptr},
        {"stack", nullptr},    {"position", position()}};
    watch_.add_to(all);
    all["missing"] = missing_;
    all["delayed"] = counts_.delayed;
    all["saturated"] = counts_.saturated;
    all["invalid"] = counts_.invalid;
    return all;
}

} // namespace vantor
