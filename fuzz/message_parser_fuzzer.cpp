/** @file
 * Fuzzing of the host's message parser: whatever bytes come, and in whatever pieces, it finds the same
 * messages and the same faults, accounts for every byte, and finds the next message once the line is in order
 * again.
 */
#include "vantor/message_parser.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

#include "vantor/errors.h"

namespace
{

using vantor::message;
using vantor::message_parser;

/** Low enough for an input to exceed them. */
constexpr vantor::message_limits limits{.header = 256, .payload = 512};

/** Ends the run when something does not hold. */
void demand(bool holds)
{
    if (!holds)
    {
        std::abort();
    }
}

/** What came out of a parser: a message or a fault. */
struct event
{
    bool whole = false; /**< a message */
    uint64_t position = 0;
    std::string text; /**< the header, or what is wrong */
    std::vector<std::byte> payload;

    bool operator==(const event &) const = default;
};

/** A message as an event; it must keep what the parser promises. */
event describe(const message &received)
{
    demand(received.header.is_object() && received.header.at("status").is_string());
    demand(received.header.at("payload_size").get<uint64_t>() == received.payload.size());
    demand(received.payload.size() <= limits.payload);
    return {true, received.position, received.header.dump(), received.payload};
}

/** Takes one event out of a parser; false when it needs more bytes. */
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

/** Feeds a piece and takes out all that it completes. */
void play(message_parser &parser, std::string_view piece, std::vector<event> &events)
{
    parser.feed(std::as_bytes(std::span(piece)));
    while (take(parser, events))
    {
    }
}

/** Feeds a stream in pieces of at most so many bytes, their sizes drawn from the stream itself. */
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

/** Whether a header is what stands in the stream from its place to the end of the line. */
bool stands_there(std::string_view stream, const event &found)
{
    const auto end = stream.find('\n', found.position);
    const auto line = stream.substr(found.position, end - found.position);
    return end != std::string_view::npos && nlohmann::json::parse(line).dump() == found.text;
}

/**
 * Accounts for every byte up to the last message: between two messages there is nothing, or something that is
 * no message and one fault, which lies in the first line of it.
 */
void check_places(std::string_view stream, const std::vector<event> &events)
{
    // The end of the message before.
    uint64_t end = 0;
    const event *fault = nullptr;
    for (const auto &found : events)
    {
        if (!found.whole)
        {
            demand(fault == nullptr && found.position >= end && found.position <= stream.find('\n', end));
            fault = &found;
            continue;
        }
        demand((found.position > end) == (fault != nullptr));
        demand(stands_there(stream, found));
        end = stream.find('\n', found.position) + 1 + found.payload.size();
        demand(end <= stream.size());
        fault = nullptr;
    }
}

/** Puts the line in order: one line feed closes a line half received, a payload half received takes more. */
void close_message(message_parser &parser)
{
    std::vector<event> events;
    size_t line_feeds = 0;
    do
    {
        play(parser, "\n", events);
        ++line_feeds;
    } while (parser.within_message());
    demand(line_feeds <= limits.payload + 1);
}

/** Sends a message after bytes that are on the same line; it is found. */
void check_way_back(message_parser &parser, const std::string &before)
{
    std::vector<event> events;
    const auto position = parser.position() + before.size();
    play(parser, before + "{\"result_info\":[],\"status\":\"ok\",\"payload_size\":3}\n\n{}", events);
    demand(!parser.within_message() && events.back().whole && events.back().position == position);
}

/** Bytes that end no line and begin no JSON. */
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
    message_parser whole(limits);
    std::vector<event> events;
    play(whole, stream, events);
    check_places(stream, events);
    for (const size_t longest : {1U, 7U, 300U})
    {
        message_parser parser(limits);
        demand(play_in_pieces(parser, stream, longest) == events);
        demand(parser.position() == whole.position());
        demand(parser.within_message() == whole.within_message());
    }
    close_message(whole);
    check_way_back(whole, "");
    check_way_back(whole, rest_of_payload(stream));
    return 0;
}
