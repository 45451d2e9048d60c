/** @file
 * The frames of a recording as messages, in an endless loop.
 */
#include "replay/message_source.h"

#include <cmath>

#include "recording/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

/** The part of a frame header that describes one item. */
ordered_json describe(const frame_row &row, uint32_t more_ticks)
{
    ordered_json item = {{"tick", row.tick + more_ticks},
                         {"data_saturated", row.data_saturated},
                         {"temperature", row.temperature},
                         {"calibration_needed", row.calibration_needed},
                         {"frame_delayed", row.frame_delayed}};
    if (row.data_valid)
    {
        item["data_valid"] = *row.data_valid;
    }
    if (row.cca_value)
    {
        item["cca_value"] = *row.cca_value;
    }
    if (row.cca_detected)
    {
        item["cca_detected"] = *row.cca_detected;
    }
    if (row.tx_enabled)
    {
        item["tx_enabled"] = *row.tx_enabled;
    }
    return item;
}

} // namespace

message_source::message_source(recording_reader &recording) : recording_(recording)
{
    rewind();
}

void message_source::rewind()
{
    lap_seconds_ = 0.0;
    lap_ticks_ = 0;
    open_tables();
}

/** Opens the frame tables of all items at their first line. */
void message_source::open_tables()
{
    number_ = 0;
    tables_.clear();
    for (const auto &item : recording_.items())
    {
        tables_.emplace_back(recording_.directory() / (item.name + ".frames.csv"));
    }
}

/** Returns to the first frame, one mean frame period after the last one. */
void message_source::begin_lap()
{
    const auto steps = static_cast<double>(recording_.frames() > 1 ? recording_.frames() - 1 : 1);
    const double lap = last_seconds_ > 0.0 ? last_seconds_ * (steps + 1.0) / steps : 1.0;
    const double ticks = lap * recording_.session().server.ticks_per_second;
    lap_seconds_ += lap;
    lap_ticks_ += static_cast<uint32_t>(std::llround(ticks));
    open_tables();
}

replayed_frame message_source::next()
{
    if (number_ == recording_.frames())
    {
        begin_lap();
    }
    auto groups = ordered_json::array();
    std::string payload;
    std::vector<sample> samples;
    for (size_t i = 0; i < recording_.items().size(); ++i)
    {
        const auto &item = recording_.items()[i];
        const auto row = tables_[i].next();
        if (!row)
        {
            throw bad_recording("The frame table of " + item.name +
                                " has fewer lines than the recording has frames.");
        }
        if (item.layout.index == 0)
        {
            groups.push_back(ordered_json::array());
        }
        groups.back().push_back(describe(*row, lap_ticks_));
        last_seconds_ = i == 0 ? row->seconds : last_seconds_;
        recording_.read_frame(i, number_, samples);
        const auto bytes = std::as_bytes(std::span(samples));
        payload.append(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    }
    ++number_;
    const ordered_json header = {
        {"result_info", std::move(groups)}, {"status", "ok"}, {"payload_size", payload.size()}};
    return {lap_seconds_ + last_seconds_, header.dump() + "\n" + payload};
}

} // namespace vantor
