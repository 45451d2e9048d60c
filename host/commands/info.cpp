/** @file
 * `vantor info`.
 */
#include "commands/info.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <ostream>

#include "commands/common_options.h"
#include "commands/printable.h"
#include "commands/text_table.h"
#include "recording/frame_table.h"
#include "recording/recording_error.h"
#include "recording/recording_reader.h"

namespace vantor
{
namespace
{

constexpr const char *info_footer = R"(Examples:
  vantor info recordings/garage
  vantor info recordings/garage --json)";

/** Figures from the frame table of an item. */
struct table_figures
{
    double seconds = 0.0;
    uint64_t saturated = 0;
    uint64_t delayed = 0;
    uint64_t calibration_needed = 0;
    int lowest_temperature = std::numeric_limits<int>::max();
    int highest_temperature = std::numeric_limits<int>::min();
};

/** Reads the frame table of an item. */
table_figures read_table(const recording_reader &recording, const recorded_item &item)
{
    table_figures figures;
    frame_table table(recording.directory() / (item.name + ".frames.csv"));
    for (uint64_t number = 0; number < recording.frames(); ++number)
    {
        const auto row = table.next();
        if (!row)
        {
            break;
        }
        figures.seconds = row->seconds;
        figures.saturated += row->data_saturated ? 1U : 0U;
        figures.delayed += row->frame_delayed ? 1U : 0U;
        figures.calibration_needed += row->calibration_needed ? 1U : 0U;
        figures.lowest_temperature = std::min(figures.lowest_temperature, row->temperature);
        figures.highest_temperature = std::max(figures.highest_temperature, row->temperature);
    }
    return figures;
}

/** The number of frames that were lost on the link before the last capture. */
uint64_t frames_lost(const recorded_item &item)
{
    const auto &captures = item.document.at("captures");
    if (captures.empty() || item.layout.frame_length == 0)
    {
        return 0;
    }
    const auto &last = captures.back();
    return (last.value("core:global_index", uint64_t{0}) - last.value("core:sample_start", uint64_t{0})) /
           item.layout.frame_length;
}

/** Describes one item as JSON. */
nlohmann::ordered_json to_json(const recording_reader &recording, const recorded_item &item)
{
    const auto figures = read_table(recording, item);
    nlohmann::ordered_json entry = {{"name", item.name},
                                    {"group", item.layout.group + 1},
                                    {"item", item.layout.index + 1},
                                    {"sensor_id", item.configuration.sensor_id},
                                    {"subsweeps", item.layout.subsweeps.size()},
                                    {"samples_per_frame", item.layout.frame_length},
                                    {"sweeps_per_frame", item.layout.sweeps()},
                                    {"seconds", figures.seconds},
                                    {"frames_saturated", figures.saturated},
                                    {"frames_delayed", figures.delayed},
                                    {"frames_with_calibration_needed", figures.calibration_needed},
                                    {"frames_lost", frames_lost(item)}};
    if (figures.lowest_temperature <= figures.highest_temperature)
    {
        entry["temperature"] = {figures.lowest_temperature, figures.highest_temperature};
    }
    return entry;
}

/** Describes the recording as JSON. */
nlohmann::ordered_json to_json(const recording_reader &recording)
{
    auto items = nlohmann::ordered_json::array();
    bool complete = true;
    std::string started;
    for (const auto &item : recording.items())
    {
        try
        {
            items.push_back(to_json(recording, item));
            complete = complete && item.document.at("global").contains("core:sha512");
            started = item.document.at("captures").at(0).value("core:datetime", "");
        }
        catch (const nlohmann::json::exception &)
        {
            throw bad_recording(item.name + ".sigmf-meta was not written by \"vantor record\": a member is "
                                            "missing or has the wrong type.");
        }
    }
    return {{"recording", recording.directory().string()},
            {"started", started},
            {"complete", complete},
            {"frames", recording.frames()},
            {"sensor", recording.session().server.sensor},
            {"server_version", recording.session().server.server_version},
            {"items", std::move(items)}};
}

/** Prints the description of a recording as text. */
void print(std::ostream &out, const nlohmann::ordered_json &about)
{
    const auto text = [](const nlohmann::ordered_json &value) { return value.dump(); };
    out << printable(about["recording"].get<std::string>()) << ": " << text(about["frames"]) << " frames"
        << (about["complete"].get<bool>() ? "" : ", incomplete") << ", started "
        << printable(about["started"].get<std::string>()) << ", vantor_server "
        << printable(about["server_version"].get<std::string>()) << "\n";
    text_table table({"group", "item", "sensor", "sub-sweeps", "sweeps", "samples/frame", "seconds",
                      "saturated", "delayed", "lost", "temperature"});
    for (const auto &item : about["items"])
    {
        const auto degrees = item.contains("temperature")
                                 ? text(item["temperature"][0]) + " to " + text(item["temperature"][1])
                                 : std::string("-");
        table.add({text(item["group"]), text(item["item"]), text(item["sensor_id"]), text(item["subsweeps"]),
                   text(item["sweeps_per_frame"]), text(item["samples_per_frame"]),
                   fixed(item["seconds"].get<double>(), 2), text(item["frames_saturated"]),
                   text(item["frames_delayed"]), text(item["frames_lost"]), degrees});
    }
    table.print(out);
}

} // namespace

command info_command()
{
    struct info_options
    {
        std::filesystem::path recording;
        bool json = false;
    };
    auto options = std::make_shared<info_options>();
    return {.name = "info",
            .help = "Show what a recording contains.",
            .footer = info_footer,
            .options = {recording_argument(options->recording), json_flag(options->json)},
            .run = [options](const command_streams &streams) {
                const auto about = to_json(recording_reader(options->recording));
                if (options->json)
                {
                    print_json(streams.out, about);
                }
                else
                {
                    print(streams.out, about);
                }
                return exit_code::success;
            }};
}

} // namespace vantor
