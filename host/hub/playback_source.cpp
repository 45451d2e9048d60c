/** @file
 * A recording as a source of frames.
 */
#include "hub/playback_source.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace vantor
{
namespace
{

/** More time than anybody waits for a frame; longer spans might not be representable. */
constexpr double longest_pause = 1e9;

/** Copies what the frame table says about an item. */
frame_item item_of(const frame_row &row, uint32_t more_ticks)
{
    frame_item item;
    item.tick = row.tick + more_ticks;
    item.temperature = row.temperature;
    item.data_saturated = row.data_saturated;
    item.calibration_needed = row.calibration_needed;
    item.frame_delayed = row.frame_delayed;
    item.data_valid = row.data_valid;
    item.cca_value = row.cca_value;
    item.cca_detected = row.cca_detected;
    item.tx_enabled = row.tx_enabled;
    return item;
}

} // namespace

playback_source::playback_source(recording_reader &recording, playback_options options, event_loop &loop)
    : recording_(recording), options_(options), loop_(loop),
      metadata_(std::make_shared<const session_metadata>(recording.session().metadata)),
      tick_period_(nominal_tick_period(recording.session())), captures_(recording.captures()),
      started_(loop.now())
{
    open_tables();
}

void playback_source::start()
{
    started_ = loop_.now();
    if (!exhausted())
    {
        const double seconds = peek().front().seconds;
        first_seconds_ = more_seconds_ + seconds;
    }
}

std::optional<frame> playback_source::receive(std::chrono::milliseconds timeout)
{
    const auto most = loop_.now() + timeout;
    if (exhausted())
    {
        loop_.run_until([] { return false; }, most);
        loop_.check_cancelled();
        return std::nullopt;
    }
    const auto due = [this] { return time_until_due().count() <= 0; };
    if (!loop_.run_until(due, std::min(most, loop_.now() + time_until_due())))
    {
        loop_.check_cancelled();
        return std::nullopt;
    }
    return next();
}

bool playback_source::exhausted() const
{
    return !options_.endless && number_ == recording_.frames();
}

event_loop::time_point::duration playback_source::time_until_due()
{
    using seconds = std::chrono::duration<double>;
    const double recorded = peek().front().seconds;
    const double after_start = (more_seconds_ + recorded - first_seconds_) / options_.speed;
    const double elapsed = seconds(loop_.now() - started_).count();
    // Rounded, so that a time of the table is not missed by a fraction of a nanosecond.
    return std::chrono::round<std::chrono::nanoseconds>(
        seconds(std::min(longest_pause, after_start - elapsed)));
}

void playback_source::rewind()
{
    more_seconds_ = 0.0;
    more_ticks_ = 0;
    more_missing_ = 0;
    segment_ = {};
    open_tables();
}

/** Opens the frame tables of all items at their first row. */
void playback_source::open_tables()
{
    number_ = 0;
    capture_ = 0;
    missing_ = 0;
    rows_.reset();
    gaps_.emplace(captures_, period_of_unlisted_gaps(recording_.session(), recording_.finished(), captures_));
    tables_.clear();
    for (size_t i = 0; i < recording_.items().size(); ++i)
    {
        tables_.push_back(recording_.open_table(i));
    }
}

/** Returns to the first frame, one frame period after the last one. */
void playback_source::begin_lap()
{
    more_seconds_ += last_.seconds + period();
    more_ticks_ = tick_after_last();
    more_missing_ += missing_;
    open_tables();
    more_ticks_ -= peek().front().tick;
}

/** Reads the rows of the next frame, unless that has been done. */
const playback_source::frame_rows &playback_source::peek()
{
    if (rows_)
    {
        return *rows_;
    }
    if (number_ == recording_.frames() && options_.endless)
    {
        begin_lap();
        return *rows_;
    }
    rows_.emplace();
    for (auto &table : tables_)
    {
        rows_->push_back(table.require());
    }
    if (options_.endless && at_capture() && captures_[capture_].begins)
    {
        leave_out_break(rows_->front());
    }
    return *rows_;
}

/** Whether a capture begins with the next frame. */
bool playback_source::at_capture() const noexcept
{
    return capture_ < captures_.size() && captures_[capture_].first_frame == number_;
}

/** Lets the next frame follow the last one after one frame period. */
void playback_source::leave_out_break(const frame_row &next)
{
    more_seconds_ += last_.seconds + period() - next.seconds;
    more_ticks_ = tick_after_last() - next.tick;
}

/** Notes the segment of the next frame, and how many frames are missing before it. */
void playback_source::note_place(const frame_row &row)
{
    gaps_->add(row.tick, row.frame_delayed);
    if (at_capture())
    {
        const auto &begun = captures_[capture_++];
        if (begun.begins && !options_.endless)
        {
            const auto number = segment_.number + 1;
            segment_ = *begun.begins;
            segment_.number = number;
        }
    }
    missing_ = gaps_->found().missing();
}

double playback_source::ticks_per_second() const noexcept
{
    return recording_.session().server.ticks_per_second;
}

/** The frame period in seconds: the nominal one, or else the mean of the frames so far. */
double playback_source::period() const noexcept
{
    if (tick_period_ > 0.0)
    {
        return tick_period_ / ticks_per_second();
    }
    const bool known = number_ > 1 && last_.seconds > 0.0;
    return known ? last_.seconds / static_cast<double>(number_ - 1) : 1.0;
}

/** The tick one frame period after the last frame. */
uint32_t playback_source::tick_after_last() const noexcept
{
    return last_.tick + more_ticks_ + static_cast<uint32_t>(std::llround(period() * ticks_per_second()));
}

/** Reads the samples of all items in the next frame. */
std::vector<sample> playback_source::read_samples()
{
    std::vector<sample> all;
    std::vector<sample> samples;
    for (size_t i = 0; i < recording_.items().size(); ++i)
    {
        recording_.read_frame(i, number_, samples);
        all.insert(all.end(), samples.begin(), samples.end());
    }
    return all;
}

frame playback_source::next()
{
    const auto rows = peek();
    note_place(rows.front());
    std::vector<frame_item> items;
    for (const auto &row : rows)
    {
        items.push_back(item_of(row, more_ticks_));
    }
    auto played = make_frame(metadata_, read_samples(), std::move(items));
    last_ = rows.front();
    played.set_missing(more_missing_ + missing_);
    played.set_seconds(more_seconds_ + last_.seconds, ticks_per_second());
    rows_.reset();
    ++number_;
    return played;
}

} // namespace vantor
