/** @file
 * Batches: frames of one board on their way through a message broker.
 */
#include "bridge/batch.h"

#include <algorithm>
#include <limits>
#include <span>

#include "client/json_members.h"
#include "client/utc_members.h"
#include "vantor/configuration.h"
#include "vantor/message_parser.h"

namespace vantor
{
namespace
{

/** The version of the first line. */
constexpr int batch_version = 1;

/** Longest name of a site or a board. */
constexpr size_t longest_name = 64;

/** Longest first line: it contains a configuration and its metadata. */
constexpr size_t longest_line = size_t{4} << 20U;

/** Whether a character can be in the name of a site or a board. */
bool is_name_character(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

/** Reads a member that is an object. */
const nlohmann::json &read_object(const nlohmann::json &line, const char *name)
{
    const auto &found = member(line, name);
    if (!found.is_object())
    {
        throw bad_batch("The member \"" + std::string(name) + "\" of a batch is not an object.");
    }
    return found;
}

/** The name of a session. */
std::string session_member(const nlohmann::json &line)
{
    constexpr size_t longest = 128;
    auto name = text_member(line, "session");
    if (name.empty() || name.size() > longest)
    {
        throw bad_batch("The name of the session is empty, or too long.");
    }
    return name;
}

/** Reads what describes the session; null if there is nothing. */
std::shared_ptr<const batch_session> read_session(const nlohmann::json &line)
{
    if (!line.contains("metadata"))
    {
        return nullptr;
    }
    return std::make_shared<const batch_session>(
        batch_session{.server = read_object(line, "server"),
                      .configuration = read_object(line, "configuration"),
                      .metadata = read_object(line, "metadata")});
}

/** Reads the first line; throws bad_batch, configuration_error or protocol_error if it is not valid. */
batch_header read_header(const nlohmann::json &line, size_t size)
{
    if (to_integer(member(line, "vantor_batch"), "vantor_batch", 1, std::numeric_limits<int>::max()) !=
        batch_version)
    {
        throw bad_batch("The batch has another version than 1: a newer Vantor has written it.");
    }
    if (count_member(line, "size") != size)
    {
        throw bad_batch("The batch is not complete, or too long.");
    }
    return {.site = name_member(line, "site"),
            .board = name_member(line, "board"),
            .session = session_member(line),
            .number = count_member(line, "number"),
            .first = count_member(line, "first"),
            .frames = count_member(line, "frames"),
            .missing = count_member(line, "missing"),
            .utc = utc_members(line),
            .content = read_session(line),
            .end = optional_text_member(line, "end")};
}

/** Splits messages of frames, which must be complete; throws bad_batch or bad_message if they are not. */
std::vector<std::string_view> split_messages(std::string_view bytes, uint64_t frames)
{
    message_parser parser;
    parser.feed(std::as_bytes(std::span(bytes)));
    std::vector<std::string_view> messages;
    size_t begin = 0;
    while (const auto next = parser.next())
    {
        if (!next->header.contains("result_info") || next->position != begin || bytes[begin] != '{')
        {
            throw bad_batch("A message of the batch is not a frame.");
        }
        messages.push_back(bytes.substr(begin, parser.position() - begin));
        begin = parser.position();
    }
    if (begin != bytes.size() || messages.size() != frames)
    {
        throw bad_batch("The batch does not contain the number of frames that it announces.");
    }
    return messages;
}

/** Splits a batch in its first line and its messages. */
std::pair<std::string_view, std::string_view> split_line(std::string_view bytes)
{
    const auto end = bytes.substr(0, longest_line).find('\n');
    if (end == std::string_view::npos || bytes.size() > largest_batch)
    {
        throw bad_batch("The batch has no first line, or is too long.");
    }
    return {bytes.substr(0, end), bytes.substr(end + 1)};
}

/** Runs a function that decodes; every failure becomes bad_batch. */
template <typename decode_t> auto or_bad_batch(decode_t decode) -> decltype(decode())
try
{
    return decode();
}
catch (const bad_batch &)
{
    throw;
}
catch (const error &fault)
{
    throw bad_batch(fault.what());
}

} // namespace

bool is_batch_name(std::string_view text) noexcept
{
    return !text.empty() && text.size() <= longest_name && std::ranges::all_of(text, is_name_character);
}

std::string to_batch_name(std::string_view text)
{
    std::string name(text.substr(0, longest_name));
    std::ranges::replace_if(
        name, [](char c) { return !is_name_character(c); }, '-');
    return name.empty() ? "board" : name;
}

std::string name_member(const nlohmann::json &document, const char *name)
{
    auto text = text_member(document, name);
    if (!is_batch_name(text))
    {
        throw bad_batch("The member \"" + std::string(name) + "\" is not the name of a site or a board.");
    }
    return text;
}

std::string encode_batch(const batch_header &header, std::string_view messages)
{
    nlohmann::ordered_json line = {
        {"vantor_batch", batch_version}, {"site", header.site},       {"board", header.board},
        {"session", header.session},     {"number", header.number},   {"first", header.first},
        {"frames", header.frames},       {"missing", header.missing}, {"size", messages.size()}};
    if (header.utc)
    {
        add_utc_members(line, *header.utc);
    }
    if (header.content)
    {
        line["server"] = header.content->server;
        line["configuration"] = header.content->configuration;
        line["metadata"] = header.content->metadata;
    }
    if (header.end)
    {
        line["end"] = *header.end;
    }
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n" +
           std::string(messages);
}

std::string batch_id(const batch_header &header)
{
    return header.board + "/" + header.session + "/" + std::to_string(header.number);
}

batch_header decode_batch_header(std::string_view bytes)
{
    return or_bad_batch([bytes] {
        const auto [line, messages] = split_line(bytes);
        return read_header(parse_json_text(line, "The first line"), messages.size());
    });
}

batch decode_batch(std::string_view bytes)
{
    auto header = decode_batch_header(bytes);
    auto messages = or_bad_batch([&] { return split_messages(split_line(bytes).second, header.frames); });
    return {.header = std::move(header), .messages = std::move(messages)};
}

} // namespace vantor
