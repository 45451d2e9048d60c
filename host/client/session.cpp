/** @file
 * Decodes the metadata of a session, and checks that they are consistent.
 */
#include "vantor/session.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

#include "client/json_members.h"
#include "vantor/configuration.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

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

} // namespace

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

} // namespace vantor
