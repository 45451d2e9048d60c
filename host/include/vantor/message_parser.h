/** @file
 * Cuts the bytes of a link into messages. Pure: it does no input or output of its own.
 *
 * A message is one line of JSON, an object with "status" and "payload_size", a line feed, then exactly
 * payload_size bytes.
 */
#ifndef VANTOR_MESSAGE_PARSER_H
#define VANTOR_MESSAGE_PARSER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace vantor
{

/** One message of a server. */
// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON document does not throw
struct message
{
    nlohmann::json header;          /**< an object with a text "status" and a number "payload_size" */
    std::vector<std::byte> payload; /**< "payload_size" bytes */
    uint64_t position = 0;          /**< where the header starts, in bytes from the first byte fed */
};

/** How large a message may be before it is taken for a fault. */
struct message_limits
{
    size_t header = size_t{1} << 20;  /**< bytes of a header line */
    size_t payload = size_t{1} << 26; /**< bytes of a payload */
};

/**
 * Cuts a stream of bytes into messages, whatever the pieces in which the bytes arrive.
 *
 * After a fault it reports one bad_message and then drops line after line, in silence, until one is a header
 * or ends with one, behind the rest of a payload: so it finds the next message by itself.
 */
class message_parser
{
public:
    /** @param limits  how large a message may be */
    explicit message_parser(message_limits limits = {});

    /** Adds received bytes; they are copied. */
    void feed(std::span<const std::byte> bytes);

    /**
     * Takes the next whole message out of the bytes fed so far.
     *
     * @return the message, or nothing when more bytes are needed
     * @throws bad_message when the bytes are no message: a header that is too long, not JSON, nested too deep
     *         or not an object, or whose "status" or "payload_size" is missing or out of range, or that
     *         announces a payload and is not that of a frame. Call again to go on.
     */
    std::optional<message> next();

    /** Number of bytes taken out of the stream so far. */
    [[nodiscard]] uint64_t position() const noexcept;

    /** Whether the bytes fed so far end within a message. */
    [[nodiscard]] bool within_message() const noexcept;

    /** Bytes that the payload of the message under way still lacks; 0 when none is under way. */
    [[nodiscard]] size_t missing() const noexcept;

    /** Forgets what is half received and counts bytes from 0 again. */
    void reset();

private:
    [[nodiscard]] std::string_view buffered() const noexcept;
    std::optional<std::string_view> take_line();
    bool read_header();
    bool fill_payload();
    void consume(size_t count);
    void report(uint64_t position, const std::string &reason);

    message_limits limits_;
    std::vector<char> buffer_;
    size_t start_ = 0;   /**< of the bytes in buffer_ that are not consumed */
    size_t scanned_ = 0; /**< bytes after start_ that hold no line feed */
    uint64_t position_ = 0;
    std::optional<message> pending_; /**< its header is read, its payload is not complete */
    size_t payload_size_ = 0;        /**< of pending_ */
    bool skipping_ = false;          /**< to the end of an over-long line */
    bool lost_ = false;              /**< a fault was reported and no header found since */
};

} // namespace vantor

#endif
