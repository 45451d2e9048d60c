/** @file
 * A file that can be appended to and truncated.
 */
#include "recording/output_file.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <deque>
#include <random>
#include <string>
#include <string_view>
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

/** A path beside a file that no other file has. */
std::filesystem::path temporary_path(std::filesystem::path path)
{
    constexpr int hexadecimal = 16;
    std::random_device random;
    std::array<char, 16> digits{};
    const uint64_t number = uint64_t{random()} << 32U | random();
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, hexadecimal).ptr;
    path += '.';
    path += std::string_view(digits.data(), end);
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

/** The path of the file to replace: the target if it is a symbolic link; throws like the function above. */
std::filesystem::path place_of(const std::filesystem::path &path)
{
    check_place(path);
    std::error_code failure;
    auto target = std::filesystem::canonical(path, failure);
    return failure ? path : target;
}

} // namespace

output_file::output_file(const std::filesystem::path &path) : output_file(path, path)
{
}

output_file::output_file(const std::filesystem::path &path, std::filesystem::path name)
    : name_(std::move(name)),
      descriptor_(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, permissions))
{
    if (descriptor_ < 0)
    {
        fail("create", name_);
    }
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

void output_file::truncate(uint64_t length) noexcept
{
    // Truncating needs no disk space. If it fails, readers still ignore data after the last complete frame.
    [[maybe_unused]] const int outcome = ftruncate(descriptor_, static_cast<off_t>(length));
}

void output_file::close()
{
    if (::close(std::exchange(descriptor_, -1)) != 0 && errno != EINTR)
    {
        fail("write to", name_);
    }
}

new_version::new_version(const std::filesystem::path &path)
    : path_(place_of(path)), temporary_(temporary_path(path_)), file_(temporary_, path)
{
}

new_version::~new_version()
{
    if (!temporary_.empty())
    {
        std::error_code ignored;
        std::filesystem::remove(temporary_, ignored);
    }
}

void new_version::put_into_place()
{
    std::error_code failure;
    std::filesystem::rename(temporary_, path_, failure);
    if (failure)
    {
        throw recording_error("Cannot replace " + path_.string() + ": " + failure.message() + ".");
    }
    temporary_.clear();
}

void replace_files(const std::vector<file_text> &files)
{
    std::deque<new_version> versions;
    for (const auto &file : files)
    {
        auto &version = versions.emplace_back(file.path);
        version.file().append(file.text);
        version.file().close();
    }
    for (auto &version : versions)
    {
        version.put_into_place();
    }
}

} // namespace vantor
