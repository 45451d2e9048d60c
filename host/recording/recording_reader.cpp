/** @file
 * Reads a recording.
 */
#include "recording/recording_reader.h"

#include <algorithm>
#include <limits>

#include "recording/frame_table.h"
#include "recording/recording_error.h"

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

/** The number of frames that are complete in an item, at most this many. */
uint64_t count_frames(const std::filesystem::path &directory, const recorded_item &item,
                      const input_file &data, uint64_t most)
{
    const auto frame_size = item.layout.frame_length * sizeof(sample);
    const auto frames = std::min<uint64_t>(most, frame_size == 0 ? 0 : data.size() / frame_size);
    return count_rows(directory / (item.name + ".frames.csv"), frames);
}

} // namespace

recording_reader::recording_reader(const std::filesystem::path &place) : documents_(read_documents(place))
{
    if (!documents_.faults.empty())
    {
        throw bad_recording(documents_.faults.front());
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

void recording_reader::read_frame(size_t item, uint64_t number, std::vector<sample> &samples)
{
    samples.resize(items().at(item).layout.frame_length);
    const auto bytes = std::as_writable_bytes(std::span(samples));
    if (data_.at(item).read(number * bytes.size(), bytes) < bytes.size())
    {
        throw bad_recording("The samples of " + items()[item].name + " cannot be read.");
    }
    ++reads_;
    if (on_read_)
    {
        on_read_(reads_);
    }
}

} // namespace vantor
