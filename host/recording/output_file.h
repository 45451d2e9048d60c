/** @file
 * A file that grows at its end and can be cut back to a length at which it was whole.
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
 * A file that grows at its end. Every append goes to the operating system at once, so a program that is
 * killed leaves all that was appended.
 */
class output_file
{
public:
    /**
     * Creates the file.
     *
     * @throws recording_error when it exists or cannot be created
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
     * @throws recording_error when the disk is full or broken; a part may have been written
     */
    void append(std::span<const std::byte> bytes);

    /** Appends text; fails as above. */
    void append(std::string_view text);

    /**
     * Cuts the file back.
     *
     * @param length  the new length in bytes, at most the present one
     */
    void truncate(uint64_t length) noexcept;

private:
    std::filesystem::path path_;
    int descriptor_ = -1;
};

/** A file that is written at once. */
struct file_text
{
    std::filesystem::path path;
    std::string text;
};

/**
 * Replaces files, in such a way that a reader finds the old or the new text of each, whole.
 *
 * @throws recording_error when they cannot be written; when there is no room for all of them, all old files
 *         are untouched
 */
void replace_files(const std::vector<file_text> &files);

} // namespace vantor

#endif
