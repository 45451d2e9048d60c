/** @file
 * The view of the recordings of several boards, on one axis of time.
 */
#include "view/boards_playback.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <utility>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

/** Time between two checks whether to stop while nothing is played. */
constexpr std::chrono::milliseconds boards_poll_interval{100};

/** A moment in seconds since 1970. */
double seconds_of(const utc_time &utc)
{
    return std::chrono::duration<double>(utc.moment.time_since_epoch()).count();
}

/** The first known time of a recording minus its seconds since the first frame; NaN if no time is known. */
double offset_of(frame_table table, uint64_t frames)
{
    for (uint64_t number = 0; number < frames; ++number)
    {
        if (const auto row = table.require(); row.utc)
        {
            return seconds_of(*row.utc) - row.seconds;
        }
    }
    return std::numeric_limits<double>::quiet_NaN();
}

} // namespace

boards_playback::board::board(recording_reader &recording, nlohmann::ordered_json hello, viewers &served,
                              event_loop &loop)
    : all(served), frames(recording, std::move(hello), served, loop), table_(recording.open_table(0)),
      offset_(offset_of(recording.open_table(0), recording.frames()))
{
}

double boards_playback::board::time_of(const frame_row &row) const
{
    return row.utc ? seconds_of(*row.utc) : row.seconds + offset_;
}

double boards_playback::board::time_of(uint64_t number)
{
    table_.seek(number);
    return time_of(table_.require());
}

double boards_playback::board::next_time()
{
    return frames.ended() ? std::numeric_limits<double>::infinity() : time_of(frames.source().next_row());
}

uint64_t boards_playback::board::frame_in(const viewer_request &request) const
{
    const auto last = frames.recording().frames() - 1;
    const double number = number_in(request.document, "frame", 0.0, static_cast<double>(last));
    return std::min(static_cast<uint64_t>(number), last);
}

void boards_playback::board::show_at(double time, double seconds_before)
{
    all.skip_frames();
    const auto count = frames_until(time);
    if (count == 0)
    {
        frames.begin_again();
        frames.source().seek(0);
        return;
    }
    frames.show_before(count - 1, seconds_before);
    frames.show_next();
}

/** The number of frames at or before a time. */
uint64_t boards_playback::board::frames_until(double time)
{
    uint64_t low = 0;
    uint64_t high = frames.recording().frames();
    while (low < high)
    {
        const auto middle = low + (high - low) / 2;
        if (time_of(middle) <= time)
        {
            low = middle + 1;
        }
        else
        {
            high = middle;
        }
    }
    return low;
}

boards_playback::~boards_playback()
{
    for (auto &one : boards_)
    {
        one.all.set_state({});
    }
}

void boards_playback::add(recording_reader &recording, nlohmann::ordered_json hello, viewers &all)
{
    auto &one = boards_.emplace_back(recording, std::move(hello), all, loop_);
    one.rules = rules_of(one);
    all.set_state([this, &one] { return state_of(one); });
}

void boards_playback::run(const std::function<bool()> &stop)
try
{
    find_ends();
    set_paused(true);
    pace_.start(0.0, loop_.now());
    while (!stop())
    {
        serve();
        show_or_wait();
    }
}
catch (const cancelled &) // NOLINT(bugprone-empty-catch): a request to stop
{
}

/** What viewers of a board can ask for. */
request_rules boards_playback::rules_of(board &one)
{
    const auto act = [](auto action) { return request_rule{.needs_control = true, .execute = action}; };
    return {{"check",
             {.needs_control = false,
              .execute = [&one](const viewer_request &request) { one.frames.check(request); }}},
            {"seek", act([this, &one](const viewer_request &request) { seek(request, one); })},
            {"speed", act([this](const viewer_request &request) { set_speed(request); })},
            {"play", act([this](const viewer_request & /*request*/) { play(); })},
            {"pause", act([this](const viewer_request & /*request*/) {
                 seen_ = true;
                 set_paused(true);
             })}};
}

