/** @file
 * Splits the bytes of a link into messages. It does no input or output.
 *
 * A message is a line with a JSON object that has "status" and "payload_size", a line feed, then exactly
 * payload_size bytes.
 */
#ifndef VANTOR_MESSAGE_PARSER_H
#define VANTOR_MESSAGE_PARSER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "vantor/sample_buffer.h"

namespace vantor
{

/** One message of a server. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct message
{
    nlohmann::json header;          /**< an object with a string "status" and a number "payload_size" */
    std::vector<std::byte> payload; /**< "payload_size" bytes */
    uint64_t position = 0;          /**< where the header starts, counted in bytes since the first byte fed */
};

/** The maximum size of a message; a larger one is a fault. */
struct message_limits
{
    size_t header = size_t{1} << 20;  /**< bytes of a header line */
    size_t payload = size_t{1} << 26; /**< bytes of a payload */
};

/**
 * Splits a stream of bytes, received in pieces of any size, into messages.
 *
 * After a fault it throws bad_message once. It then skips lines until it finds a header, which may follow the
 * rest of a payload on the same line. The header of a frame with a wrong payload size is a new fault.
 */
class message_parser
{
public:
    /** @param limits  the maximum size of a message */
    explicit message_parser(message_limits limits = {});

    /** Adds received bytes, which are copied. */
    void feed(std::span<const std::byte> bytes);

    /**
     * Where to put received bytes, instead of passing them to feed(): one part after the other. The samples
     * of a frame are received in place after begin_samples().
     *
     * @return two parts, of which the first can be empty; valid until the next call
     */
    std::array<std::span<std::byte>, 2> space();

    /** Adds bytes that were put into the parts that space() has returned last. */
    void add(size_t count);

    /**
     * Takes the next complete message from the bytes fed so far.
     *
     * @return the message, or nothing if more bytes are needed
     * @throws bad_message if the bytes are not a message: the header is too long, is not JSON, is nested too
     *         deeply or is not an object, its "status" or "payload_size" is missing or out of range, or it
     *         announces a payload although it does not belong to a frame, or a frame of another size than
     *         expect_frames() has set. Call again to continue.
     */
    std::optional<message> next();

    /**
     * Sets the payload size of all frames from the next header on. A header with another size is a fault; the
     * bytes after it are searched for the next header, whatever size it announced.
     *
     * @param payload_size  in bytes; no value if unknown
     */
    void expect_frames(std::optional<size_t> payload_size) noexcept;

    /**
     * The next header line, for a caller that knows it without parsing it. A line feed follows.
     *
     * @return the line, valid until the next call; nothing if there is none yet, or next() has to be called
     */
    std::optional<std::string_view> peek_line() noexcept;

    /**
     * Consumes the line that peek_line() has returned as the header of a frame.
     *
     * @param samples  receives the samples. Call take_samples() to get them back, or next() to get a message.
     */
    void begin_samples(sample_buffer samples);

    /** Whether a frame is being received whose header was consumed by begin_samples(). */
    [[nodiscard]] bool within_samples() const noexcept;

    /** Takes the samples of this frame once they are complete; nothing if more bytes are needed. */
    std::optional<sample_buffer> take_samples();

    /** The header of the frame that was begun or parsed last, as text. */
    [[nodiscard]] const std::string &frame_header() const noexcept;

    /** Number of bytes consumed so far. */
    [[nodiscard]] uint64_t position() const noexcept;

    /** Whether the bytes fed so far end within a message. */
    [[nodiscard]] bool within_message() const noexcept;

    /** Number of payload bytes still missing from the current message; 0 if there is none. */
    [[nodiscard]] size_t missing() const noexcept;

    /** Drops a partial message and the expected size of frames, and counts bytes from 0 again. */
    void reset();

private:
    [[nodiscard]] std::string_view buffered() const noexcept;
    void make_room(size_t count);
    void end_samples();
    std::optional<std::string_view> take_line();
    bool read_header();
    bool fill_payload();
    void fill_samples();
    void consume(size_t count);
    void report(uint64_t position, const std::string &reason);

    message_limits limits_;
    std::optional<size_t> frame_payload_; /**< payload size of every frame, if known */
    std::vector<char> buffer_;
    size_t start_ = 0;   /**< where the bytes in buffer_ start that are not consumed */
    size_t end_ = 0;     /**< where they end */
    size_t scanned_ = 0; /**< bytes after start_ that contain no line feed */
    uint64_t position_ = 0;
    std::optional<message> pending_;       /**< its header has been read, its payload is incomplete */
    size_t payload_size_ = 0;              /**< payload size of pending_ */
    std::optional<sample_buffer> samples_; /**< of a frame whose header was consumed by begin_samples() */
    std::string frame_header_;             /**< of the last frame */
    uint64_t frame_position_ = 0;          /**< where it starts */
    size_t read_ahead_;                    /**< how many bytes to receive after samples */
    bool skipping_ = false;                /**< until the end of a line that is too long */
    bool lost_ = false;                    /**< a fault was reported, and no header has been found since */
};

} // namespace vantor

#endif
