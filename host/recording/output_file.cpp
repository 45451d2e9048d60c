/** @file
 * A file that can be appended to and truncated.
 */
#include "recording/output_file.h"

#include <cerrno>
#include <string>
#include <string_view>
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

/** All users can read a recording, its owner can write it. */
constexpr mode_t permissions = 0644;

/** Throws recording_error with the action that failed and the message for errno. */
[[noreturn]] void fail(const std::string &action, const std::filesystem::path &path)
{
    throw recording_error("Cannot " + action + " " + path.string() + ": " +
                          std::generic_category().message(errno) + ".");
}

/** A file that is open for changing it. */
class open_file
{
public:
    /** Opens the file, unless it is a symbolic link; throws recording_error if this is not possible. */
    explicit open_file(const std::filesystem::path &path)
        : descriptor_(open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC))
    {
        if (descriptor_ < 0)
        {
            fail("shorten", path);
        }
    }
    open_file(const open_file &) = delete;
    open_file &operator=(const open_file &) = delete;
    open_file(open_file &&) = delete;
    open_file &operator=(open_file &&) = delete;

    ~open_file()
    {
        close(descriptor_);
    }

    [[nodiscard]] int descriptor() const noexcept
    {
        return descriptor_;
    }

private:
    int descriptor_;
};

/** Locks a file; throws recording_error if another program is writing it. */
void lock_for_shortening(const open_file &file, const std::filesystem::path &path)
{
    if (flock(file.descriptor(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    {
        throw recording_error("Cannot shorten " + path.string() + ": another program is writing it.");
    }
}

} // namespace

output_file::output_file(const std::filesystem::path &path) : output_file(path, path)
{
}

output_file::output_file(const std::filesystem::path &path, std::filesystem::path name)
    : name_(std::move(name)),
      descriptor_(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions))
{
    if (descriptor_ < 0)
    {
        fail("create", name_);
    }
    // So that other programs can see that the file is not complete yet. Not all file systems support this.
    static_cast<void>(flock(descriptor_, LOCK_EX | LOCK_NB));
}

output_file::output_file(output_file &&other) noexcept
    : name_(std::move(other.name_)), descriptor_(std::exchange(other.descriptor_, -1))
{
}

output_file::~output_file()
{
    if (descriptor_ >= 0)
    {
        ::close(descriptor_);
    }
}

void output_file::append(std::span<const std::byte> bytes)
{
    while (!bytes.empty())
    {
        const auto count = write(descriptor_, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR)
        {
            fail("write to", name_);
        }
        bytes = bytes.subspan(count > 0 ? static_cast<size_t>(count) : 0);
    }
}

void output_file::append(std::string_view text)
{
    append(std::as_bytes(std::span(text)));
}

void output_file::overwrite(uint64_t position, std::span<const std::byte> bytes)
{
    while (!bytes.empty())
    {
        const auto count = pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(position));
        if (count < 0 && errno != EINTR)
        {
            fail("write to", name_);
        }
        const size_t written = count > 0 ? static_cast<size_t>(count) : 0;
        bytes = bytes.subspan(written);
        position += written;
    }
}

void output_file::truncate(uint64_t length) noexcept
{
    // Truncating needs no disk space. If it fails, readers still ignore data after the last complete frame.
    [[maybe_unused]] const int outcome = ftruncate(descriptor_, static_cast<off_t>(length));
    lseek(descriptor_, static_cast<off_t>(length), SEEK_SET);
}

void output_file::sync() const
{
    if (fdatasync(descriptor_) != 0)
    {
        fail("write to", name_);
    }
}

void output_file::close()
{
    if (::close(std::exchange(descriptor_, -1)) != 0 && errno != EINTR)
    {
        fail("write to", name_);
    }
}

bool output_file::is_removed() const noexcept
{
    struct stat status = {};
    return fstat(descriptor_, &status) == 0 && status.st_nlink == 0;
}

bool output_file::is_shorter_than(uint64_t length) const noexcept
{
    struct stat status = {};
    return fstat(descriptor_, &status) == 0 && static_cast<uint64_t>(status.st_size) < length;
}

bool output_file::is_in_place() const noexcept
{
    struct stat own = {};
    struct stat found = {};
    return fstat(descriptor_, &own) == 0 && lstat(name_.c_str(), &found) == 0 && own.st_dev == found.st_dev &&
           own.st_ino == found.st_ino;
}

void sync_directory(const std::filesystem::path &path)
{
    const auto directory = path.empty() ? std::filesystem::path(".") : path;
    const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // Some file systems cannot do this for directories; they report EINVAL. Others cannot be opened by this
    // user.
    const bool synced = descriptor >= 0 ? fsync(descriptor) == 0 || errno == EINVAL : errno == EACCES;
    const int reason = errno;
    if (descriptor >= 0)
    {
        close(descriptor);
    }
    if (!synced)
    {
        errno = reason;
        fail("write to", directory);
    }
}

void require_shortenable(const std::filesystem::path &path)
{
    const open_file file(path);
    lock_for_shortening(file, path);
}

directory_in_use::directory_in_use(const std::filesystem::path &path) noexcept
    : descriptor_(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    static_cast<void>(flock(descriptor_, LOCK_SH | LOCK_NB));
}

directory_in_use::~directory_in_use()
{
    if (descriptor_ >= 0)
    {
        close(descriptor_);
    }
}

bool directory_in_use::is_last_user() const noexcept
{
    return flock(descriptor_, LOCK_EX | LOCK_NB) == 0;
}

void shorten_file(const std::filesystem::path &path, uint64_t length)
{
    const open_file file(path);
    lock_for_shortening(file, path);
    struct stat status = {};
    if (fstat(file.descriptor(), &status) != 0)
    {
        fail("shorten", path);
    }
    if (static_cast<uint64_t>(status.st_size) < length)
    {
        throw recording_error("Cannot shorten " + path.string() + " to " + std::to_string(length) +
                              " bytes: it has only " + std::to_string(status.st_size) + ".");
    }
    if (static_cast<uint64_t>(status.st_size) != length &&
        (ftruncate(file.descriptor(), static_cast<off_t>(length)) != 0 || fsync(file.descriptor()) != 0))
    {
        fail("shorten", path);
    }
}

} // namespace vantor
