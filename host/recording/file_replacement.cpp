/** @file
 * Replaces files atomically.
 */
#include "recording/file_replacement.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <csignal>
#include <deque>
#include <random>
#include <string_view>
#include <system_error>

#include <unistd.h>

#include "recording/sigmf.h"
#include "vantor/board_collection.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

constexpr const char *temporary_extension = ".new";

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
    return path += temporary_extension;
}

/** The file for which a path is that of a temporary file; empty if it is not. */
std::filesystem::path original_path(const std::filesystem::path &temporary)
{
    const auto numbered = std::filesystem::path(temporary).replace_extension();
    const auto number = numbered.extension().string();
    const bool is_number =
        number.size() > 1 && number.find_first_not_of("0123456789abcdef", 1) == std::string::npos;
    return temporary.extension() == temporary_extension && is_number
               ? std::filesystem::path(numbered).replace_extension()
               : std::filesystem::path();
}

/** Creates the directory of a file, if it is missing; throws recording_error if this is not possible. */
void create_parents(const std::filesystem::path &file)
{
    std::error_code failure;
    const auto directory = file.parent_path();
    if (!directory.empty())
    {
        std::filesystem::create_directories(directory, failure);
    }
    if (failure)
    {
        throw recording_error("Cannot create " + file.string() + ": the directory " + directory.string() +
                              " cannot be created: " + failure.message() + ".");
    }
}

/** The directories of a file that do not exist, from the innermost on. */
std::vector<std::filesystem::path> missing_directories(const std::filesystem::path &file)
{
    std::vector<std::filesystem::path> missing;
    std::error_code failure;
    for (auto directory = file.parent_path();
         !directory.empty() && !std::filesystem::exists(directory, failure);
         directory = directory.parent_path())
    {
        missing.push_back(directory);
    }
    return missing;
}

/** The directories of a file that did not exist before; removed again unless they are kept. */
class new_directories
{
public:
    explicit new_directories(const std::filesystem::path &file) : created_(missing_directories(file))
    {
    }
    new_directories(const new_directories &) = delete;
    new_directories &operator=(const new_directories &) = delete;
    new_directories(new_directories &&) = delete;
    new_directories &operator=(new_directories &&) = delete;

    ~new_directories()
    {
        for (const auto &directory : created_)
        {
            std::error_code ignored;
            std::filesystem::remove(directory, ignored);
        }
    }

    /** Leaves them where they are. */
    void keep() noexcept
    {
        created_.clear();
    }

private:
    std::vector<std::filesystem::path> created_; /**< from the innermost on */
};

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

/** Whether a directory, or one that contains it, is a recording. */
bool is_in_recording(const std::filesystem::path &directory)
{
    std::error_code failure;
    // A recording that has lost one of them can still be read.
    const std::array documents = {std::string(collection_name) + ".sigmf-collection",
                                  item_name({}) + ".sigmf-meta", std::string(board_collection_file)};
    for (auto place = std::filesystem::weakly_canonical(directory, failure); !place.empty();
         place = place.parent_path())
    {
        if (std::any_of(documents.begin(), documents.end(), [&](const std::string &name) {
                return std::filesystem::exists(std::filesystem::symlink_status(place / name, failure));
            }))
        {
            return true;
        }
        if (!place.has_relative_path())
        {
            break;
        }
    }
    return false;
}

/** Whether there is a symbolic link at a path. */
bool is_link(const std::filesystem::path &path)
{
    std::error_code failure;
    return std::filesystem::is_symlink(std::filesystem::symlink_status(path, failure));
}

/** Throws recording_error: a path, or a part of it, is a link that must not be followed. */
[[noreturn]] void refuse_link(const std::filesystem::path &path, const std::filesystem::path &link)
{
    throw recording_error("Cannot write " + path.string() + ": " + link.string() +
                          " is a symbolic link in a recording. Remove it, or choose another place.");
}

/** The path of the file to replace: the target if it is a symbolic link; throws like the function above. */
std::filesystem::path place_of(const std::filesystem::path &path, link_rule links)
{
    require_no_link_in_recording(path);
    if (links == link_rule::refused)
    {
        if (is_link(path))
        {
            refuse_link(path, path);
        }
        check_place(path);
        // A link that somebody creates now is replaced, not followed.
        return path;
    }
    create_parents(path);
    check_place(path);
    std::error_code failure;
    auto target = std::filesystem::canonical(path, failure);
    return failure ? path : target;
}

/** The number of objects of signals_blocked, and the last signal that waits for them; 0 if none does. */
std::atomic<int> blocks = 0;
std::atomic<int> waiting = 0;
static_assert(std::atomic<int>::is_always_lock_free, "signal handlers use them");

/** While an object exists, the signals that ask the program to end wait: in this thread, and in others if
 * their handlers use postpone_signal(). */
class signals_blocked
{
public:
    signals_blocked() noexcept
    {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int number : {SIGINT, SIGTERM, SIGHUP})
        {
            sigaddset(&signals, number);
        }
        pthread_sigmask(SIG_BLOCK, &signals, &before_);
        ++blocks;
    }
    signals_blocked(const signals_blocked &) = delete;
    signals_blocked &operator=(const signals_blocked &) = delete;
    signals_blocked(signals_blocked &&) = delete;
    signals_blocked &operator=(signals_blocked &&) = delete;

    ~signals_blocked()
    {
        if (--blocks == 0)
        {
            if (const int number = waiting.exchange(0); number != 0)
            {
                kill(getpid(), number);
            }
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

private:
    sigset_t before_{};
};

} // namespace

bool postpone_signal(int number) noexcept
{
    // In this order, so that either the last object raises the signal, or the caller handles it.
    waiting = number;
    return blocks > 0 || waiting.exchange(0) == 0;
}

new_version::new_version(const std::filesystem::path &path, link_rule links)
    : path_(place_of(path, links)), temporary_(temporary_path(path_)), file_(temporary_, path)
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

void new_version::finish()
{
    file_.sync();
    file_.close();
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
    sync_directory(path_.parent_path());
}

void new_version::withdraw() noexcept
{
    if (temporary_.empty())
    {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
}

void require_no_link_in_recording(const std::filesystem::path &path)
{
    std::error_code failure;
    for (auto part = std::filesystem::absolute(path, failure); part.has_relative_path();
         part = part.parent_path())
    {
        if (is_link(part) && is_in_recording(part.parent_path()))
        {
            refuse_link(path, part);
        }
    }
}

void require_replaceable(const std::filesystem::path &path, link_rule links)
{
    const signals_blocked blocked;
    const new_directories removed_again(path);
    const new_version tried(path, links);
}

void remove_temporary_files(const std::filesystem::path &directory,
                            const std::vector<std::filesystem::path> &files)
{
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(directory, ignored))
    {
        if (std::ranges::find(files, original_path(entry.path())) != files.end())
        {
            std::filesystem::remove(entry.path(), ignored);
        }
    }
}

void replace_files(const std::vector<file_text> &files, link_rule links)
{
    const signals_blocked blocked;
    std::deque<new_directories> directories;
    std::deque<new_version> versions;
    for (const auto &file : files)
    {
        directories.emplace_back(file.path);
        auto &version = versions.emplace_back(file.path, links);
        version.file().append(file.text);
        version.finish();
    }
    for (auto &version : versions)
    {
        version.put_into_place();
    }
    for (auto &created : directories)
    {
        created.keep();
    }
}

} // namespace vantor
