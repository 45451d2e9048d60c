/** @file
 * Decodes the messages of a server, and checks that they are consistent.
 */
#include "vantor/session.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#include "client/json_members.h"
#include "configuration/optional_members.h"
#include "vantor/configuration.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

static_assert(std::endian::native == std::endian::little,
              "samples are copied as received, in little-endian order");
static_assert(sizeof(sample) == 4 && std::is_trivially_copyable_v<sample>,
              "a sample is two 16-bit numbers without padding");

/** Decodes the sub-sweep offsets and lengths of an item. */
std::vector<subsweep_layout> decode_subsweeps(const nlohmann::json &document, size_t sweep_length)
{
    const auto &offsets = array_member(document, "subsweep_data_offset");
    const auto &lengths = array_member(document, "subsweep_data_length");
    if (offsets.size() != lengths.size())
    {
        throw protocol_error("The session metadata has " + std::to_string(offsets.size()) +
                             " sub-sweep offsets but " + std::to_string(lengths.size()) + " lengths.");
    }
    const auto bound = static_cast<int64_t>(sweep_length);
    std::vector<subsweep_layout> subsweeps;
    int64_t end = 0;
    for (size_t i = 0; i < offsets.size(); ++i)
    {
        const auto offset = to_integer(offsets[i], "subsweep_data_offset", 0, bound);
        const auto length = to_integer(lengths[i], "subsweep_data_length", 0, bound - offset);
        if (offset < end)
        {
            throw protocol_error("The session metadata has sub-sweeps that overlap.");
        }
        end = offset + length;
        subsweeps.push_back({static_cast<size_t>(offset), static_cast<size_t>(length)});
    }
    return subsweeps;
}

/** Decodes a rate; NaN if it is not reported. */
double rate_member(const nlohmann::json &document, const char *name)
{
    const double rate = number_member(document, name);
    if (rate < 0.0)
    {
        throw protocol_error("The session metadata have a negative \"" + std::string(name) +
                             "\": " + document[name].dump() + ".");
    }
    return rate;
}

/** Decodes the distance of a base step, in metres; NaN if the server does not know it. */
double step_member(const nlohmann::json &document, const char *name)
{
    constexpr double longest_m = 1.0;
    const double length_m = number_member(document, name);
    if (length_m <= 0.0 || length_m > longest_m)
    {
        throw protocol_error("The session metadata have an impossible \"" + std::string(name) +
                             "\": " + document[name].dump() + ".");
    }
    return length_m;
}

/** Decodes the layout of one item, without its distances. */
item_layout decode_layout(const nlohmann::json &document, size_t group, size_t index)
{
    item_layout layout;
    layout.group = group;
    layout.index = index;
    layout.calibration_temperature = integer_member<int16_t>(document, "calibration_temperature");
    layout.frame_length = length_member(document, "frame_data_length");
    layout.sweep_length = length_member(document, "sweep_data_length");
    layout.max_sweep_rate = rate_member(document, "max_sweep_rate");
    layout.high_speed_mode = boolean_member(document, "high_speed_mode");
    layout.base_step_length_m = step_member(document, "base_step_length_m");
    layout.subsweeps = decode_subsweeps(document, layout.sweep_length);
    if (layout.sweeps() * layout.sweep_length != layout.frame_length ||
        layout.sweep_length > layout.frame_length)
    {
        throw protocol_error("The session metadata announces frames of " +
                             std::to_string(layout.frame_length) + " samples, not a multiple of the " +
                             std::to_string(layout.sweep_length) + " samples of a sweep.");
    }
    return layout;
}

/** Decodes the calibrations; none if the board has no sensors. */
std::vector<calibration> decode_calibrations(const nlohmann::json &document)
{
    std::vector<calibration> calibrations;
    if (!document.contains("calibration_info"))
    {
        return calibrations;
    }
    for (const auto &entry : array_member(document, "calibration_info"))
    {
        calibrations.push_back({.sensor_id = integer_member<uint16_t>(entry, "sensor_id"),
                                .temperature = integer_member<int16_t>(entry, "temperature"),
                                .data = text_member(entry, "data")});
    }
    return calibrations;
}

/** Checks that an array has as many elements as the metadata announced. */
void check_shape(const nlohmann::json &array, size_t expected, const char *what)
{
    if (!array.is_array() || array.size() != expected)
    {
        throw protocol_error("A frame has " + std::to_string(array.size()) + " " + what +
                             ", but the session metadata announced " + std::to_string(expected) + ".");
    }
}

