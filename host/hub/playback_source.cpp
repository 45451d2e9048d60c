/** @file
 * A recording as a source of frames.
 */
#include "hub/playback_source.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** Opens the truth of a recording; nothing if there is none, or it cannot be read. */
std::optional<truth_frames> truth_to_play(const recording_reader &recording, event_loop &loop)
try
{
    const auto stop = [&loop] { loop.check_cancelled(); };
    return recording.has_truth() ? std::optional<truth_frames>(std::in_place, recording, stop) : std::nullopt;
}
catch (const bad_recording &)
{
    return std::nullopt;
}

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
    : recording_(recording), loop_(loop), pace_(options.speed), endless_(options.endless),
      metadata_(std::make_shared<const session_metadata>(recording.session().metadata)),
      tick_period_(nominal_tick_period(recording.session())), gap_index_(recording),
      gaps_(gap_index_.before(0)), truth_(truth_to_play(recording, loop))
{
    for (size_t i = 0; i < recording.items().size(); ++i)
    {
        tables_.push_back(recording.open_table(i));
    }
    pace_.start(0.0, loop.now());
}

void playback_source::start()
{
    if (!exhausted())
    {
        pace_.start(next_seconds(), loop_.now());
    }
}

std::optional<frame> playback_source::receive(std::chrono::milliseconds timeout)
{
    const auto most = loop_.now() + timeout;
    do
    {
        const auto due = next_due();
        // Work of the loop may change when it is due.
        loop_.run_until([&] { return loop_.now() >= due || next_due() != due; }, std::min(most, due));
        loop_.check_cancelled();
        if (loop_.now() >= next_due())
        {
            return next();
        }
    } while (loop_.now() < most);
    return std::nullopt;
}

bool playback_source::exhausted() const
{
    return !endless_ && number_ == recording_.frames();
}

event_loop::time_point::duration playback_source::time_until_due()
{
    return next_due() - loop_.now();
}

void playback_source::seek(uint64_t number)
{
    more_seconds_ = 0.0;
    more_ticks_ = 0;
    more_missing_ = 0;
    first_lap_ = true;
    go_to(std::min(number, recording_.frames() - 1));
    enter_segment_before(number_);
    seconds_ = last_.seconds;
    pace_.start(next_seconds(), loop_.now());
}

void playback_source::set_paused(bool paused)
{
    pace_.set_paused(paused, exhausted() ? last_.seconds : next_seconds(), loop_.now());
}

void playback_source::set_speed(double speed)
{
    pace_.set_speed(speed, exhausted() ? last_.seconds : next_seconds(), loop_.now());
}

/** Goes to a frame of the current lap. */
void playback_source::go_to(uint64_t number)
{
    rows_.reset();
    number_ = number;
    gaps_ = gap_index_.before(number);
    last_ = {};
    if (number > 0)
    {
        tables_.front().seek(number - 1);
        last_ = tables_.front().require();
    }
    for (auto &table : tables_)
    {
        table.seek(number);
    }
    seek_truth(number);
}

/** Goes to the truth of a frame. Frames are played also if it cannot be read. */
void playback_source::seek_truth(uint64_t number)
{
    try
    {
        if (truth_)
        {
            truth_->seek(number);
        }
    }
    catch (const bad_recording &)
    {
        truth_.reset();
    }
}

/** Enters the segment of the frame before a frame, so that the frame itself can begin one. */
void playback_source::enter_segment_before(uint64_t number)
{
    segment first;
    const segment *last = &first;
    uint64_t breaks = 0;
    for (const auto &part : gap_index_.captures())
    {
        if (!endless_ && part.first_frame < number && part.begins)
        {
            last = &*part.begins;
            ++breaks;
        }
    }
    enter(*last, breaks);
}

/** Returns to the first frame, one frame period after the last one. */
void playback_source::begin_lap()
{
    more_seconds_ += last_.seconds + period();
    more_ticks_ = tick_after_last();
    more_missing_ += gaps_.missing();
    first_lap_ = false;
    go_to(0);
    more_ticks_ -= peek().front().tick;
}

/** Reads the rows of the next frame, unless that has been done. */
const playback_source::frame_rows &playback_source::peek()
{
    if (rows_)
    {
        return *rows_;
    }
    if (number_ == recording_.frames() && endless_)
    {
        begin_lap();
        return *rows_;
    }
    frame_rows rows;
    for (auto &table : tables_)
    {
        rows.push_back(table.require());
    }
    rows_ = std::move(rows);
    const auto *const part = gaps_.next_capture();
    if (endless_ && part != nullptr && part->begins)
    {
        leave_out_break(rows_->front());
    }
    return *rows_;
}

/** The time of the next frame. */
double playback_source::next_seconds()
{
    // First, because it may begin a lap.
    const double recorded = peek().front().seconds;
    return more_seconds_ + recorded;
}

/** When the next frame is due; never if there is none. */
event_loop::time_point playback_source::next_due()
{
    return exhausted() ? event_loop::time_point::max() : pace_.due(next_seconds());
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
    const auto *const part = gaps_.next_capture();
    if (part != nullptr && part->begins && !endless_)
    {
        enter(*part->begins, segment_.number + 1);
    }
    gaps_.add(row.tick, row.frame_delayed);
}

/** Enters a segment, with its number in the recording. */
void playback_source::enter(const segment &begun, uint64_t number)
{
    segment_ = begun;
    segment_.number = number;
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

/** Adds what the sensors should have found to the next frame. */
void playback_source::add_truth(frame &played)
{
    frame_truth known;
    known.items.resize(played.items().size());
    for (const auto &line : truth_->move_to(number_))
    {
        for (size_t i = 0; i < known.items.size(); ++i)
        {
            const auto &item = played.items()[i];
            if (item.layout->group == line.group && item.layout->index == line.item)
            {
                known.items[i] = line.truth;
                known.items[i]->tick = item.tick;
            }
        }
    }
    played.set_truth(std::make_shared<const frame_truth>(std::move(known)));
}

frame playback_source::next()
{
    const auto rows = peek();
    note_place(rows.front());
    std::vector<frame_item> items;
    for (const auto &row : rows)
    {
        auto &item = items.emplace_back(item_of(row, more_ticks_));
        // Frames that are repeated follow later than their times.
        item.utc = first_lap_ ? row.utc : std::nullopt;
    }
    auto played = make_frame(metadata_, read_samples(), std::move(items));
    if (truth_)
    {
        add_truth(played);
    }
    last_ = rows.front();
    played.set_missing(more_missing_ + gaps_.missing());
    seconds_ = more_seconds_ + last_.seconds;
    played.set_seconds(seconds_, ticks_per_second());
    rows_.reset();
    ++number_;
    return played;
}

} // namespace vantor
