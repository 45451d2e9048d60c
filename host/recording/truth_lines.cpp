/** @file
 * Finds the lines of truth that belong to the frames of a recording.
 */
#include "recording/truth_lines.h"

#include <algorithm>

#include "vantor/recording_error.h"
#include "vantor/recording_reader.h"

namespace vantor
{
namespace
{

/** Most lines that wait for those of earlier frames: so far behind its place a line may be. */
constexpr size_t most_waiting = 256;

/** Describes the place of a line. */
std::string describe_place(const recorded_truth &line)
{
    return "frame " + std::to_string(line.frame) + " of group " + std::to_string(line.group + 1) + ", item " +
           std::to_string(line.item + 1);
}

} // namespace

tick_reader::tick_reader(const recorded_frames &frames)
{
    for (size_t i = 0; frames.count > 0 && i < frames.items.size(); ++i)
    {
        tables_.emplace_back(frames.directory / (frames.items[i].name + ".frames.csv"));
    }
    rows_.resize(tables_.size());
}

uint32_t tick_reader::tick(uint64_t frame, size_t item)
{
    while (next_ <= frame)
    {
        read_rows();
    }
    return rows_.at(item).tick;
}

void tick_reader::seek(uint64_t frame)
{
    for (auto &table : tables_)
    {
        table.seek(frame);
    }
    next_ = frame;
}

/** Reads the rows of the next frame. */
void tick_reader::read_rows()
{
    for (size_t i = 0; i < tables_.size(); ++i)
    {
        rows_[i] = tables_[i].require();
    }
    ++next_;
}

truth_lines::truth_lines(truth_table table, recorded_frames frames)
    : table_(std::move(table)), frames_(frames), ticks_(frames)
{
}

std::optional<recorded_truth> truth_lines::next()
{
    while (true)
    {
        const auto has_next = [this] { return !waiting_.empty() && waiting_.begin()->first <= expected_; };
        while (!ended_ && !has_next() && waiting_.size() < most_waiting)
        {
            read_line();
        }
        if (waiting_.empty())
        {
            return std::nullopt;
        }
        auto first = waiting_.extract(waiting_.begin());
        const auto [frame, index] = first.key();
        if (is_right(first.key(), first.mapped()))
        {
            expected_ = index + 1 < frames_.items.size() ? place(frame, index + 1) : place(frame + 1, 0);
            return std::move(first.mapped());
        }
        refuse(first.mapped());
    }
}

void truth_lines::seek(uint64_t frame)
{
    table_.seek(frame);
    ticks_.seek(frame);
    waiting_.clear();
    expected_ = {frame, 0};
    ended_ = false;
}

/** Reads a line of the file. */
void truth_lines::read_line()
{
    const auto before = table_.position();
    try
    {
        auto line = table_.next();
        ended_ = !line;
        if (line)
        {
            keep(std::move(*line));
        }
    }
    catch (const bad_recording &failure)
    {
        refuse(failure.what());
        // The file cannot be read further.
        ended_ = table_.position() == before;
    }
}

/** Keeps a line until its turn comes. */
void truth_lines::keep(recorded_truth line)
{
    if (line.frame >= frames_.count)
    {
        ++wrong_.surplus;
        return;
    }
    const auto is_its = [&line](const recorded_item &item) {
        return item.layout.group == line.group && item.layout.index == line.item;
    };
    const auto item = std::ranges::find_if(frames_.items, is_its);
    const place at(line.frame, static_cast<size_t>(item - frames_.items.begin()));
    if (item == frames_.items.end() || at < expected_)
    {
        refuse(line);
        return;
    }
    if (at < farthest_ && wrong_.first.empty())
    {
        wrong_.first = describe_place(line) + " is listed after a later one.";
    }
    farthest_ = std::max(farthest_, at);
    waiting_.emplace(at, std::move(line));
}

/** Whether a line has the right sensor and tick, and is not a repeated one. */
bool truth_lines::is_right(const place &at, const recorded_truth &line)
{
    return at >= expected_ && line.truth.sensor_id == frames_.items[at.second].configuration.sensor_id &&
           line.truth.tick == ticks_.tick(at.first, at.second);
}

/** Leaves out a line. */
void truth_lines::refuse(const std::string &reason)
{
    ++wrong_.damaged;
    wrong_.first = wrong_.first.empty() ? reason : wrong_.first;
}

/** Leaves out a line that does not belong to its frame. */
void truth_lines::refuse(const recorded_truth &line)
{
    refuse(describe_place(line) + " has another sensor or tick, is listed before, or does not exist.");
}

truth_frames::truth_frames(const recording_reader &recording, std::function<void()> stop)
{
    auto table = recording.open_truth();
    table.on_read(std::move(stop));
    source_ =
        std::make_unique<truth_lines>(std::move(table), recorded_frames{.directory = recording.directory(),
                                                                        .items = recording.items(),
                                                                        .count = recording.frames()});
}

truth_frames::truth_frames(truth_frames &&other) noexcept = default;
truth_frames &truth_frames::operator=(truth_frames &&other) noexcept = default;
truth_frames::~truth_frames() = default;

const std::vector<recorded_truth> &truth_frames::move_to(uint64_t frame)
{
    lines_.clear();
    while (next_ || (next_ = source_->next()))
    {
        if (next_->frame > frame)
        {
            break;
        }
        if (next_->frame == frame)
        {
            lines_.push_back(std::move(*next_));
        }
        next_.reset();
    }
    return lines_;
}

void truth_frames::seek(uint64_t frame)
{
    next_.reset();
    source_->seek(frame);
}

} // namespace vantor