/** Goes to a time, or to that of a frame of a board, which is shown even if the recordings are paused. */
void boards_playback::seek(const viewer_request &request, board &one)
{
    const double time = request.document.contains("frame")
                            ? one.time_of(one.frame_in(request))
                            : number_in(request.document, "utc_s", 0.0, std::numeric_limits<double>::max());
    const bool has_before = request.document.contains("before");
    const double before =
        has_before ? number_in(request.document, "before", 0.0, playback_board::longest_before) : 0.0;
    if (ended())
    {
        set_paused(true);
    }
    go_to(std::clamp(time, begin_, end_), before);
}

/** Goes to a time of the axis. */
void boards_playback::go_to(double time, double seconds_before)
{
    position_ = time;
    for (auto &one : boards_)
    {
        one.show_at(time, seconds_before);
    }
    pace_.start(time - begin_, loop_.now());
}

/** Plays faster or slower. */
void boards_playback::set_speed(const viewer_request &request)
{
    speed_ = number_in(request.document, "value", playback_board::slowest, playback_board::fastest);
    pace_.set_speed(speed_, next_seconds(), loop_.now());
}

/** Goes on; at the end, from the begin. */
void boards_playback::play()
{
    if (ended())
    {
        go_to(begin_, 0.0);
    }
    set_paused(false);
}

/** Stops or goes on. */
void boards_playback::set_paused(bool paused)
{
    pace_.set_paused(paused, next_seconds(), loop_.now());
}

/** Finds where the axis begins and ends. */
void boards_playback::find_ends()
{
    begin_ = std::numeric_limits<double>::infinity();
    for (auto &one : boards_)
    {
        begin_ = std::fmin(begin_, one.time_of(uint64_t{0}));
    }
    begin_ = std::isfinite(begin_) ? begin_ : 0.0;
    end_ = begin_;
    for (auto &one : boards_)
    {
        if (std::isnan(one.offset()))
        {
            one.set_offset(begin_);
        }
        end_ = std::max(end_, one.time_of(one.frames.recording().frames() - 1));
    }
    position_ = begin_;
}

/** Executes what viewers have asked for; plays when the first one is there. */
void boards_playback::serve()
{
    bool has_viewer = false;
    for (auto &one : boards_)
    {
        serve_viewers(one.all, one.rules, loop_);
        has_viewer = has_viewer || one.all.count() > 0;
    }
    if (has_viewer && !std::exchange(seen_, true))
    {
        set_paused(false);
    }
}

/** Shows the next frame of all boards if it is due; otherwise waits a short time for that, or for a request.
 */
void boards_playback::show_or_wait()
{
    auto *const next = next_board();
    const double seconds = next_seconds();
    const auto due = next != nullptr ? pace_.due(seconds) : event_loop::time_point::max();
    const auto most = loop_.now() + boards_poll_interval;
    loop_.run_until([this] { return has_request(); }, std::min(most, due));
    loop_.check_cancelled();
    if (next != nullptr && loop_.now() >= due)
    {
        position_ = begin_ + seconds;
        next->frames.show_next();
    }
}

/** The board with the earliest next frame; null at the end of all. */
boards_playback::board *boards_playback::next_board()
{
    board *first = nullptr;
    double earliest = std::numeric_limits<double>::infinity();
    for (auto &one : boards_)
    {
        if (const double time = one.next_time(); time < earliest)
        {
            earliest = time;
            first = &one;
        }
    }
    return first;
}

/** The time of the next frame of all boards since the begin; at the end, that of the end. */
double boards_playback::next_seconds()
{
    auto *const next = next_board();
    return (next != nullptr ? next->next_time() : end_) - begin_;
}

/** Whether a viewer has asked for something. */
bool boards_playback::has_request() const
{
    return std::any_of(boards_.begin(), boards_.end(),
                       [](const board &one) { return one.all.has_request(); });
}

/** Whether the last frame of every board has been shown. */
bool boards_playback::ended() const
{
    return std::all_of(boards_.begin(), boards_.end(), [](const board &one) { return one.frames.ended(); });
}

/** The state that viewers of a board receive. */
nlohmann::ordered_json boards_playback::state_of(const board &one) const
{
    const char *const connection = ended() ? "ended" : pace_.paused() ? "paused" : "playing";
    auto position = one.frames.position(speed_);
    position["utc_s"] = position_;
    position["begin_utc_s"] = begin_;
    position["end_utc_s"] = end_;
    return one.frames.state(connection, speed_, std::move(position));
}

} // namespace vantor
