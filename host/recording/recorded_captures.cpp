/** @file
 * Reads the captures of a recording from its documents.
 */
#include "recording/recorded_captures.h"

#include <algorithm>

#include "recording/sigmf.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** The calibration temperatures of all items in a capture; 0 where the metadata are damaged. */
std::vector<int> calibration_temperatures(const recording_documents &documents, size_t position)
{
    std::vector<int> temperatures;
    for (const auto &item : documents.items)
    {
        const bool known = !item.document.is_null() && position < item.document["captures"].size();
        temperatures.push_back(
            known ? item.document["captures"][position].value("vantor:calibration_temperature", 0) : 0);
    }
    return temperatures;
}

/** Reads the capture at a position of an item. */
capture read_capture(const recording_documents &documents, const recorded_item &item, size_t position)
{
    const auto &entry = item.document["captures"][position];
    const auto length = std::max<size_t>(item.layout.frame_length, 1);
    const auto start = entry["core:sample_start"].get<uint64_t>();
    capture read{.first_frame = start / length,
                 .frames_missing = (entry["core:global_index"].get<uint64_t>() - start) / length,
                 .datetime = entry.value("core:datetime", "")};
    if (entry.contains("vantor:break"))
    {
        read.begins = segment{.number = 0,
                              .reason = entry.value("vantor:break", ""),
                              .gap = entry.value("vantor:break_s", 0.0),
                              .calibration_temperatures = calibration_temperatures(documents, position)};
    }
    return read;
}

} // namespace

std::vector<capture> read_captures(const recording_documents &documents)
{
    for (const auto &item : documents.items)
    {
        std::vector<capture> captures;
        const auto count = item.document.is_null() ? 0 : item.document["captures"].size();
        for (size_t position = 0; position < count; ++position)
        {
            captures.push_back(read_capture(documents, item, position));
        }
        if (!captures.empty())
        {
            return captures;
        }
    }
    return {capture{}};
}

uint64_t read_unlisted_breaks(const std::vector<recorded_item> &items)
{
    uint64_t breaks = 0;
    for (const auto &item : items)
    {
        if (!item.document.is_null())
        {
            breaks = std::max(breaks, item.document["global"].value(unlisted_breaks_member, uint64_t{0}));
        }
    }
    return breaks;
}

} // namespace vantor
