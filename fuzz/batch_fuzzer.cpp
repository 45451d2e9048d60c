/** @file
 * Fuzzing of what arrives from a message broker: any bytes are decoded or refused, as a batch, as a state,
 * and as the name of a stream or a subject; what was decoded is the same after encoding and decoding it
 * again.
 */
#include "bridge/batch.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "bridge/board_state.h"
#include "bridge/nats_names.h"

namespace
{

using nlohmann::json;
using vantor::bad_batch;
using vantor::batch_header;
using vantor::board_state;

/** Aborts if a check fails. */
void check(bool passed)
{
    if (!passed)
    {
        std::abort();
    }
}

/** The members of a first line that are always there, and its end. */
auto values(const batch_header &header)
{
    return std::tuple(header.site, header.board, header.session, header.number, header.first, header.frames,
                      header.missing, header.end);
}

/** Whether two first lines describe the session alike. */
bool describe_alike(const batch_header &one, const batch_header &other)
{
    if (one.content == nullptr || other.content == nullptr)
    {
        return one.content == other.content;
    }
    return json(one.content->server) == json(other.content->server) &&
           one.content->configuration == other.content->configuration &&
           one.content->metadata == other.content->metadata;
}

/** Decodes bytes as a batch; nothing if they are not one. */
std::optional<vantor::batch> decode(std::string_view bytes)
try
{
    return vantor::decode_batch(bytes);
}
catch (const bad_batch &)
{
    return std::nullopt;
}

/** Checks what is true of all bytes. */
void check_batch(std::string_view bytes)
{
    const auto found = decode(bytes);
    if (!found)
    {
        return;
    }
    std::string messages;
    for (const auto message : found->messages)
    {
        messages += message;
    }
    check(messages == bytes.substr(bytes.find('\n') + 1));
    check(found->messages.size() == found->header.frames);
    const auto again = vantor::decode_batch_header(vantor::encode_batch(found->header, messages));
    check(values(again) == values(found->header));
    check(describe_alike(again, found->header));
    check(again.utc.has_value() == found->header.utc.has_value());
}

/** Bytes with the size that their first line should announce; nothing if it is not an object. */
std::optional<std::string> with_true_size(std::string_view bytes)
{
    const auto end = bytes.find('\n');
    auto line = json::parse(bytes.substr(0, end), nullptr, false);
    if (end == std::string_view::npos || !line.is_object())
    {
        return std::nullopt;
    }
    const auto messages = bytes.substr(end + 1);
    line["size"] = messages.size();
    return line.dump() + "\n" + std::string(messages);
}

/** The members of a state that are always there, and those that are texts. */
auto values(const board_state &state)
{
    return std::tuple(state.board, state.address, state.online, state.fault, state.server.has_value(),
                      state.sessions, state.frames, state.lost, state.dropped, state.waiting, state.rate,
                      state.temperature, state.calibration_needed);
}

/** Checks what is true of all bytes. */
void check_state(std::string_view bytes)
try
{
    const auto found = vantor::decode_state(bytes);
    const auto again = vantor::decode_state(vantor::encode_state(
        found.state, {.site = found.site, .bridge = "b", .now = {}, .interval = std::chrono::seconds(1)}));
    check(values(again.state) == values(found.state));
    check(again.site == found.site);
}
catch (const bad_batch &)
{
}

/** Checks what is true of all names of streams and subjects. */
void check_name(std::string_view name)
{
    if (const auto site = vantor::site_of_states(name))
    {
        check(vantor::is_batch_name(*site));
        check(vantor::nats_names(*site).states_stream == name);
    }
    constexpr std::string_view inbox = "_INBOX.answers.";
    if (const auto number = vantor::number_behind(inbox, name))
    {
        const auto digits = name.substr(std::min(name.find_first_not_of('0', inbox.size()), name.size()));
        check(digits == (*number == 0 ? "" : std::to_string(*number)));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    check_name(bytes);
    check_batch(bytes);
    check_state(bytes);
    if (const auto sized = with_true_size(bytes))
    {
        check_batch(*sized);
    }
    return 0;
}
