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
    explicit output_file(std::filesystem::path path);
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
     * Truncates the file.
     *
     * @param length  the new length in bytes, at most the current one
     */
    void truncate(uint64_t length) noexcept;

private:
    std::filesystem::path path_;
    int descriptor_ = -1;
};

/** A file and its complete new content. */
struct file_text
{
    std::filesystem::path path;
    std::string text;
};

/**
 * Replaces files atomically: a reader finds either the complete old text or the complete new text of each.
 *
 * @throws recording_error if they cannot be written; if the disk does not have space for all of them, no file
 *         is changed
 */
void replace_files(const std::vector<file_text> &files);

} // namespace vantor

#endif