/** Returns the item objects of a frame as one list; checks them against the groups of the metadata. */
std::vector<const nlohmann::json *> flatten(const nlohmann::json &groups, const session_metadata &metadata)
{
    std::vector<size_t> sizes;
    for (const auto &layout : metadata.items)
    {
        sizes.resize(layout.group + 1);
        ++sizes.back();
    }
    check_shape(groups, sizes.size(), "groups");
    std::vector<const nlohmann::json *> items;
    for (size_t group = 0; group < sizes.size(); ++group)
    {
        check_shape(groups[group], sizes[group], "items in a group");
        for (const auto &item : groups[group])
        {
            items.push_back(&item);
        }
    }
    return items;
}

/** Decodes the part of a frame header that describes one item. */
frame_item decode_item(const nlohmann::json &document)
{
    frame_item item;
    item.tick = integer_member<uint32_t>(document, "tick");
    item.temperature = integer_member<int16_t>(document, "temperature");
    item.data_saturated = boolean_member(document, "data_saturated");
    item.calibration_needed = boolean_member(document, "calibration_needed");
    item.frame_delayed = boolean_member(document, "frame_delayed");
    item.data_valid = optional_boolean_member(document, "data_valid");
    item.cca_value = optional_number_member(document, "cca_value");
    item.cca_detected = optional_boolean_member(document, "cca_detected");
    item.tx_enabled = optional_boolean_member(document, "tx_enabled");
    return item;
}

} // namespace

size_t session_metadata::frame_length() const noexcept
{
    size_t total = 0;
    for (const auto &item : items)
    {
        total += item.frame_length;
    }
    return total;
}

std::span<const sample> frame_item::subsweep(size_t sweep, size_t subsweep) const
{
    const auto &place = layout->subsweeps.at(subsweep);
    return samples.subspan(sweep * layout->sweep_length + place.offset, place.length);
}

std::span<const double> frame_item::distances(size_t subsweep) const
{
    const auto &place = layout->subsweeps.at(subsweep);
    return std::span(layout->distances_m).subspan(place.offset, place.length);
}

void frame::set_seconds(double seconds, double ticks_per_second) noexcept
{
    for (auto &item : items_)
    {
        // The items of a frame are measured within a short time of each other, in any order.
        const auto later = static_cast<int32_t>(item.tick - items_.front().tick);
        item.seconds = seconds + (ticks_per_second > 0.0 ? later / ticks_per_second : 0.0);
    }
}

namespace
{

/** Decodes the memory usage. */
memory_use decode_memory(const nlohmann::json &memory)
{
    return {.size = integer_member<uint32_t>(memory, "size"),
            .live = integer_member<uint32_t>(memory, "live"),
            .peak = integer_member<uint32_t>(memory, "peak"),
            .largest_free = integer_member<uint32_t>(memory, "largest_free"),
            .failures = integer_member<uint32_t>(memory, "failures")};
}

/** Decodes the stack usage. */
stack_use decode_stack(const nlohmann::json &stack)
{
    return {.size = integer_member<uint32_t>(stack, "size"), .peak = integer_member<uint32_t>(stack, "peak")};
}

/** Decodes the description of the board. */
board_info decode_board(const nlohmann::json &board)
{
    if (!board.is_object())
    {
        throw protocol_error("The server sent a \"board\" that is not an object.");
    }
    return {.name = optional_text_member(board, "name"),
            .id = optional_text_member(board, "id"),
            .reset_cause = optional_text_member(board, "reset_cause"),
            .last_fault = optional_text_member(board, "last_fault"),
            .sensors = optional_text_member(board, "sensors")};
}

/** Decodes the rate of the server's clock. Within these bounds all times can be computed. */
double decode_ticks_per_second(const nlohmann::json &document)
{
    constexpr double lowest = 1e-3;
    constexpr double highest = 1e12;
    const double rate = number_member(document, "ticks_per_second");
    if (rate != 0.0 && !(rate >= lowest && rate <= highest))
    {
        throw protocol_error(
            "The server reports \"ticks_per_second\": " + document["ticks_per_second"].dump() +
            "; it must be 0 (no clock) or from 0.001 to 1e12.");
    }
    return rate;
}

} // namespace

