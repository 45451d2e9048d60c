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

/** A line is missing if at least this many lines of later frames follow; fewer of them may be damaged. */
constexpr ptrdiff_t enough_later_rows = 16;

/** Memory is returned in parts of this size. */
constexpr uint64_t forgotten_part = 1U << 20U;

/** Whether a tick is before another one; ticks wrap around. */
bool is_before(uint32_t tick, uint32_t other)
{
    return static_cast<int32_t>(tick - other) < 0;
}

/** Which session a line belongs to; empty if it does not say that. */
std::string id_of(const json &line)
{
    const auto found = line.is_object() ? line.find("id") : line.end();
    return found != line.end() && found->is_string() ? found->get<std::string>() : std::string();
}

/** Whether a line begins a session. */
bool begins_session(const json &line)
{
    return !id_of(line).empty() && line.contains("scene") && line["scene"].is_object();
}

/** Parses a line; null if it is not JSON. */
json parse_line(const std::string &line)
try
{
    return parse_json_text(line, "The line");
}
catch (const configuration_error &)
{
    return nullptr;
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

void truth_file::expect_session()
{
    end_session();
    try
    {
        file_ = std::make_unique<const input_file>(path_);
        position_ = file_->size();
    }
    catch (const bad_recording &failure)
    {
        file_.reset();
        fault_ = failure.what();
    }
}

json truth_file::begin_session(std::set<unsigned> sensors)
{
    try
    {
        auto line = read_session();
        id_ = id_of(line);
        sensors_ = std::move(sensors);
        line.erase("session");
        line.erase("id");
        return line;
    }
    catch (const bad_recording &)
    {
        end_session();
        throw;
    }
}

/** Reads the lines that were added since a session is expected; returns the one that begins it. */
json truth_file::read_session()
{
    if (!file_)
    {
        throw bad_recording(fault_);
    }
    json last;
    uint64_t sessions = 0;
    while (const auto line = take_line())
    {
        last = parse_line(*line);
        sessions += begins_session(last) ? 1 : 0;
    }
    if (sessions > 1 || (sessions == 1 && !begins_session(last)))
    {
        throw bad_recording(path_.string() +
                            " does not have the truth of this session alone: another program "
                            "writes to it; give each server a file of its own.");
    }
    if (sessions == 0)
    {
        throw bad_recording(path_.string() +
                            " does not have the truth of this session: start the server with --truth and "
                            "the path of this file, on the same machine. If it was, the disk may be full.");
    }
    return last;
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
    const auto is_passed = [tick](const item_truth &row) { return is_before(row.tick, tick); };
    const auto is_wanted = [tick](const item_truth &row) { return row.tick == tick; };
    std::erase_if(rows, is_passed);
    auto wanted = std::ranges::find_if(rows, is_wanted);
    while (wanted == rows.end() && std::ssize(rows) < enough_later_rows && read_line())
    {
        std::erase_if(rows, is_passed);
        wanted = std::ranges::find_if(rows, is_wanted);
    }
    if (wanted == rows.end())
    {
        ++missing_;
        return std::nullopt;
    }
    // Sensors measure one frame after the other: lines of later frames before this one are wrong.
    damaged_ += static_cast<uint64_t>(wanted - rows.begin());
    auto found = std::move(*wanted);
    rows.erase(rows.begin(), wanted + 1);
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
        if (id_of(document) != id_ || !sensors_.contains(row.sensor_id))
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
