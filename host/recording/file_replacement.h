/** @file
 * Replaces files atomically.
 */
#ifndef VANTOR_FILE_REPLACEMENT_H
#define VANTOR_FILE_REPLACEMENT_H

#include <filesystem>
#include <string>
#include <vector>

#include "recording/output_file.h"

namespace vantor
{

/** What happens if a symbolic link is at the path of a file. */
enum class link_rule
{
    followed, /**< its target is written, except in a recording */
    refused   /**< nothing is written */
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

} // namespace vantor

#endif
