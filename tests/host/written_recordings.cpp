/** @file
 * Recordings with given samples.
 */
#include "written_recordings.h"

#include <cmath>
#include <memory>
#include <string>

#include "example_recording.h"
#include "fake_server.h"
#include "vantor/recording_writer.h"

namespace vantor::test
{
namespace
{

using nlohmann::json;

/** Rounds a sample. */
sample rounded(std::complex<double> value)
{
    return {static_cast<int16_t>(std::lround(value.real())), static_cast<int16_t>(std::lround(value.imag()))};
}

/** Metadata of an item with one sub-sweep. */
json layout_of(size_t points, size_t sweeps, double max_sweep_rate, double base_step)
{
    return {{"calibration_temperature", 25}, {"frame_data_length", points * sweeps},
            {"sweep_data_length", points},   {"max_sweep_rate", max_sweep_rate},
            {"high_speed_mode", true},       {"base_step_length_m", base_step},
            {"subsweep_data_offset", {0}},   {"subsweep_data_length", {points}}};
}

/** A frame. */
frame decoded(const json &header, const std::vector<sample> &samples,
              const std::shared_ptr<const session_metadata> &metadata)
{
    message received;
    received.header = header;
    const auto bytes = std::as_bytes(std::span(samples));
    received.payload.assign(bytes.begin(), bytes.end());
    return decode_frame(received, metadata);
}

/** The value for a key, or a default. */
template <typename value_t> value_t value_or(const std::map<int, value_t> &values, int key, value_t otherwise)
{
    const auto found = values.find(key);
    return found == values.end() ? otherwise : found->second;
}

/** A session with the same item several times. */
session_description session_of(const json &item, const json &layout, size_t count)
{
    auto description = example_description();
    description.configuration["groups"] = json::array({std::vector(count, item)});
    auto document = example_session().metadata;
    document["metadata"] = json::array({std::vector(count, layout)});
    description.metadata = decode_metadata(document);
    return description;
}

/** The session of an item. */
session_description session_of(const written_item &item)
{
    const auto layout = layout_of(item.points, item.sweeps, item.max_sweep_rate, 0.0025);
    auto session = session_of({{"sensor_id", 1}, {"config", item.config}}, layout, 1);
    auto document = session.metadata.document;
    document["tick_period"] = item.paced && item.has_clock ? item.frame_ticks : 0;
    session.metadata = decode_metadata(document);
    session.server.ticks_per_second = item.has_clock ? 1e6 : 0.0;
    return session;
}

} // namespace

void write_turning_recording(const std::filesystem::path &directory, int frames, double turn,
                             const std::set<int> &not_valid)
{
    const auto description = example_description();
    const auto metadata = std::make_shared<const session_metadata>(description.metadata);
    recording_writer writer(directory, description);
    for (int number = 0; number < frames; ++number)
    {
        auto header = example_session().frame_header(static_cast<uint32_t>(number));
        std::vector<sample> samples(95);
        const auto value = rounded(std::polar(10000.0, turn * number));
        for (const size_t place : {12U, 32U, 43U, 70U})
        {
            samples[place] = value;
        }
        if (not_valid.contains(number))
        {
            header["result_info"][0][0]["data_valid"] = false;
            samples[12] = {};
            samples[3] = {30000, 30000};
        }
        writer.add(decoded(header, samples, metadata));
    }
    writer.finish();
}

void write_items(const std::filesystem::path &directory, size_t items, int points, double base_step)
{
    const auto layout = layout_of(static_cast<size_t>(points), 1, 1000, base_step);
    const auto description = session_of({{"sensor_id", 1}, {"config", json::object()}}, layout, items);
    const auto metadata = std::make_shared<const session_metadata>(description.metadata);
    recording_writer writer(directory, description);
    for (uint32_t number = 0; number < 20; ++number)
    {
        auto header = example_session().frame_header(number);
        const auto info = header["result_info"][0][0];
        header["result_info"] = json::array({std::vector(items, info)});
        const auto part = static_cast<int16_t>(number * 0x101U);
        writer.add(decoded(header, std::vector<sample>(metadata->frame_length(), {part, part}), metadata));
    }
    writer.finish();
}

void write_item(const std::filesystem::path &directory, const written_item &item, int frames,
                const sample_source &source, const header_change &change)
{
    const auto description = session_of(item);
    const auto metadata = std::make_shared<const session_metadata>(description.metadata);
    recording_writer writer(directory, description);
    uint64_t missing = 0;
    for (int number = 0; number < frames; ++number)
    {
        missing += value_or<uint64_t>(item.missing, number, 0);
        auto header = example_session().frame_header(static_cast<uint32_t>(number));
        auto info = header["result_info"][0][0];
        const auto due = static_cast<uint32_t>(number) + static_cast<uint32_t>(missing);
        info["tick"] = item.has_clock ? due * item.frame_ticks : 0;
        if (change)
        {
            change(number, info);
        }
        header["result_info"] = json::array({json::array({info})});
        std::vector<sample> samples;
        for (size_t i = 0; i < item.points * item.sweeps; ++i)
        {
            samples.push_back(rounded(source(number, i / item.points, i % item.points)));
        }
        if (const double gap = value_or(item.breaks, number, 0.0); gap > 0.0)
        {
            writer.begin_segment(
                {.number = 1, .reason = "reconnected", .gap = gap, .calibration_temperatures = {25}});
        }
        auto received = decoded(header, samples, metadata);
        received.set_missing(missing);
        writer.add(received);
    }
    if (item.finished)
    {
        writer.finish();
    }
}

void write_many_gaps(const std::filesystem::path &directory, bool paced)
{
    written_item item{.config = json::object(), .points = 1, .frame_ticks = 100};
    item.paced = paced;
    const auto description = session_of(item);
    const auto metadata = std::make_shared<const session_metadata>(description.metadata);
    recording_writer writer(directory, description);
    for (uint32_t number = 0; number < frames_between_gaps; ++number)
    {
        frame_item measured;
        measured.tick = 2 * number * 100;
        auto added = make_frame(metadata, {{1, 1}}, {measured});
        added.set_missing(number);
        writer.add(added);
    }
    writer.finish();
}

} // namespace vantor::test
