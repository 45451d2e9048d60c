/** @file
 * Splits the bytes of a link into messages.
 */
#include "vantor/message_parser.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

/** Deepest nesting allowed in a header; the messages of the protocol need six levels. */
constexpr int deepest_nesting = 32;

/** Number of bytes to receive at once. */
constexpr size_t read_size = 65536;

/** Samples of this many bytes are received in place, although this takes more calls of the system. */
constexpr size_t large_payload = 16384;

/** How much longer than the last header the next one may be, in bytes, if no samples are to follow it. */
constexpr size_t longer_header = 64;

/** Finds the first bracket that nests deeper than allowed; npos if there is none. */
size_t find_excess_nesting(std::string_view text)
{
    int depth = 0;
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i)
    {
        const char c = text[i];
        if (quoted)
        {
            i += c == '\\' ? 1U : 0U;
            quoted = c != '"';
        }
        else if (c == '"')
        {
            quoted = true;
        }
        else if (c == '{' || c == '[')
        {
            if (++depth > deepest_nesting)
            {
                return i;
            }
        }
        else if (c == '}' || c == ']')
        {
            --depth;
        }
    }
    return std::string_view::npos;
}

/**
 * Finds the JSON object at the end of a line. After a fault, the rest of a payload may come before the next
 * header on the same line: a payload can contain any bytes, and no line feed follows it.
 *
 * @return where the object starts; 0 if there is none
 */
size_t find_last_object(std::string_view line)
{
    int depth = 0;
    bool quoted = false;
    for (size_t i = line.size(); i-- > 0;)
    {
        const char c = line[i];
        if (c == '"')
        {
            const auto before = line.substr(0, i).find_last_not_of('\\');
            const auto backslashes = i - (before == std::string_view::npos ? 0 : before + 1);
            quoted = quoted == (backslashes % 2 == 1);
        }
        else if (!quoted && (c == '}' || c == ']'))
        {
            ++depth;
        }
        else if (!quoted && (c == '{' || c == '[') && --depth <= 0)
        {
            return i;
        }
    }
    return 0;
}

/** What is wrong with a header, and where in its line. */
struct header_fault
{
    size_t offset = 0;
    std::string reason;
    bool wrong_size = false; /**< a header of a frame in which only the payload size is wrong */
};

/** The payload sizes that are allowed. */
struct payload_rule
{
    size_t largest = 0;
    std::optional<size_t> of_frames; /**< of every frame, if known */
};

/** Checks the payload size of a header; returns what is wrong, or an empty text. */
std::string check_payload(const nlohmann::json &header, size_t largest)
{
    const auto size = header.find("payload_size");
    if (size == header.end() || !size->is_number_integer())
    {
        return "the header has no whole number \"payload_size\"";
    }
    if (!size->is_number_unsigned())
    {
        return "\"payload_size\" is negative";
    }
    if (*size != 0 && !header.contains("result_info"))
    {
        return "\"payload_size\" is " + size->dump() + ", but only a frame can have a payload";
    }
    if (size->get<uint64_t>() > largest)
    {
        return "\"payload_size\" is " + size->dump() + ", but at most " + std::to_string(largest) +
               " bytes are allowed";
    }
    return {};
}

/**
 * Checks the members that every header must have.
 *
 * @return what is wrong; empty if the header is valid
 */
std::string check_members(const nlohmann::json &header, size_t largest_payload)
{
    if (!header.is_object())
    {
        return "the header is not a JSON object";
    }
    const auto status = header.find("status");
    if (status == header.end() || !status->is_string())
    {
        return "the header has no string \"status\"";
    }
    return check_payload(header, largest_payload);
}

/**
 * Parses a header line.
 *
 * @param line    without its line feed
 * @param rule    the values of "payload_size" that are allowed
 * @param header  receives the header
 * @return the fault, or nothing
 */
std::optional<header_fault> parse_header(std::string_view line, const payload_rule &rule,
                                         nlohmann::json &header)
{
    if (const auto excess = find_excess_nesting(line); excess != std::string_view::npos)
    {
        return header_fault{excess, "the header is nested too deeply"};
    }
    try
    {
        header = nlohmann::json::parse(line);
    }
    catch (const nlohmann::json::parse_error &failure)
    {
        return header_fault{failure.byte == 0 ? 0 : failure.byte - 1, "the header is not valid JSON"};
    }
    catch (const nlohmann::json::exception &)
    {
        return header_fault{0, "the header contains a number that is out of range"};
    }
    if (auto reason = check_members(header, rule.largest); !reason.empty())
    {
        return header_fault{0, std::move(reason)};
    }
    if (rule.of_frames && header.contains("result_info") && header["payload_size"] != *rule.of_frames)
    {
        return header_fault{0,
                            "\"payload_size\" is " + header["payload_size"].dump() +
                                ", but every frame of this session has " + std::to_string(*rule.of_frames) +
                                " bytes of samples",
                            true};
    }
    return std::nullopt;
}

