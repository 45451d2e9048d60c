/** @file
 * Tells when frames were measured, from readings of the server's clock.
 */
#include "hub/clock_watch.h"

#include <algorithm>
#include <utility>

namespace vantor
{
namespace
{

using std::chrono::milliseconds;

/** How often the server is asked. */
constexpr std::chrono::seconds interval{1};

/** After a damaged message, answers to earlier questions arrive for this time and some frames, or never: only
 * serial lines damage messages, and these do not hold many of them. */
constexpr std::chrono::seconds longest_answer{5};
constexpr int longest_answer_frames = 3;

/** How long before a frame of the sensors to ask at first. */
constexpr std::chrono::microseconds shortest_lead{500};

} // namespace

clock_watch::clock_watch(client &server, event_loop &loop)
    : server_(server), loop_(loop), clock_(server.server().ticks_per_second)
{
}

void clock_watch::reset()
{
    earlier_contradictions_ = contradictions();
    clock_ = board_clock(server_.server().ticks_per_second);
}

void clock_watch::begin(duration sensor_period)
{
    sensor_period_ = sensor_period;
    lead_ = shortest_lead;
    open_ = false;
    drained_ = {};
    frames_have_times_ = false;
    if (has_clock())
    {
        ask();
    }
}

void clock_watch::note_damage()
{
    take_answer();
    if (open_)
    {
        drain();
    }
}

void clock_watch::ask_if_due()
{
    take_answer();
    if (time_left() == milliseconds(0) && server_.bytes_missing() == 0)
    {
        ask();
    }
}

std::chrono::milliseconds clock_watch::longest_wait() const
{
    return server_.bytes_missing() == 0 ? time_left() : milliseconds::max();
}

/** How long until a question is due, in whole milliseconds; 0 if it is due within the next one. */
std::chrono::milliseconds clock_watch::time_left() const
{
    return std::chrono::floor<milliseconds>(std::max(due() - loop_.now(), duration(0)));
}

void clock_watch::add_times(frame &received)
{
    take_answer();
    last_frame_ = loop_.now();
    frames_have_times_ = true;
    for (size_t i = 0; i < received.items().size(); ++i)
    {
        const auto &item = received.items()[i];
        if (!item.utc)
        {
            frames_have_times_ = false;
            received.set_utc(i, time_of(item.tick));
        }
    }
}

/** When a tick of a frame that has just arrived was; nothing while that is not known. */
std::optional<utc_time> clock_watch::time_of(uint32_t tick)
{
    const auto bounds = clock_.bounds(tick, last_frame_);
    if (!bounds)
    {
        return std::nullopt;
    }
    // Half a nanosecond of the middle is lost.
    return utc_time{.moment = loop_.utc(bounds->middle()), .bound = bounds->width() / 2 + duration(1)};
}

/** Whether the server has a clock. */
bool clock_watch::has_clock() const
{
    return server_.server().ticks_per_second > 0.0;
}

/** When to ask again. */
clock_watch::time_point clock_watch::due() const
{
    if (!has_clock() || frames_have_times_ || server_.clock_asked())
    {
        return time_point::max();
    }
    const auto next = std::max(asked_ + interval, drained_);
    if (sensor_period_ == duration(0))
    {
        return next;
    }
    const auto before_frame = last_frame_ + sensor_period_ - lead_;
    return before_frame >= next ? before_frame : std::max(next, before_frame + sensor_period_);
}

/** Sends a question. */
void clock_watch::ask()
{
    asked_ = loop_.now();
    open_ = true;
    server_.ask_clock();
}

/** Gives the last question up, and asks no more until no answer to it can arrive. */
void clock_watch::drain()
{
    open_ = false;
    server_.give_up_clock();
    drained_ = loop_.now() + longest_answer + longest_answer_frames * sensor_period_;
}

/** Takes the answer to the last question, if it has arrived. */
void clock_watch::take_answer()
{
    if (!open_ || server_.clock_asked())
    {
        return;
    }
    open_ = false;
    const auto reading = server_.take_clock();
    if (!reading)
    {
        drain();
        return;
    }
    clock_.add(*reading);
    const bool late = reading->received - reading->sent > lead_ + sensor_period_ / 2;
    if (late && sensor_period_ > duration(0))
    {
        lead_ = std::min(2 * lead_, sensor_period_ / 2);
    }
}

} // namespace vantor