server_info decode_server_info(const nlohmann::json &document)
{
    server_info info;
    info.server_version = text_member(document, "server_version");
    info.protocol_version = integer_member<int32_t>(document, "protocol_version");
    info.sensor = text_member(document, "sensor");
    info.sensor_count = integer_member<uint16_t>(document, "sensor_count");
    for (const auto &id : array_member(document, "connected_sensors"))
    {
        info.connected_sensors.push_back(
            static_cast<unsigned>(to_integer(id, "connected_sensors", 1, info.sensor_count)));
    }
    info.ticks_per_second = decode_ticks_per_second(document);
    info.max_baudrate = integer_member<uint32_t>(document, "max_baudrate");
    info.last_drop = optional_text_member(document, "last_drop");
    if (document.contains("board"))
    {
        info.board = decode_board(document["board"]);
    }
    if (document.contains("memory"))
    {
        info.memory = decode_memory(document["memory"]);
    }
    if (document.contains("stack"))
    {
        info.stack = decode_stack(document["stack"]);
    }
    if (document.contains("configuration"))
    {
        info.configuration = document["configuration"];
    }
    return info;
}

namespace
{

/** Sets the distances of an item. */
void set_item_distances(item_layout &layout, const item_configuration &item)
{
    const auto count = std::min(layout.subsweeps.size(), item.subsweeps.size());
    for (size_t i = 0; i < count; ++i)
    {
        const auto &place = layout.subsweeps[i];
        const auto &range = item.subsweeps[i];
        for (size_t point = 0; point < place.length; ++point)
        {
            const double steps = range.start_point + static_cast<double>(point) * range.step_length;
            layout.distances_m[place.offset + point] = steps * layout.base_step_length_m;
        }
    }
}

/** Throws if an item does not have the sub-sweeps that were requested. */
void check_subsweeps(const item_layout &layout, const item_configuration &item)
{
    // The server takes another number from one that is not possible.
    const auto is_requested = [](const subsweep_layout &place, const subsweep_range &range) {
        const bool is_possible = range.num_points > 0 && range.num_points <= UINT16_MAX;
        return !is_possible || std::cmp_equal(place.length, range.num_points);
    };
    if (!std::ranges::equal(layout.subsweeps, item.subsweeps, is_requested))
    {
        throw protocol_error(
            "The session metadata describe other sub-sweeps than the configuration requests, in group " +
            std::to_string(layout.group + 1) + ", item " + std::to_string(layout.index + 1) +
            ": it may be another server at the same address, or another program may be using the same link.");
    }
}

/** Counts the values of a document, including those in arrays and objects. */
size_t count_values(const nlohmann::json &document)
{
    size_t count = 1;
    for (const auto &value : document)
    {
        count += value.is_structured() ? count_values(value) : 1;
    }
    return count;
}

/** Throws if the metadata are too long for the documents of a recording. */
void check_number_of_values(const nlohmann::json &document)
{
    constexpr size_t most_values = 50000;
    if (count_values(document) > most_values)
    {
        throw protocol_error("The session metadata have more than " + std::to_string(most_values) +
                             " values.");
    }
}

/** Throws if no message can contain the frames that the metadata announce. This also limits their memory. */
void check_frame_length(const session_metadata &metadata)
{
    constexpr size_t largest = message_limits().payload;
    const auto size = metadata.frame_length() * sizeof(sample);
    if (size > largest)
    {
        throw protocol_error("The session metadata announce frames of " + std::to_string(size) +
                             " bytes, more than the " + std::to_string(largest) +
                             " bytes that a message can have.");
    }
}

} // namespace

session_metadata decode_metadata(const nlohmann::json &document)
{
    check_number_of_values(document);
    session_metadata metadata;
    metadata.tick_period = integer_member<uint32_t>(document, "tick_period");
    metadata.calibrations = decode_calibrations(document);
    size_t group_index = 0;
    for (const auto &group : array_member(document, "metadata"))
    {
        if (!group.is_array() || group.empty())
        {
            throw protocol_error("The session metadata has a group that is not a list of items.");
        }
        for (size_t index = 0; index < group.size(); ++index)
        {
            metadata.items.push_back(decode_layout(group[index], group_index, index));
        }
        ++group_index;
    }
    check_frame_length(metadata);
    for (auto &layout : metadata.items)
    {
        layout.distances_m.assign(layout.sweep_length, std::numeric_limits<double>::quiet_NaN());
    }
    metadata.document = document;
    return metadata;
}

