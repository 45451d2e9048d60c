/** @file
 * A file that can be appended to and truncated to an earlier length.
 */
#ifndef VANTOR_OUTPUT_FILE_H
#define VANTOR_OUTPUT_FILE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string_view>

namespace vantor
{

/**
 * A file that can be appended to. Every append is passed to the operating system immediately, so nothing that
 * was appended is lost if the program is killed.
 */
class output_file
{
public:
    /**
     * Creates the file.
     *
     * @throws recording_error if it exists already or cannot be created
     */
    explicit output_file(const std::filesystem::path &path);

    /** Creates the file, and uses another path for it in messages; throws like the function above. */
    output_file(const std::filesystem::path &path, std::filesystem::path name);
    output_file(const output_file &) = delete;
    output_file &operator=(const output_file &) = delete;
    output_file(output_file &&other) noexcept;
    output_file &operator=(output_file &&) = delete;
    ~output_file();

    /**
     * Appends bytes.
     *
     * @throws recording_error if the disk is full or fails; a part may have been written
     */
    void append(std::span<const std::byte> bytes);

    /** Appends text; throws like the function above. */
    void append(std::string_view text);

    /**
     * Replaces bytes that were appended before.
     *
     * @param position  of the first of them
     * @throws recording_error if the disk fails
     */
    void overwrite(uint64_t position, std::span<const std::byte> bytes);

    /**
     * Truncates the file.
     *
     * @param length  the new length in bytes, at most the current one
     */
    void truncate(uint64_t length) noexcept;

    /**
     * Waits until everything appended so far is on the disk. Another thread may call this at any time between
     * construction and close().
     *
     * @throws recording_error if the disk fails
     */
    void sync() const;

    /**
     * Closes the file, which must not be used afterwards.
     *
     * @throws recording_error if the operating system reports that not all bytes could be written
     */
    void close();

    /** Whether somebody has removed the file since it was created. */
    [[nodiscard]] bool is_removed() const noexcept;

    /** Whether the file has fewer bytes than this: somebody has shortened it. */
    [[nodiscard]] bool is_shorter_than(uint64_t length) const noexcept;

    /** Whether the file is still at the path at which it was created. */
    [[nodiscard]] bool is_in_place() const noexcept;

    /** The path in messages. */
    [[nodiscard]] const std::filesystem::path &name() const noexcept
    {
        return name_;
    }

private:
    std::filesystem::path name_;
    int descriptor_ = -1;
};

/**
 * Checks that shorten_file() can change a file. Nothing is changed.
 *
 * @throws recording_error if not
 */
void require_shortenable(const std::filesystem::path &path);

/**
 * Waits until the names of the files in a directory are on the disk.
 *
 * @param path  the directory; empty for the current one
 * @throws recording_error if this is not possible
 */
void sync_directory(const std::filesystem::path &path);

/** A directory whose files this program changes. It does not keep other programs from doing the same. */
class directory_in_use
{
public:
    explicit directory_in_use(const std::filesystem::path &path) noexcept;
    directory_in_use(const directory_in_use &) = delete;
    directory_in_use &operator=(const directory_in_use &) = delete;
    directory_in_use(directory_in_use &&) = delete;
    directory_in_use &operator=(directory_in_use &&) = delete;
    ~directory_in_use();

    /** Whether no other program has an object for this directory. The object has no effect afterwards. */
    [[nodiscard]] bool is_last_user() const noexcept;

private:
    int descriptor_; /**< negative if the directory cannot be opened */
};

/**
 * Removes the end of a file, durably.
 *
 * @param path    the file; a symbolic link is refused
 * @param length  the new length in bytes; nothing happens if the file has this length
 * @throws recording_error if this is not possible, or the file is shorter
 */
void shorten_file(const std::filesystem::path &path, uint64_t length);

} // namespace vantor

#endif