/** What a line contains. */
struct line_content // NOLINT(bugprone-exception-escape): a JSON value moves without exceptions
{
    message candidate; /**< its header is valid if one was found */
    size_t start = 0;  /**< where the header starts */
    bool found = false;
    std::optional<header_fault> fault; /**< of the line, or of the header at its end */
};

/** Searches a line for a header: the complete line, or the object at its end. */
line_content search_line(std::string_view line, const payload_rule &rule)
{
    line_content content;
    content.fault = parse_header(line, rule, content.candidate.header);
    content.found = !content.fault;
    if (content.found || content.fault->wrong_size)
    {
        return content;
    }
    content.start = find_last_object(line);
    if (content.start > 0)
    {
        auto fault = parse_header(line.substr(content.start), rule, content.candidate.header);
        content.found = !fault;
        if (fault && fault->wrong_size)
        {
            fault->offset += content.start;
            content.fault = std::move(fault);
        }
    }
    return content;
}

} // namespace

message_parser::message_parser(message_limits limits) : limits_(limits), read_ahead_(read_size)
{
}

void message_parser::feed(std::span<const std::byte> bytes)
{
    make_room(bytes.size());
    std::ranges::copy(bytes,
                      std::as_writable_bytes(std::span(buffer_)).begin() + static_cast<ptrdiff_t>(end_));
    end_ += bytes.size();
}

std::array<std::span<std::byte>, 2> message_parser::space()
{
    fill_samples();
    const auto in_place = samples_ ? samples_->rest() : std::span<std::byte>();
    if (samples_ && in_place.size() < samples_->missing())
    {
        return {in_place, {}};
    }
    // A header that is longer than expected is not worth more than one further call of the system.
    const auto count = start_ == end_ ? read_ahead_ : read_size;
    make_room(count);
    return {in_place, std::as_writable_bytes(std::span(buffer_)).subspan(end_, count)};
}

void message_parser::add(size_t count)
{
    const auto in_place = samples_ ? std::min(samples_->rest().size(), count) : 0;
    if (samples_)
    {
        samples_->add(in_place);
        position_ += in_place;
    }
    end_ += count - in_place;
}

std::optional<message> message_parser::next()
{
    end_samples();
    if (!pending_ && !read_header())
    {
        return std::nullopt;
    }
    if (!fill_payload())
    {
        return std::nullopt;
    }
    auto complete = std::move(pending_);
    pending_.reset();
    return complete;
}

std::optional<std::string_view> message_parser::peek_line() noexcept
{
    if (pending_ || samples_ || skipping_)
    {
        return std::nullopt;
    }
    const auto bytes = buffered();
    const auto end = bytes.find('\n', scanned_);
    scanned_ = std::min(end, bytes.size());
    return end <= limits_.header ? std::optional(bytes.substr(0, end)) : std::nullopt;
}

void message_parser::begin_samples(sample_buffer samples)
{
    frame_header_ = buffered().substr(0, scanned_);
    frame_position_ = position_;
    lost_ = false;
    read_ahead_ = samples.missing() < large_payload ? read_size : frame_header_.size() + longer_header;
    consume(scanned_ + 1);
    samples_ = std::move(samples);
}

bool message_parser::within_samples() const noexcept
{
    return samples_.has_value();
}

std::optional<sample_buffer> message_parser::take_samples()
{
    fill_samples();
    if (!samples_ || samples_->missing() > 0)
    {
        return std::nullopt;
    }
    return std::exchange(samples_, std::nullopt);
}

const std::string &message_parser::frame_header() const noexcept
{
    return frame_header_;
}

uint64_t message_parser::position() const noexcept
{
    return position_;
}

bool message_parser::within_message() const noexcept
{
    return pending_.has_value() || samples_.has_value() || skipping_ || start_ != end_;
}

size_t message_parser::missing() const noexcept
{
    if (samples_)
    {
        return samples_->missing();
    }
    return pending_ ? payload_size_ - pending_->payload.size() : 0;
}

void message_parser::expect_frames(std::optional<size_t> payload_size) noexcept
{
    frame_payload_ = payload_size;
}

