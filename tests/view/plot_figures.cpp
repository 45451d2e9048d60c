/** @file
 * Writes the frames of a recording as messages of a server, and what `vantor plot` computes from them. A test
 * compares that with what the page of the live view computes.
 */
#include <filesystem>
#include <fstream>
#include <iostream>

#include <nlohmann/json.hpp>

#include "plot/distance_bins.h"
#include "plot/item_analysis.h"
#include "plot/sensor_scale.h"

namespace
{

using nlohmann::json;
using vantor::recorded_item;
using vantor::recording_reader;

/** An item, as the page receives its description. */
json describe(const recorded_item &item, double frame_rate)
{
    json subsweeps = json::array();
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        const auto &place = item.layout.subsweeps[i];
        subsweeps.push_back({{"offset", place.offset},
                             {"points", place.length},
                             {"start_m", item.layout.distances_m.at(place.offset)},
                             {"step_m", vantor::step_length(item, i)}});
    }
    return {{"group", item.layout.group},
            {"index", item.layout.index},
            {"sweeps", item.layout.sweeps()},
            {"points", item.layout.sweep_length},
            {"wavelength_m", vantor::sensor_figure("wavelength")},
            {"full_scale", vantor::full_scale},
            {"max_velocity_sweeps", vantor::velocity_bound(vantor::sweep_rate(item))},
            {"max_velocity_frames", vantor::velocity_bound(frame_rate)},
            {"subsweeps", subsweeps}};
}

/** The centre of each bin of the maps, in metres. */
json centres_of_bins(const recorded_item &item)
{
    const vantor::distance_bins bins(item);
    json centres = json::array();
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        for (size_t bin = 0; bin < bins.count(i); ++bin)
        {
            centres.push_back((bins.begin(i, bin) + bins.begin(i, bin + 1)) / 2.0);
        }
    }
    return centres;
}

/** The figures of an item. Phases in a gap are null. */
json figures_of(recording_reader &recording, size_t index, double distance)
{
    const auto &item = recording.items()[index];
    const auto analysis = vantor::analyse_item(recording, index, distance);
    json strips = json::array();
    for (const auto &strip : analysis.map.strips)
    {
        strips.push_back(strip.levels);
    }
    json track = json::array();
    for (const auto &place : analysis.track)
    {
        track.push_back(json::array({place.time, place.phase}));
    }
    return {{"item", describe(item, analysis.time.rate)},
            {"point", analysis.point},
            {"profile", analysis.profile},
            {"bins", centres_of_bins(item)},
            {"stripSeconds", analysis.map.width},
            {"strips", strips},
            {"track", track},
            {"millimetresPerRadian", 1000.0 * vantor::metres_per_radian()},
            {"velocities", analysis.velocities.velocities},
            {"map", analysis.velocities.levels}};
}

/** What a frame says about an item. */
json info_of(const vantor::frame_row &row)
{
    json info = {{"tick", row.tick},
                 {"data_saturated", row.data_saturated},
                 {"temperature", row.temperature},
                 {"calibration_needed", row.calibration_needed},
                 {"frame_delayed", row.frame_delayed}};
    if (row.data_valid)
    {
        info["data_valid"] = *row.data_valid;
    }
    return info;
}

/** Writes all frames: for each, a line of JSON, then the samples. */
void write_frames(recording_reader &recording, std::ostream &file)
{
    std::vector<vantor::frame_table> tables;
    for (size_t i = 0; i < recording.items().size(); ++i)
    {
        tables.push_back(recording.open_table(i));
    }
    std::vector<vantor::sample> samples;
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        json infos = json::array();
        std::string payload;
        for (size_t i = 0; i < tables.size(); ++i)
        {
            infos[recording.items()[i].layout.group].push_back(info_of(tables[i].require()));
            recording.read_frame(i, number, samples);
            payload.append(reinterpret_cast<const char *>(samples.data()),
                           samples.size() * sizeof(samples[0]));
        }
        file << json{{"status", "ok"}, {"payload_size", payload.size()}, {"result_info", infos}} << '\n'
             << payload;
    }
}

} // namespace

/** plot_figures RECORDING DISTANCE DIRECTORY: writes figures.json and frames.bin. */
int main(int count, char **arguments)
{
    if (count != 4)
    {
        std::cerr << "usage: plot_figures RECORDING DISTANCE DIRECTORY\n";
        return 2;
    }
    recording_reader recording(arguments[1]);
    const std::filesystem::path directory(arguments[3]);
    json items = json::array();
    for (size_t i = 0; i < recording.items().size(); ++i)
    {
        items.push_back(figures_of(recording, i, std::stod(arguments[2])));
    }
    const auto &session = recording.session();
    const json clock = {{"ticks_per_second", session.server.ticks_per_second},
                        {"tick_period", session.metadata.tick_period},
                        {"rate", 0}};
    std::ofstream(directory / "figures.json") << json{{"clock", clock}, {"items", items}};
    std::ofstream frames(directory / "frames.bin", std::ios::binary);
    write_frames(recording, frames);
    return frames.good() ? 0 : 1;
}