void set_distances(session_metadata &metadata, const nlohmann::json &configuration)
try
{
    const auto items = list_items(configuration);
    for (size_t i = 0; i < std::min(items.size(), metadata.items.size()); ++i)
    {
        set_item_distances(metadata.items[i], items[i]);
    }
}
catch (
    const configuration_error &) // NOLINT(bugprone-empty-catch): the server accepts items that it cannot use
{
}

void check_requested(const session_metadata &metadata, const nlohmann::json &configuration)
try
{
    const auto items = list_items(configuration);
    if (items.size() != metadata.items.size())
    {
        throw protocol_error("The session metadata describe " + std::to_string(metadata.items.size()) +
                             " items, but the configuration has " + std::to_string(items.size()) +
                             ": another program may be using the same link.");
    }
    for (size_t i = 0; i < items.size(); ++i)
    {
        check_subsweeps(metadata.items[i], items[i]);
    }
}
catch (
    const configuration_error &) // NOLINT(bugprone-empty-catch): the server accepts items that it cannot use
{
}

double nominal_frame_rate(const nlohmann::json &configuration, const session_metadata &metadata,
                          const server_info &server)
try
{
    return metadata.tick_period > 0 ? server.ticks_per_second / metadata.tick_period
                                    : sensor_frame_rate(configuration);
}
catch (const configuration_error &)
{
    // The server accepts documents with items that it cannot use.
    return 0.0;
}

frame make_frame(std::shared_ptr<const session_metadata> metadata, std::vector<sample> samples,
                 std::vector<frame_item> items)
{
    if (samples.size() != metadata->frame_length() || items.size() != metadata->items.size())
    {
        throw protocol_error("A frame does not have the length announced in the session metadata.");
    }
    frame result;
    result.samples_ = std::move(samples);
    result.items_ = std::move(items);
    size_t offset = 0;
    for (size_t i = 0; i < result.items_.size(); ++i)
    {
        auto &item = result.items_[i];
        item.layout = &metadata->items[i];
        item.samples = std::span<const sample>(result.samples_).subspan(offset, item.layout->frame_length);
        offset += item.layout->frame_length;
    }
    result.metadata_ = std::move(metadata);
    return result;
}

frame decode_frame(const message &received, std::shared_ptr<const session_metadata> metadata)
{
    const auto expected = metadata->frame_length() * sizeof(sample);
    if (received.payload.size() != expected)
    {
        throw protocol_error("A frame has " + std::to_string(received.payload.size()) +
                             " bytes of samples, but the session metadata announced " +
                             std::to_string(expected) + ".");
    }
    std::vector<frame_item> items;
    for (const auto *document : flatten(array_member(received.header, "result_info"), *metadata))
    {
        items.push_back(decode_item(*document));
    }
    std::vector<sample> samples(metadata->frame_length());
    if (expected > 0)
    {
        std::memcpy(samples.data(), received.payload.data(), expected);
    }
    return make_frame(std::move(metadata), std::move(samples), std::move(items));
}

namespace
{

/** Encodes the part of a frame header that describes one item. */
nlohmann::ordered_json encode_item(const frame_item &item)
{
    nlohmann::ordered_json document = {{"tick", item.tick},
                                       {"data_saturated", item.data_saturated},
                                       {"temperature", item.temperature},
                                       {"calibration_needed", item.calibration_needed},
                                       {"frame_delayed", item.frame_delayed}};
    set_if_known(document, "data_valid", item.data_valid);
    set_if_known(document, "cca_value", item.cca_value);
    set_if_known(document, "cca_detected", item.cca_detected);
    set_if_known(document, "tx_enabled", item.tx_enabled);
    return document;
}

} // namespace

std::string encode_frame(const frame &encoded)
{
    auto groups = nlohmann::ordered_json::array();
    for (const auto &item : encoded.items())
    {
        if (item.layout->index == 0)
        {
            groups.push_back(nlohmann::ordered_json::array());
        }
        groups.back().push_back(encode_item(item));
    }
    const auto samples = std::as_bytes(encoded.samples());
    const nlohmann::ordered_json header = {
        {"result_info", std::move(groups)}, {"status", "ok"}, {"payload_size", samples.size()}};
    std::string text = header.dump() + "\n";
    text.append(reinterpret_cast<const char *>(samples.data()), samples.size());
    return text;
}

} // namespace vantor
