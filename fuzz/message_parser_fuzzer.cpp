/** @file
 * Fuzzing of the host's message parser: for any bytes, in pieces of any size, it finds the same messages and
 * the same errors, accounts for every byte, and finds the next message after the errors. This is also so if
 * samples are received in place.
 */
#include "vantor/message_parser.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "vantor/errors.h"

namespace
{

using vantor::message;
using vantor::message_parser;

/** Limits low enough that an input can exceed them. */
constexpr vantor::message_limits limits{.header = 256, .payload = 512};

/** Aborts if a check fails. */
void check(bool passed)
{
    if (!passed)
    {
        std::abort();
    }
}

/** A result of a parser: a message or an error. */
struct event
{
    bool is_message = false; /**< a message, not an error */
    uint64_t position = 0;
    std::string text; /**< the header, or the error */
    std::vector<std::byte> payload;

    bool operator==(const event &) const = default;
};

/** Converts a message to an event, and checks the guarantees of the parser. */
event describe(const message &received)
{
    check(received.header.is_object() && received.header.at("status").is_string());
    check(received.header.at("payload_size").get<uint64_t>() == received.payload.size());
    check(received.payload.size() <= limits.payload);
    return {true, received.position, received.header.dump(), received.payload};
}

/** Takes one event from a parser; returns false if it needs more bytes. */
bool take(message_parser &parser, std::vector<event> &events)
{
    try
    {
        const auto received = parser.next();
        if (received)
        {
            events.push_back(describe(*received));
        }
        return received.has_value();
    }
    catch (const vantor::bad_message &fault)
    {
        events.push_back({false, fault.position(), fault.what(), {}});
        return true;
    }
}

/** Feeds a piece and takes all events that it completes. */
void play(message_parser &parser, std::string_view piece, std::vector<event> &events)
{
    parser.feed(std::as_bytes(std::span(piece)));
    while (take(parser, events))
    {
    }
}

/** Feeds a stream in pieces of at most @p longest bytes. Their sizes depend on the stream itself. */
std::vector<event> play_in_pieces(message_parser &parser, std::string_view stream, size_t longest)
{
    std::vector<event> events;
    size_t state = stream.size();
    while (!stream.empty())
    {
        state = state * 31 + static_cast<unsigned char>(stream.front());
        const auto piece = stream.substr(0, 1 + state % longest);
        play(parser, piece, events);
        stream.remove_prefix(piece.size());
    }
    return events;
}

/** The payload size of a line that is the header of a frame by itself; nothing if it is not. */
std::optional<size_t> size_of_frame(std::string_view line)
try
{
    message_parser parser(limits);
    const auto text = std::string(line) + "\n";
    parser.feed(std::as_bytes(std::span(text)));
    const auto received = parser.next();
    if (received && !received->header.contains("result_info"))
    {
        return std::nullopt;
    }
    return parser.missing();
}
catch (const vantor::bad_message &)
{
    return std::nullopt;
}

/** Like take(), but the samples of most frames are received in place. */
bool take_in_place(message_parser &parser, const std::shared_ptr<vantor::sample_pool> &pool,
                   std::vector<event> &events)
{
    const auto line = parser.peek_line();
    if (const auto size = line ? size_of_frame(*line) : std::nullopt)
    {
        parser.begin_samples(vantor::sample_buffer(*size, pool));
    }
    if (const auto samples = parser.take_samples())
    {
        const auto &header = parser.frame_header();
        const auto bytes = samples->bytes();
        events.push_back({true,
                          parser.position() - bytes.size() - header.size() - 1,
                          nlohmann::json::parse(header).dump(),
                          {bytes.begin(), bytes.end()}});
        return true;
    }
    // Every other frame that is incomplete becomes a message.
    return (!parser.within_samples() || parser.missing() % 2 == 0) && take(parser, events);
}

/** Puts a stream in pieces of at most @p longest bytes where the parser has space for them. */
std::vector<event> play_in_place(message_parser &parser, std::string_view stream, size_t longest)
{
    const auto pool = std::make_shared<vantor::sample_pool>();
    std::vector<event> events;
    while (!stream.empty())
    {
        const auto [first, second] = parser.space();
        const auto count = std::min({longest, stream.size(), first.size() + second.size()});
        const auto bytes = std::as_bytes(std::span(stream)).first(count);
        const auto in_first = std::min(count, first.size());
        std::ranges::copy(bytes.first(in_first), first.begin());
        std::ranges::copy(bytes.subspan(in_first), second.begin());
        parser.add(count);
        stream.remove_prefix(count);
        while (take_in_place(parser, pool, events))
        {
        }
    }
    return events;
}

/** Whether a header equals the line at its position in the stream. */
bool is_at_position(std::string_view stream, const event &found)
{
    const auto end = stream.find('\n', found.position);
    const auto line = stream.substr(found.position, end - found.position);
    return end != std::string_view::npos && nlohmann::json::parse(line).dump() == found.text;
}

/**
 * Accounts for every byte up to the last message: between two messages there is nothing, or other bytes with
 * one error, which is in their first line.
 */
void check_places(std::string_view stream, const std::vector<event> &events)
{
    // The end of the previous message.
    uint64_t end = 0;
    const event *fault = nullptr;
    for (const auto &found : events)
    {
        if (!found.is_message)
        {
            check(fault == nullptr && found.position >= end && found.position <= stream.find('\n', end));
            fault = &found;
            continue;
        }
        check((found.position > end) == (fault != nullptr));
        check(is_at_position(stream, found));
        end = stream.find('\n', found.position) + 1 + found.payload.size();
        check(end <= stream.size());
        fault = nullptr;
    }
}

/** Completes the current message: one line feed ends an incomplete line, an incomplete payload needs more. */
void close_message(message_parser &parser)
{
    std::vector<event> events;
    size_t line_feeds = 0;
    do
    {
        play(parser, "\n", events);
        ++line_feeds;
    } while (parser.within_message());
    check(line_feeds <= limits.payload + 1);
}

/** Feeds a message after other bytes on the same line. The parser must find it. */
void check_recovery(message_parser &parser, const std::string &before)
{
    std::vector<event> events;
    const auto position = parser.position() + before.size();
    play(parser, before + "{\"result_info\":[],\"status\":\"ok\",\"payload_size\":3}\n\n{}", events);
    check(!parser.within_message() && events.back().is_message && events.back().position == position);
}

/** Bytes that do not end a line and do not begin a JSON text. */
std::string rest_of_payload(std::string_view stream)
{
    std::string text(1, ']');
    std::copy_if(stream.begin(), stream.begin() + std::min<ptrdiff_t>(std::ssize(stream), 150),
                 std::back_inserter(text), [](char c) { return c != '\n'; });
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view stream(reinterpret_cast<const char *>(data), size);
    message_parser one_piece(limits);
    std::vector<event> events;
    play(one_piece, stream, events);
    check_places(stream, events);
    for (const size_t longest : {1U, 7U, 300U})
    {
        message_parser parser(limits);
        check(play_in_pieces(parser, stream, longest) == events);
        check(parser.position() == one_piece.position());
        check(parser.within_message() == one_piece.within_message());
        message_parser in_place(limits);
        check(play_in_place(in_place, stream, longest) == events);
        check(in_place.position() == one_piece.position());
        check(in_place.within_message() == one_piece.within_message());
    }
    close_message(one_piece);
    check_recovery(one_piece, "");
    check_recovery(one_piece, rest_of_payload(stream));
    return 0;
}
