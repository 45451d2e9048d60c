/** @file
 * Reads the truth that a simulated server writes.
 */
#include "vantor/truth_file.h"

#include <algorithm>
#include <cerrno>
#include <span>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "recording/input_file.h"
#include "recording/truth_writer.h"
#include "vantor/configuration.h"
#include "vantor/errors.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** Number of bytes that are read at once. */
constexpr size_t truth_buffer_size = 65536;

/** Most lines of a sensor that are kept until they are asked for. */
constexpr size_t most_kept_rows = 4096;

/** Memory is returned in parts of this size. */
constexpr uint64_t forgotten_part = 1U << 20U;

/** Whether a tick is before another one; ticks wrap around. */
bool is_before(uint32_t tick, uint32_t other)
{
    return static_cast<int32_t>(tick - other) < 0;
}

/** Reads at most this many bytes before the end of a file. */
std::string read_end(const input_file &file, uint64_t size, size_t most)
{
    std::string text(std::min<uint64_t>(size, most), '\0');
    text.resize(file.read(size - text.size(), std::as_writable_bytes(std::span(text))));
    return text;
}

/** The last line of a text, which has a line feed at its end; empty if there is none. */
std::string last_line(const std::string &text)
{
    if (!text.ends_with('\n'))
    {
        return "";
    }
    const auto before = text.rfind('\n', text.size() - 2);
    return text.size() < 2 || before == std::string::npos ? text : text.substr(before + 1);
}

/** Whether a line begins a session. */
bool begins_session(const json &line)
{
    return line.is_object() && line.contains("session") && line["session"].is_number_unsigned() &&
           line.contains("scene") && line["scene"].is_object();
}

/** Creates a file in memory, which other programs of this user open by the path of path_of(). */
int create_memory_file()
{
    const int descriptor = memfd_create("vantor-truth", MFD_CLOEXEC);
    if (descriptor < 0)
    {
        throw connect_error("Cannot create a file in memory for the truth of the simulated server: " +
                            std::generic_category().message(errno) + ".");
    }
    return descriptor;
}

/** The path of a file that this process has open, for other processes too. */
std::filesystem::path path_of(int descriptor)
{
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(descriptor);
}

} // namespace

truth_file::truth_file(std::filesystem::path path) : path_(std::move(path))
{
}

truth_file::~truth_file() = default;

json truth_file::begin_session(std::set<unsigned> sensors)
{
    end_session();
    auto opened = std::make_unique<const input_file>(path_);
    const auto size = opened->size();
    json line;
    try
    {
        line = parse_json_text(last_line(read_end(*opened, size, most_truth_bytes)), path_.string());
    }
    catch (const configuration_error &)
    {
        line = nullptr;
    }
    if (!begins_session(line))
    {
        throw bad_recording(path_.string() +
                            " does not have the truth of this session: start the server with --truth and "
                            "the path of this file, on the same machine.");
    }
    file_ = std::move(opened);
    position_ = size;
    session_ = line["session"].get<uint64_t>();
    sensors_ = std::move(sensors);
    line.erase("session");
    return line;
}

void truth_file::end_session() noexcept
{
    file_.reset();
    buffer_.clear();
    skipping_ = false;
    rows_.clear();
}

std::optional<item_truth> truth_file::find(unsigned sensor_id, uint32_t tick)
{
    auto &rows = rows_[sensor_id];
    do
    {
        while (!rows.empty() && is_before(rows.front().tick, tick))
        {
            rows.pop_front();
        }
    } while (rows.empty() && read_line());
    if (rows.empty() || rows.front().tick != tick)
    {
        ++missing_;
        return std::nullopt;
    }
    auto found = std::move(rows.front());
    rows.pop_front();
    return found;
}

/** Reads the next line; false if there is no complete one. */
bool truth_file::read_line()
{
    const auto line = file_ ? take_line() : std::nullopt;
    if (line)
    {
        take_row(*line);
    }
    return line.has_value();
}

/** Takes the next complete line out of the file; lines that are too long are left out. */
std::optional<std::string> truth_file::take_line()
{
    while (true)
    {
        const auto end = buffer_.find('\n');
        if (end == std::string::npos)
        {
            if (buffer_.size() > most_truth_bytes)
            {
                damaged_ += std::exchange(skipping_, true) ? 0 : 1;
                buffer_.clear();
            }
            if (!fill())
            {
                return std::nullopt;
            }
            continue;
        }
        auto line = buffer_.substr(0, end);
        buffer_.erase(0, end + 1);
        if (!std::exchange(skipping_, false))
        {
            return line;
        }
    }
}

/** Reads more bytes of the file; false if there are none. */
bool truth_file::fill()
{
    const auto size = buffer_.size();
    buffer_.resize(size + truth_buffer_size);
    size_t count = 0;
    try
    {
        count = file_->read(position_, std::as_writable_bytes(std::span(buffer_)).subspan(size));
    }
    catch (const bad_recording &) // NOLINT(bugprone-empty-catch): its lines are counted as missing
    {
    }
    buffer_.resize(size + count);
    position_ += count;
    forget_before(position_);
    return count > 0;
}

/** Keeps the truth in a line if it belongs to the session. */
void truth_file::take_row(const std::string &line)
{
    try
    {
        const auto document = parse_json_text(line, "The line");
        if (begins_session(document))
        {
            return;
        }
        auto row = decode_truth(document);
        const auto session = document.find("session");
        if (session == document.end() || *session != session_ || !sensors_.contains(row.sensor_id))
        {
            return;
        }
        auto &rows = rows_[row.sensor_id];
        rows.push_back(std::move(row));
        if (rows.size() > most_kept_rows)
        {
            rows.pop_front();
        }
    }
    catch (const error &)
    {
        ++damaged_;
    }
}

private_truth_file::private_truth_file() : private_truth_file(create_memory_file())
{
}

private_truth_file::private_truth_file(int descriptor)
    : truth_file(path_of(descriptor)), descriptor_(descriptor)
{
}

private_truth_file::~private_truth_file()
{
    close(descriptor_);
}

void private_truth_file::forget_before(uint64_t position)
{
    // A new server begins the file again.
    forgotten_ = std::min(forgotten_, position);
    if (position - forgotten_ >= forgotten_part)
    {
        fallocate(descriptor_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(forgotten_),
                  static_cast<off_t>(position - forgotten_));
        forgotten_ = position;
    }
}

} // namespace vantor
