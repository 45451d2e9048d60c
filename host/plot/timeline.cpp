/** @file
 * When the frames of an item were measured, and where frames are missing.
 */
#include "plot/timeline.h"

#include <algorithm>
#include <map>
#include <utility>

#include "recording/capture_list.h"
#include "vantor/session_description.h"

namespace vantor
{
namespace
{

/** The rate at which the frames of a recording were due; 0 if unknown. */
double nominal_rate(const recording_reader &recording)
{
    const auto &session = recording.session();
    return nominal_frame_rate(session.configuration, session.metadata, session.server);
}

/** The number of frames that are usually missing between two frames, because the sensors need longer. */
uint64_t usually_left_out(const std::vector<capture> &captures, uint64_t frames)
{
    // Of fewer frames, nothing is usual.
    constexpr uint64_t fewest = 16;
    const uint64_t spacings =
        captures.size() < most_captures ? frames - 1 : captures[most_captures - 1].first_frame;
    std::map<uint64_t, uint64_t> counts;
    for (size_t i = 1; i < captures.size(); ++i)
    {
        ++counts[captures[i].frames_missing - captures[i - 1].frames_missing];
    }
    const auto rarer = [](const auto &a, const auto &b) { return a.second < b.second; };
    const auto most = std::max_element(counts.begin(), counts.end(), rarer);
    return spacings >= fewest && most != counts.end() && 2 * most->second > spacings ? most->first : 0;
}

/** The median time between frames, from some thousand of them; 0 if there is only one frame. */
double median_spacing(const recording_reader &recording, size_t item)
{
    constexpr uint64_t enough = 4096;
    const uint64_t step = recording.frames() / enough + 1;
    auto table = recording.open_table(item);
    std::vector<double> spacings;
    double last = 0.0;
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        const auto row = table.next();
        if (row && number > 0 && number % step == 0)
        {
            spacings.push_back(row->seconds - last);
        }
        last = row ? row->seconds : last;
    }
    if (spacings.empty())
    {
        return 0.0;
    }
    const auto middle = spacings.begin() + static_cast<ptrdiff_t>(spacings.size() / 2);
    std::nth_element(spacings.begin(), middle, spacings.end());
    return std::max(*middle, 0.0);
}

/** The time of the last frame; 0 without a clock. */
double last_time(const recording_reader &recording, size_t item)
{
    auto table = recording.open_table(item);
    double last = 0.0;
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        const auto row = table.next();
        last = row ? row->seconds : last;
    }
    return last;
}

/** The number of frames missing that the metadata of an item state, also in gaps that they do not list; 0 if
 * the recording does not have the frames that they announce. */
uint64_t missing_frames(const recording_reader &recording)
{
    const auto &document = recording.items().front().document;
    const auto global = document.value("global", nlohmann::json::object());
    return global.value("vantor:frames", nlohmann::json()) == recording.frames()
               ? global.value("vantor:frames_missing", uint64_t{0})
               : 0;
}

} // namespace

recorded_gaps find_gaps(const recording_reader &recording)
{
    const auto listed = recording.captures();
    gap_finder finder(listed, period_of_unlisted_gaps(recording.session(), recording.finished(), listed));
    auto table = recording.open_table(0);
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        if (const auto row = table.next())
        {
            finder.add(row->tick, row->frame_delayed);
        }
    }
    return {.captures = finder.found().captures(),
            .missing = std::max(finder.found().missing(), missing_frames(recording))};
}

timeline::timeline(const recording_reader &recording, size_t item)
    : captures_(find_gaps(recording).captures), frames_(recording.frames()), listed_until_(frames_)
{
    choose_axis(recording, item);
    measure(recording, item);
}

/** Chooses unit and rate, and how gaps are recognised. */
void timeline::choose_axis(const recording_reader &recording, size_t item)
{
    const double nominal = nominal_rate(recording);
    has_clock_ = last_time(recording, item) > 0.0;
    if (nominal > 0.0)
    {
        left_out_ = usually_left_out(captures_, frames_);
        axis_.rate = nominal / static_cast<double>(left_out_ + 1);
        step_ = 1.0 / nominal;
        longest_spacing_ = 1.5 / axis_.rate;
        listed_until_ = captures_.size() < most_captures || !has_clock_
                            ? frames_
                            : captures_[most_captures - 1].first_frame;
    }
    else if (const double spacing = has_clock_ ? median_spacing(recording, item) : 0.0; spacing > 0.0)
    {
        // Frames that are measured as fast as possible are not evenly spaced.
        axis_.rate = 1.0 / spacing;
        longest_spacing_ = 2.5 * spacing;
        listed_until_ = 0;
    }
    axis_.in_seconds = has_clock_ || nominal > 0.0;
    axis_.period = axis_.rate > 0.0 ? 1.0 / axis_.rate : 1.0;
}

/** Reads the frame table. */
void timeline::measure(const recording_reader &recording, size_t item)
{
    frame_rows rows(recording, item, *this);
    uint64_t run = 0;
    for (uint64_t number = 0; number < frames_; ++number)
    {
        rows.advance();
        figures_.add(rows.row());
        gaps_ += rows.after_gap() ? 1 : 0;
        run = rows.after_gap() ? 0 : run;
        run = rows.valid() ? run + 1 : 0;
        longest_run_ = std::max(longest_run_, run);
    }
    axis_.end = rows.begin();
}

frame_rows::frame_rows(const recording_reader &recording, size_t item, const timeline &times)
    : times_(times), table_(recording.open_table(item)), next_(read())
{
}

void frame_rows::advance()
{
    if (next_)
    {
        current_ = *next_;
        next_ = read();
    }
}

double frame_rows::end() const noexcept
{
    return next_ && !next_->after_gap ? std::max(next_->begin, current_.begin)
                                      : current_.begin + times_.axis_.period;
}

/** Reads the next line. */
std::optional<placed_frame> frame_rows::read()
{
    const auto row = number_ < times_.frames_ ? table_.next() : std::nullopt;
    if (!row)
    {
        return std::nullopt;
    }
    placed_frame placed{.row = *row};
    placed.after_gap = pass_capture();
    const auto due = number_ + times_.captures_[next_capture_ - 1].frames_missing;
    placed.begin = times_.has_clock_ ? row->seconds : static_cast<double>(due) * times_.step_ + breaks_;
    if (number_ > times_.listed_until_)
    {
        placed.after_gap = placed.after_gap || placed.begin - last_begin_ > times_.longest_spacing_;
    }
    last_begin_ = placed.begin;
    ++number_;
    return placed;
}

/** Moves to the capture that begins with the next frame, if one does; returns whether there is a gap. */
bool frame_rows::pass_capture()
{
    const auto &captures = times_.captures_;
    const bool begins = next_capture_ < captures.size() && captures[next_capture_].first_frame == number_;
    if (!begins)
    {
        return number_ > 0 && number_ <= times_.listed_until_ && times_.left_out_ > 0;
    }
    const auto &here = captures[next_capture_];
    const auto missing = here.frames_missing - captures[next_capture_ - 1].frames_missing;
    ++next_capture_;
    if (here.begins && times_.axis_.in_seconds)
    {
        breaks_ += std::max(here.begins->gap - times_.step_, 0.0);
    }
    return here.begins || missing != times_.left_out_;
}

} // namespace vantor
