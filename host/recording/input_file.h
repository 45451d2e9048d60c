/** @file
 * Reads the files of a recording: regular files only, never more than fits in memory.
 */
#ifndef VANTOR_INPUT_FILE_H
#define VANTOR_INPUT_FILE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vantor
{

/** A regular file that is read. */
class input_file
{
public:
    /**
     * Opens the file; never waits, as opening a named pipe would.
     *
     * @throws bad_recording if it is missing, cannot be opened, or is not a regular file
     */
    explicit input_file(std::filesystem::path path);
    input_file(const input_file &) = delete;
    input_file &operator=(const input_file &) = delete;
    input_file(input_file &&other) noexcept;
    input_file &operator=(input_file &&) = delete;
    ~input_file();

    /** Its current size in bytes. */
    [[nodiscard]] uint64_t size() const;

    /**
     * Reads bytes.
     *
     * @param position  where to start
     * @param bytes     buffer that receives them
     * @return the number of bytes read: less than requested only at the end of the file
     * @throws bad_recording if the file cannot be read
     */
    [[nodiscard]] size_t read(uint64_t position, std::span<std::byte> bytes) const;

    /** Whether another program, such as "vantor record", still writes the file. */
    [[nodiscard]] bool is_being_written() const noexcept;

    /** The path, for messages. */
    [[nodiscard]] const std::filesystem::path &path() const noexcept
    {
        return path_;
    }

private:
    std::filesystem::path path_;
    int descriptor_ = -1;
};

/** Most bytes of a document. */
inline constexpr uint64_t most_document_bytes = uint64_t{16} << 20U;

/**
 * Reads a complete document.
 *
 * @throws bad_recording if it cannot be read, is not a regular file, or has more than most_document_bytes
 */
std::string read_document_text(const std::filesystem::path &path);

/** Reads a text file line by line. */
class line_reader
{
public:
    /** Longest line unless another length is given; a row of a frame table has some hundred bytes at most. */
    static constexpr size_t usual_line_bytes = 4096;

    /**
     * Opens the file.
     *
     * @param most_line_bytes  of a line
     * @throws bad_recording like input_file
     */
    explicit line_reader(std::filesystem::path path, size_t most_line_bytes = usual_line_bytes);

    /**
     * Reads the next line.
     *
     * @return the line, without its line feed and valid until the next call; nothing at the end of the file
     *         or if the last line has no line feed
     * @throws bad_recording if the file cannot be read, or a line is too long, which the next call passes
     */
    std::optional<std::string_view> next();

    /** Sets what is called before each read of the file; an exception ends the call of next(). */
    void on_read(std::function<void()> handler);

    /** Continues at a byte of the file. */
    void seek(uint64_t position) noexcept;

    /** Number of bytes before the line that next() returns next. */
    [[nodiscard]] uint64_t position() const noexcept
    {
        return position_ - (buffer_.size() - start_);
    }

    /** The file. */
    [[nodiscard]] const input_file &file() const noexcept
    {
        return file_;
    }

private:
    bool fill();
    bool pass_long_line();

    input_file file_;
    size_t most_line_bytes_;
    uint64_t position_ = 0; /**< of the bytes after those in the buffer */
    std::string buffer_;
    size_t start_ = 0;     /**< of the next line in the buffer */
    bool is_long_ = false; /**< the buffer begins within a line that is too long */
    std::function<void()> on_read_;
};

} // namespace vantor

#endif
