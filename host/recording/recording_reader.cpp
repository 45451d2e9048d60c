/** @file
 * Reads a recording.
 */
#include "vantor/recording_reader.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "recording/input_file.h"
#include "recording/recorded_captures.h"
#include "recording/recording_documents.h"
#include "recording/truth_writer.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** The number of rows of an item's frame table, at most this many. */
uint64_t count_rows(const std::filesystem::path &table, uint64_t most)
{
    line_reader lines(table);
    // The names of the columns.
    lines.next();
    uint64_t rows = 0;
    while (rows < most && lines.next())
    {
        ++rows;
    }
    return rows;
}

/** The path of the frame table of an item. */
std::filesystem::path table_path(const std::filesystem::path &directory, const recorded_item &item)
{
    return directory / (item.name + ".frames.csv");
}

/** The number of frames that are complete in an item, at most this many. */
uint64_t count_frames(const std::filesystem::path &directory, const recorded_item &item,
                      const input_file &data, uint64_t most)
{
    const auto frame_size = item.layout.frame_length * sizeof(sample);
    const auto frames = std::min<uint64_t>(most, frame_size == 0 ? 0 : data.size() / frame_size);
    return count_rows(table_path(directory, item), frames);
}

} // namespace

recording_reader::recording_reader(const std::filesystem::path &place)
    : documents_(std::make_unique<const recording_documents>(read_documents(place)))
{
    if (!documents_->faults.empty())
    {
        throw bad_recording(documents_->faults.front());
    }
    frames_ = items().empty() ? 0 : std::numeric_limits<uint64_t>::max();
    for (const auto &item : items())
    {
        const auto &data = data_.emplace_back(directory() / (item.name + ".sigmf-data"));
        frames_ = count_frames(directory(), item, data, frames_);
    }
}

bool recording_reader::finished() const
{
    return std::any_of(items().begin(), items().end(), is_finished);
}

recording_reader::recording_reader(recording_reader &&other) noexcept = default;
recording_reader &recording_reader::operator=(recording_reader &&other) noexcept = default;
recording_reader::~recording_reader() = default;

const session_description &recording_reader::session() const noexcept
{
    return documents_->session;
}

const std::vector<recorded_item> &recording_reader::items() const noexcept
{
    return documents_->items;
}

std::vector<capture> recording_reader::captures() const
{
    return read_captures(*documents_);
}

const std::filesystem::path &recording_reader::directory() const noexcept
{
    return documents_->directory;
}

void recording_reader::on_read(std::function<void(uint64_t)> handler)
{
    on_read_ = std::move(handler);
}

frame_table recording_reader::open_table(size_t item) const
{
    return frame_table(table_path(directory(), items().at(item)));
}

bool recording_reader::has_truth() const noexcept
{
    return !session().truth.is_null();
}

truth_table recording_reader::open_truth() const
{
    if (!has_truth())
    {
        throw bad_recording("The recording has no truth: only simulated sensors have one. Record them with "
                            "--connect sim:, or with --truth FILE and a server that writes this file.");
    }
    return truth_table(directory() / truth_file_name);
}

void recording_reader::read_frame(size_t item, uint64_t number, std::vector<sample> &samples)
{
    read_frames(item, number, 1, samples);
}

void recording_reader::read_frames(size_t item, uint64_t first, uint64_t count, std::vector<sample> &samples)
{
    const auto length = items().at(item).layout.frame_length;
    samples.resize(length * count);
    const auto bytes = std::as_writable_bytes(std::span(samples));
    if (data_.at(item).read(first * length * sizeof(sample), bytes) < bytes.size())
    {
        throw bad_recording("The samples of " + items()[item].name + " cannot be read.");
    }
    reads_ += count;
    if (on_read_)
    {
        on_read_(reads_);
    }
}

} // namespace vantor
