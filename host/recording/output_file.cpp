/** @file
 * A file that can be appended to and truncated.
 */
#include "recording/output_file.h"

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "recording/recording_error.h"

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

/** The temporary path of the new version of a file. */
std::filesystem::path new_version(std::filesystem::path path)
{
    return path += ".new";
}

/** Throws recording_error if a file cannot be replaced because of what is at its path. */
void check_place(const std::filesystem::path &path)
{
    std::error_code failure;
    const auto directory = path.parent_path();
    if (!directory.empty() && !std::filesystem::exists(directory, failure))
    {
        throw recording_error("Cannot create " + path.string() + ": the directory " + directory.string() +
                              " does not exist.");
    }
    const auto present = std::filesystem::status(path, failure);
    if (std::filesystem::exists(present) && !std::filesystem::is_regular_file(present))
    {
        throw recording_error("Cannot replace " + path.string() + ": it is not a regular file.");
    }
}

} // namespace

output_file::output_file(std::filesystem::path path) : path_(std::move(path))
{
    descriptor_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, permissions);
    if (descriptor_ < 0)
    {
        fail("create", path_);
    }
}

output_file::output_file(output_file &&other) noexcept
    : path_(std::move(other.path_)), descriptor_(std::exchange(other.descriptor_, -1))
{
}

output_file::~output_file()
{
    if (descriptor_ >= 0)
    {
        close(descriptor_);
    }
}

void output_file::append(std::span<const std::byte> bytes)
{
    while (!bytes.empty())
    {
        const auto count = write(descriptor_, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR)
        {
            fail("write to", path_);
        }
        bytes = bytes.subspan(count > 0 ? static_cast<size_t>(count) : 0);
    }
}

void output_file::append(std::string_view text)
{
    append(std::as_bytes(std::span(text)));
}

void output_file::truncate(uint64_t length) noexcept
{
    // Truncating needs no disk space. If it fails, readers still ignore data after the last complete frame.
    [[maybe_unused]] const int outcome = ftruncate(descriptor_, static_cast<off_t>(length));
}

void replace_files(const std::vector<file_text> &files)
{
    std::error_code failure;
    try
    {
        for (const auto &file : files)
        {
            check_place(file.path);
            std::filesystem::remove(new_version(file.path), failure);
            output_file(new_version(file.path)).append(file.text);
        }
        for (const auto &file : files)
        {
            std::filesystem::rename(new_version(file.path), file.path, failure);
            if (failure)
            {
                throw recording_error("Cannot replace " + file.path.string() + ": " + failure.message() +
                                      ".");
            }
        }
    }
    catch (...)
    {
        for (const auto &file : files)
        {
            std::filesystem::remove(new_version(file.path), failure);
        }
        throw;
    }
}

} // namespace vantor