void message_parser::reset()
{
    *this = message_parser(limits_);
}

/** The bytes that were fed but not consumed. */
std::string_view message_parser::buffered() const noexcept
{
    return {buffer_.data() + start_, end_ - start_};
}

/** Makes room for bytes at the end of the buffer. */
void message_parser::make_room(size_t count)
{
    if (buffer_.size() - end_ < count && start_ > 0)
    {
        std::memmove(buffer_.data(), buffer_.data() + start_, end_ - start_);
        end_ -= std::exchange(start_, 0);
    }
    if (buffer_.size() - end_ < count)
    {
        buffer_.resize(end_ + count);
    }
}

/** Removes bytes from the front of the buffer; views of them become invalid when bytes are added. */
void message_parser::consume(size_t count)
{
    start_ += count;
    position_ += count;
    scanned_ = 0;
    if (start_ == end_)
    {
        start_ = 0;
        end_ = 0;
    }
}

/** Reports a fault, unless the parser has not yet recovered from the previous one. */
void message_parser::report(uint64_t position, const std::string &reason)
{
    if (!lost_)
    {
        lost_ = true;
        throw bad_message(position, reason);
    }
}

/**
 * Finds the next complete line; drops a line as soon as it is too long for a header.
 *
 * @return the line without its line feed, still in the buffer; nothing if more bytes are needed
 */
std::optional<std::string_view> message_parser::take_line()
{
    while (true)
    {
        const auto bytes = buffered();
        const auto end = bytes.find('\n', scanned_);
        const auto length = std::min(end, bytes.size());
        const bool too_long = length > limits_.header;
        const auto begin = position_;
        if (end == std::string_view::npos && !too_long && !skipping_)
        {
            scanned_ = bytes.size();
            return std::nullopt;
        }
        if (end != std::string_view::npos && !too_long && !skipping_)
        {
            return bytes.substr(0, end);
        }
        const bool reported = skipping_;
        skipping_ = end == std::string_view::npos;
        consume(skipping_ ? bytes.size() : end + 1);
        if (!reported)
        {
            report(begin, "the header is longer than " + std::to_string(limits_.header) + " bytes");
        }
        if (skipping_)
        {
            return std::nullopt;
        }
    }
}

/** Parses the next header into pending_; false if more bytes are needed. */
bool message_parser::read_header()
{
    const payload_rule rule{.largest = limits_.payload, .of_frames = frame_payload_};
    while (const auto line = take_line())
    {
        auto [candidate, start, found, fault] = search_line(*line, rule);
        const auto begin = position_;
        const bool reported = std::exchange(lost_, !found);
        if (found)
        {
            if (candidate.header.contains("result_info"))
            {
                frame_header_ = line->substr(start);
            }
            read_ahead_ = read_size;
            candidate.position = begin + start;
            payload_size_ = candidate.header["payload_size"].get<size_t>();
            pending_ = std::move(candidate);
        }
        consume(line->size() + 1);
        if (fault && (!reported || fault->wrong_size))
        {
            throw bad_message(begin + fault->offset, fault->reason);
        }
        if (found)
        {
            return true;
        }
    }
    return false;
}

/** Moves buffered bytes to the samples that are being received. */
void message_parser::fill_samples()
{
    while (samples_ && samples_->missing() > 0 && start_ < end_)
    {
        const auto rest = samples_->rest();
        const auto count = std::min(rest.size(), end_ - start_);
        std::memcpy(rest.data(), buffer_.data() + start_, count);
        samples_->add(count);
        consume(count);
    }
}

/** Continues a frame whose header was consumed by begin_samples() as a message. */
void message_parser::end_samples()
{
    if (const auto begun = std::exchange(samples_, std::nullopt))
    {
        pending_ = {.header = nlohmann::json::parse(frame_header_),
                    .payload = {begun->bytes().begin(), begun->bytes().end()},
                    .position = frame_position_};
        payload_size_ = begun->bytes().size() + begun->missing();
    }
}

/** Moves buffered bytes to the payload; true once it is complete. */
bool message_parser::fill_payload()
{
    auto &payload = pending_->payload;
    const auto bytes = buffered();
    const auto count = std::min(payload_size_ - payload.size(), bytes.size());
    const auto old_size = payload.size();
    payload.resize(old_size + count);
    if (count > 0)
    {
        std::memcpy(payload.data() + old_size, bytes.data(), count);
        consume(count);
    }
    return payload.size() == payload_size_;
}

} // namespace vantor
