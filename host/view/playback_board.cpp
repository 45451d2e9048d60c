/** @file
 * A recording that viewers see.
 */
#include "view/playback_board.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

#include "recording/stream_facts.h"
#include "view/view_messages.h"
#include "view/viewer_queue.h"

namespace vantor
{
namespace
{

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

playback_board::playback_board(recording_reader &recording, nlohmann::ordered_json hello, viewers &all,
                               event_loop &loop)
    : recording_(recording), viewers_(all), source_(recording, {}, loop),
      watch_(sensors_of(recording.session().configuration), loop), missing_(missing_in(recording.captures()))
{
    count_flags();
    viewers_.set_greeting(std::move(hello));
    begin_again();
}

nlohmann::ordered_json playback_board::greeting(const recording_reader &recording)
{
    const auto &directory = recording.directory();
    auto hello = hello_message(view_kind::recording, directory.filename().string(), directory.string());
    hello["recorded"] = begin_of(recording.captures());
    return hello;
}

bool playback_board::ended() const
{
    return source_.position() == recording_.frames();
}

void playback_board::show_next()
{
    const auto shown = std::make_shared<const frame>(source_.next());
    watch_.add(shown);
    viewers_.add(shown);
}

void playback_board::show_before(uint64_t target, double seconds)
{
    const auto count = std::min(target, frames_in(seconds));
    source_.seek(target - count);
    while (source_.position() < target)
    {
        viewers_.add(std::make_shared<const frame>(source_.next()));
    }
}

void playback_board::begin_again()
{
    viewers_.begin_session(session_message(++session_number_, recording_.session()));
}

void playback_board::check(const viewer_request &request)
{
    viewers_.send(request.viewer, checked_message(request.document, &recording_.session()));
}

nlohmann::ordered_json playback_board::position(double speed) const
{
    return {{"frame", std::max<uint64_t>(source_.position(), 1) - 1},
            {"frames", recording_.frames()},
            {"seconds", source_.seconds()},
            {"duration", duration_},
            {"speed", speed}};
}

nlohmann::ordered_json playback_board::state(const char *connection, double speed,
                                             nlohmann::ordered_json position) const
{
    const bool playing = std::string_view(connection) == "playing";
    nlohmann::ordered_json all{{"type", "state"},     {"connection", connection},
                               {"reason", nullptr},   {"rate_due", playing ? nominal_rate() * speed : 0.0},
                               {"recorder", nullptr}, {"memory", nullptr},
                               {"stack", nullptr},    {"position", std::move(position)}};
    watch_.add_to(all);
    all["missing"] = missing_;
    all["delayed"] = counts_.delayed;
    all["saturated"] = counts_.saturated;
    all["invalid"] = counts_.invalid;
    return all;
}

/** The number of frames in a time, or fewer if not all of them can wait for a viewer, with one more. */
uint64_t playback_board::frames_in(double seconds) const
{
    const double rate = nominal_rate();
    const viewer_queue_limits limits;
    const size_t length = recording_.session().metadata.frame_length();
    const size_t frame_bytes = std::max<size_t>(length * sizeof(sample), 1);
    // Half of the bytes, because frames have headers.
    const size_t most = std::min(limits.frames - 1, limits.bytes / 2 / frame_bytes);
    const double wanted = rate > 0.0 ? std::ceil(seconds * rate) : static_cast<double>(most);
    return seconds > 0.0 ? static_cast<uint64_t>(std::min(wanted, static_cast<double>(most))) : 0;
}

/** Frames a second at which it was measured; 0 if unknown. */
double playback_board::nominal_rate() const
{
    const auto &session = recording_.session();
    return nominal_frame_rate(session.configuration, session.metadata, session.server);
}

/** Counts the flags of all frames. */
void playback_board::count_flags()
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

} // namespace vantor
