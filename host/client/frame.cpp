/** @file
 * Frames: their messages, and their parts.
 */
#include <bit>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

#include "client/json_members.h"
#include "client/utc_members.h"
#include "configuration/optional_members.h"
#include "vantor/errors.h"
#include "vantor/session.h"

namespace vantor
{
namespace
{

static_assert(std::endian::native == std::endian::little,
              "samples are copied as received, in little-endian order");
static_assert(sizeof(sample) == 4 && std::is_trivially_copyable_v<sample>,
              "a sample is two 16-bit numbers without padding");

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
    item.utc = utc_members(document);
    return item;
}

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
    if (item.utc)
    {
        add_utc_members(document, *item.utc);
    }
    return document;
}

} // namespace

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

frame::frame(std::shared_ptr<const session_metadata> metadata, storage samples, std::vector<frame_item> items)
    : metadata_(std::move(metadata)), samples_(std::move(samples)), items_(std::move(items))
{
    const auto all = this->samples();
    if (all.size() != metadata_->frame_length() || items_.size() != metadata_->items.size())
    {
        throw protocol_error("A frame does not have the length announced in the session metadata.");
    }
    size_t offset = 0;
    for (size_t i = 0; i < items_.size(); ++i)
    {
        auto &item = items_[i];
        item.layout = &metadata_->items[i];
        item.samples = all.subspan(offset, item.layout->frame_length);
        offset += item.layout->frame_length;
    }
}

frame make_frame(std::shared_ptr<const session_metadata> metadata, std::vector<sample> samples,
                 std::vector<frame_item> items)
{
    return {std::move(metadata), std::move(samples), std::move(items)};
}

frame make_frame(std::shared_ptr<const session_metadata> metadata, sample_buffer samples,
                 std::vector<frame_item> items)
{
    return {std::move(metadata), std::move(samples), std::move(items)};
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
    auto decoded = make_frame(std::move(metadata), std::move(samples), std::move(items));
    decoded.set_missing(
        received.header.contains("missing") ? integer_member<uint32_t>(received.header, "missing") : 0);
    return decoded;
}

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
