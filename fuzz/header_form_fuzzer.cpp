/** @file
 * Fuzzing of frame headers that are read in place: the first line of the input is the header whose form is
 * learned, each line after it is read with the form and by the general parser.
 */
#include "client/header_form.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "vantor/errors.h"
#include "vantor/message_parser.h"

namespace
{

using vantor::frame;
using vantor::frame_item;

/** Number of samples in a frame. */
constexpr size_t samples = 4;

/** Aborts if a check fails. */
void check(bool passed)
{
    if (!passed)
    {
        std::abort();
    }
}

/** The metadata of a session with two items. */
std::shared_ptr<const vantor::session_metadata> metadata()
{
    auto session = std::make_shared<vantor::session_metadata>();
    for (const size_t group : {0U, 1U})
    {
        vantor::item_layout item;
        item.group = group;
        item.frame_length = item.sweep_length = samples / 2;
        session->items.push_back(item);
    }
    return session;
}

/** The frame whose header the general parser finds in a text; nothing if it is not the header of a frame. */
std::optional<frame> parse(std::string_view header)
try
{
    static const auto session = metadata();
    vantor::message_parser parser;
    parser.expect_frames(samples * sizeof(vantor::sample));
    const auto text = std::string(header) + "\n" + std::string(samples * sizeof(vantor::sample), 'x');
    parser.feed(std::as_bytes(std::span(text)));
    const auto received = parser.next();
    if (!received || received->position != 0 || received->payload.empty())
    {
        return std::nullopt;
    }
    return vantor::decode_frame(*received, session);
}
catch (const vantor::bad_message &)
{
    return std::nullopt;
}
catch (const vantor::protocol_error &)
{
    return std::nullopt;
}

/** Whether two items have the same values. */
bool is_same(const frame_item &one, const frame_item &other)
{
    const auto values = [](const frame_item &item) {
        return std::tuple(item.tick, item.temperature, item.data_saturated, item.calibration_needed,
                          item.frame_delayed, item.data_valid,
                          item.cca_value ? std::bit_cast<uint64_t>(*item.cca_value) : 0,
                          item.cca_value.has_value(), item.cca_detected, item.tx_enabled,
                          item.utc ? item.utc->moment.time_since_epoch().count() : 0,
                          item.utc ? item.utc->bound.count() : 0, item.utc.has_value());
    };
    return values(one) == values(other);
}

/** Takes the next line from a text. */
std::string_view take_line(std::string_view &text)
{
    const auto line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string_view text(reinterpret_cast<const char *>(data), size);
    const auto first = take_line(text);
    const auto learned = parse(first);
    vantor::header_form form;
    if (learned)
    {
        form.learn(first, learned->items());
    }
    while (!text.empty())
    {
        const auto line = take_line(text);
        if (form.read(line))
        {
            const auto expected = parse(line);
            check(expected && expected->missing() == form.missing());
            check(std::ranges::equal(expected->items(), form.items(), is_same));
        }
    }
    return 0;
}
