/** @file
 * Reads the files of a recording.
 */
#include "recording/input_file.h"

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

/** Number of bytes that a line reader reads at once. */
constexpr size_t line_buffer_bytes = 65536;

/** Throws bad_recording with the message for errno. */
[[noreturn]] void refuse_file(const std::filesystem::path &path)
{
    throw bad_recording("Cannot read " + path.string() + ": " + std::generic_category().message(errno) + ".");
}

/** What the system reports about an open file. */
struct stat status_of(int descriptor, const std::filesystem::path &path)
{
    struct stat status = {};
    if (fstat(descriptor, &status) != 0)
    {
        refuse_file(path);
    }
    return status;
}

} // namespace

input_file::input_file(std::filesystem::path path)
    : path_(std::move(path)), descriptor_(open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC))
{
    if (descriptor_ < 0)
    {
        refuse_file(path_);
    }
    if (!S_ISREG(status_of(descriptor_, path_).st_mode))
    {
        close(std::exchange(descriptor_, -1));
        throw bad_recording("Cannot read " + path_.string() + ": it is not a regular file.");
    }
}

input_file::input_file(input_file &&other) noexcept
    : path_(std::move(other.path_)), descriptor_(std::exchange(other.descriptor_, -1))
{
}

input_file::~input_file()
{
    if (descriptor_ >= 0)
    {
        close(descriptor_);
    }
}

uint64_t input_file::size() const
{
    return static_cast<uint64_t>(status_of(descriptor_, path_).st_size);
}

size_t input_file::read(uint64_t position, std::span<std::byte> bytes) const
{
    size_t count = 0;
    while (count < bytes.size())
    {
        const auto rest = bytes.subspan(count);
        const auto part = pread(descriptor_, rest.data(), rest.size(), static_cast<off_t>(position + count));
        if (part == 0)
        {
            break;
        }
        if (part < 0 && errno != EINTR)
        {
            refuse_file(path_);
        }
        count += part > 0 ? static_cast<size_t>(part) : 0;
    }
    return count;
}

bool input_file::is_being_written() const noexcept
{
    if (flock(descriptor_, LOCK_SH | LOCK_NB) == 0)
    {
        flock(descriptor_, LOCK_UN);
        return false;
    }
    return errno == EWOULDBLOCK;
}

std::string read_document_text(const std::filesystem::path &path)
{
    const input_file file(path);
    const auto size = file.size();
    if (size > most_document_bytes)
    {
        throw bad_recording(path.string() + " is too large: it has more than 16 MB.");
    }
    std::string text(size, '\0');
    text.resize(file.read(0, std::as_writable_bytes(std::span(text))));
    return text;
}

line_reader::line_reader(std::filesystem::path path, size_t most_line_bytes)
    : file_(std::move(path)), most_line_bytes_(most_line_bytes)
{
}

std::optional<std::string_view> line_reader::next()
{
    if (is_long_ && !pass_long_line())
    {
        return std::nullopt;
    }
    for (size_t searched = start_;;)
    {
        const auto end = buffer_.find('\n', searched);
        if (end != std::string::npos)
        {
            const auto line = std::string_view(buffer_).substr(start_, end - start_);
            start_ = end + 1;
            return line;
        }
        buffer_.erase(0, std::exchange(start_, 0));
        searched = buffer_.size();
        if (searched > most_line_bytes_)
        {
            is_long_ = true;
            buffer_.clear();
            throw bad_recording(file_.path().string() + " has a line of more than " +
                                std::to_string(most_line_bytes_) + " bytes.");
        }
        if (!fill())
        {
            return std::nullopt;
        }
    }
}

void line_reader::on_read(std::function<void()> handler)
{
    on_read_ = std::move(handler);
}

/** Passes the rest of a line that is too long; returns false if it has no end. */
bool line_reader::pass_long_line()
{
    while (is_long_)
    {
        const auto end = buffer_.find('\n');
        if (end != std::string::npos)
        {
            start_ = end + 1;
            is_long_ = false;
            continue;
        }
        buffer_.clear();
        if (!fill())
        {
            return false;
        }
    }
    return true;
}

void line_reader::seek(uint64_t position) noexcept
{
    is_long_ = false;
    buffer_.clear();
    start_ = 0;
    position_ = position;
}

/** Reads more bytes into the buffer; returns false at the end of the file. */
bool line_reader::fill()
{
    if (on_read_)
    {
        on_read_();
    }
    std::array<std::byte, line_buffer_bytes> bytes{};
    const auto count = file_.read(position_, bytes);
    position_ += count;
    // A text contains char; the file contains bytes.
    buffer_.append(reinterpret_cast<const char *>(bytes.data()), count);
    return count > 0;
}

} // namespace vantor
