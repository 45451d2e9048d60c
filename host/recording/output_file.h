/** @file
 * A file that can be appended to and truncated to an earlier length.
 */
#ifndef VANTOR_OUTPUT_FILE_H
#define VANTOR_OUTPUT_FILE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vantor
{

/** What happens if a symbolic link is at the path of a file. */
enum class link_rule
{
    followed, /**< its target is written, except in a recording */
    refused   /**< nothing is written */
};

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
 * The new version of a file. It is written to a temporary file in the same directory, and removed if it is
 * not put into place.
 */
class new_version
{
public:
    /**
     * Creates the temporary file. Its directory is created if it is missing, but not if links are refused, as
     * in recordings.
     *
     * @param path   the file to replace or create
     * @param links  what happens if it is a symbolic link
     * @throws recording_error if it cannot be created, if something else than a file is at the path, or if
     *         a link is refused
     */
    explicit new_version(const std::filesystem::path &path, link_rule links = link_rule::followed);
    new_version(const new_version &) = delete;
    new_version &operator=(const new_version &) = delete;
    new_version(new_version &&) = delete;
    new_version &operator=(new_version &&) = delete;
    ~new_version();

    /** The temporary file. */
    [[nodiscard]] output_file &file() noexcept
    {
        return file_;
    }

    /**
     * Closes the temporary file, which is complete, and waits until it is on the disk.
     *
     * @throws recording_error if it cannot be written
     */
    void finish();

    /**
     * Puts the new version into the place of the old one, atomically and durably. Call finish() first.
     *
     * @throws recording_error if this is not possible; the old version then stays
     */
    void put_into_place();

    /** Removes the file if put_into_place() has created it. */
    void withdraw() noexcept;

private:
    std::filesystem::path path_;
    std::filesystem::path temporary_; /**< empty once the file is in its place */
    output_file file_;
};

/**
 * Checks that nothing is written through a symbolic link in a recording: recordings come from anywhere, and a
 * link in one could lead to any file of the user.
 *
 * @param path  the file or directory to write; need not exist
 * @throws recording_error if the path, or a directory in it, is a symbolic link in a recording
 */
void require_no_link_in_recording(const std::filesystem::path &path);

/**
 * Checks that a file can be replaced or created, before work is done for it. Nothing is changed.
 *
 * @throws recording_error like new_version
 */
void require_replaceable(const std::filesystem::path &path, link_rule links = link_rule::followed);

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

/**
 * Makes a signal that ends the program wait while another thread replaces files, so that none of its
 * temporary files is left. For signal handlers.
 *
 * @param number  the signal; the thread raises it again when it has replaced them
 * @return whether the signal waits; otherwise it can end the program now
 */
bool postpone_signal(int number) noexcept;

/** A file and its complete new content. */
struct file_text
{
    std::filesystem::path path;
    std::string text;
};

/**
 * Replaces files atomically: a reader finds either the complete old text or the complete new text of each,
 * even after a power failure. SIGINT, SIGTERM and SIGHUP wait until no temporary file is left: in this
 * thread, and in others if their handlers use postpone_signal().
 *
 * @throws recording_error if they cannot be written; if the disk does not have space for all of them, no file
 *         is changed
 */
void replace_files(const std::vector<file_text> &files, link_rule links = link_rule::followed);

/** Removes the temporary files of programs that were killed while they replaced one of these files of a
 * directory. */
void remove_temporary_files(const std::filesystem::path &directory,
                            const std::vector<std::filesystem::path> &files);

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
