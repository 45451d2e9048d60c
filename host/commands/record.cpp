/** @file
 * `vantor record`.
 */
#include "commands/record.h"

#include <array>
#include <cmath>
#include <ctime>
#include <exception>
#include <memory>
#include <ostream>
#include <utility>
#include <variant>
#include <vector>

#include "commands/common_options.h"
#include "commands/interrupt.h"
#include "commands/printable.h"
#include "commands/progress.h"
#include "commands/recorder.h"
#include "commands/text_table.h"
#include "commands/usage_error.h"
#include "commands/validation.h"
#include "configuration/calibration_file.h"
#include "configuration/configuration.h"
#include "recording/point_distances.h"
#include "recording/recording_source.h"

namespace vantor
{
namespace
{

constexpr const char *record_footer = R"(Examples:
  vantor record examples/two_sensors.json --frames 100
      records 100 frames from a private simulated server to a new directory in recordings/
  vantor record config.json --frames 100 --connect tcp:192.168.1.20:6110 --output recordings/garage
  vantor record config.json --seconds 60 --connect serial:/dev/ttyACM0@921600
  vantor record config.json --frames 10 --connect "sim:--sensors 2"
  vantor record config.json --frames 100 --calibration calibration.json

Without --frames and --seconds, press Ctrl-C to end the recording. Without CONFIG, the server must be a
"vantor replay": its recording is recorded.)";

/** The message for a server that needs a configuration. */
constexpr const char *configuration_missing =
    "CONFIG is missing: give a configuration document. Only \"vantor replay\" needs none.";

/** Upper limit of --frames: more than any recording has, and far below the limit of the type. */
constexpr uint64_t most_frames = 1'000'000'000'000;

/** The share of the nominal frame rate from which on it counts as reached. */
constexpr double least_share_of_rate = 0.99;

/** Returns a new directory in "recordings", named after the configuration or "replay", and the current time.
 */
std::filesystem::path default_output(const std::filesystem::path &configuration)
{
    const auto name = configuration.empty() ? "replay" : configuration.stem().string();
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    std::array<char, 32> text{};
    const auto length = std::strftime(text.data(), text.size(), "%Y%m%d-%H%M%S", &parts);
    const auto base = std::filesystem::path("recordings") / (name + "-" + std::string(text.data(), length));
    auto candidate = base;
    for (int i = 2; std::filesystem::exists(candidate); ++i)
    {
        candidate = base;
        candidate += "-";
        candidate += std::to_string(i);
    }
    return candidate;
}

/** Distance of the strongest echo of an item, in metres; NaN if unknown. */
double echo_distance(const item_layout &layout, const item_configuration &item,
                     const item_statistics &statistics)
{
    const auto point = statistics.strongest_point();
    return point ? point_distances(layout, item)[*point] : NAN;
}

/** Prints a table with one line per item. */
void print_items(std::ostream &out, const session_metadata &metadata,
                 const std::vector<item_configuration> &items, const recorder &recorded, uint64_t frames)
{
    text_table table(
        {"group", "item", "sensor", "sub-sweeps", "samples/frame", "frames", "mean level", "strongest echo"});
    for (size_t i = 0; i < items.size(); ++i)
    {
        const auto &layout = metadata.items[i];
        const auto &statistics = recorded.statistics()[i];
        const auto distance = echo_distance(layout, items[i], statistics);
        table.add({std::to_string(layout.group + 1), std::to_string(layout.index + 1),
                   std::to_string(items[i].sensor_id), std::to_string(layout.subsweeps.size()),
                   std::to_string(layout.frame_length), std::to_string(frames),
                   fixed(statistics.mean_level(), 1),
                   std::isnan(distance) ? "-" : fixed(distance, 3) + " m"});
    }
    table.print(out);
}

/** A rate, or null if it is 0, that is, unknown. */
nlohmann::ordered_json or_null(double rate)
{
    return rate > 0.0 ? nlohmann::ordered_json(rate) : nlohmann::ordered_json();
}

/** Describes the recording as JSON. */
nlohmann::ordered_json to_json(const session_metadata &metadata, const std::vector<item_configuration> &items,
                               const recorder &recorded, const recording_writer &writer)
{
    auto list = nlohmann::ordered_json::array();
    for (size_t i = 0; i < items.size(); ++i)
    {
        const auto &layout = metadata.items[i];
        const auto &statistics = recorded.statistics()[i];
        const auto distance = echo_distance(layout, items[i], statistics);
        list.push_back({{"group", layout.group + 1},
                        {"item", layout.index + 1},
                        {"sensor_id", items[i].sensor_id},
                        {"subsweeps", layout.subsweeps.size()},
                        {"samples_per_frame", layout.frame_length},
                        {"mean_level", statistics.mean_level()},
                        {"strongest_echo_m", std::isnan(distance) ? nlohmann::ordered_json()
                                                                  : nlohmann::ordered_json(distance)}});
    }
    return {{"recording", writer.directory().string()},
            {"frames", writer.frames()},
            {"bytes", writer.data_length()},
            {"seconds", recorded.seconds()},
            {"interrupted", recorded.interrupted()},
            {"frames_missing", recorded.missing()},
            {"nominal_frame_rate", or_null(recorded.nominal_rate())},
            {"measured_frame_rate", or_null(recorded.measured_rate())},
            {"disturbances", recorded.disturbances()},
            {"items", std::move(list)}};
}

/** Prints the totals of the recording. */
void print_summary(std::ostream &out, const recording_writer &writer, const recorder &recorded)
{
    const auto frames = static_cast<double>(writer.frames());
    const auto bytes = static_cast<double>(writer.data_length());
    const double rate = recorded.measured_rate();
    out << writer.frames() << " frames, " << format_bytes(bytes) << " in " << fixed(recorded.seconds(), 2)
        << " s";
    if (rate > 0.0)
    {
        out << ": " << fixed(rate, 1) << " frames/s, " << format_bytes(bytes / frames * rate) << "/s";
    }
    out << "\n";
    if (recorded.missing() > 0)
    {
        out << "missing: " << recorded.missing()
            << " frames that server or sensor left out, or the link lost\n";
    }
    if (const double share = recorded.share_of_rate(); share < least_share_of_rate)
    {
        out << "rate not reached: " << fixed(share * recorded.nominal_rate(), 1) << " of "
            << fixed(recorded.nominal_rate(), 1) << " frames/s\n";
    }
    if (recorded.disturbances() > 0)
    {
        out << "link disturbances: " << recorded.disturbances() << " damaged messages\n";
    }
    out << "recording: " << printable(writer.directory().string()) << "\n";
}

/**
 * Records; shows progress on a terminal.
 *
 * @return the failure, to be reported once the recording is finished; null if there was none
 */
std::exception_ptr run_recorder(recorder &recorded, const record_options &options,
                                const command_streams &streams, const time_source &now)
{
    const interrupt_watch watch;
    const double seconds = options.seconds.value_or(0.0);
    progress_line line(streams.err, streams.terminal, {.frames = options.frames, .seconds = seconds}, now);
    try
    {
        recorded.run({.frames = options.frames,
                      .seconds = seconds,
                      .stop = interrupt_watch::interrupted,
                      .progress = [&](uint64_t frames) { line.update(frames); }});
        return nullptr;
    }
    catch (...)
    {
        return std::current_exception();
    }
}

/** Reads and checks the configuration document, if one was given, and adds the calibrations. */
nlohmann::json read_configuration(const record_options &options, const command_streams &streams)
{
    nlohmann::json configuration;
    if (options.configuration.empty() && !options.calibration.empty())
    {
        throw usage_error("--calibration needs a CONFIG: a replay does not calibrate.");
    }
    if (!options.configuration.empty())
    {
        configuration = load_configuration(options.configuration);
        if (!options.no_validate)
        {
            require_valid(configuration, options.configuration, streams.err);
        }
    }
    if (!options.calibration.empty())
    {
        add_calibrations(configuration, options.calibration);
    }
    return configuration;
}

/** Returns the configuration of a replayed recording; no other server has one. */
nlohmann::json configuration_of(const server_info &server)
{
    if (!server.configuration)
    {
        throw usage_error(configuration_missing);
    }
    return *server.configuration;
}

} // namespace

exit_code record(const record_options &options, const command_streams &streams)
{
    const auto where = parse_address(options.connect);
    if (options.configuration.empty() && std::holds_alternative<simulator_address>(where))
    {
        throw usage_error(configuration_missing);
    }
    const auto open = [&] { return open_link(where, client_timeouts{}.connect); };
    return record(options, streams, open, std::chrono::steady_clock::now);
}

exit_code record(const record_options &options, const command_streams &streams,
                 const client::link_factory &open_links, const time_source &now)
{
    auto configuration = read_configuration(options, streams);
    client server(open_links, {}, now);
    if (options.configuration.empty())
    {
        configuration = configuration_of(server.server());
    }
    const auto metadata = server.configure(configuration);
    if (metadata->items.empty())
    {
        throw configuration_error(options.configuration.string() +
                                  " has no items, so there is nothing to record: add an item to \"groups\".");
    }
    const auto output = options.output.empty() ? default_output(options.configuration) : options.output;
    recording_writer writer(output,
                            {.configuration = configuration,
                             .metadata = *metadata,
                             .server = server.server(),
                             .source = describe_source(parse_address(options.connect), server.server())});
    recorder recorded(server, writer, *metadata,
                      nominal_frame_rate(configuration, *metadata, server.server()), now);
    const auto failure = run_recorder(recorded, options, streams, now);
    writer.finish();
    const auto items = list_items(configuration);
    if (options.json)
    {
        print_json(streams.out, to_json(*metadata, items, recorded, writer));
    }
    else
    {
        print_items(streams.out, *metadata, items, recorded, writer.frames());
        print_summary(streams.out, writer, recorded);
    }
    if (failure)
    {
        std::rethrow_exception(failure);
    }
    return recorded.interrupted() ? exit_code::interrupted : exit_code::success;
}

command record_command()
{
    auto options = std::make_shared<record_options>();
    return {.name = "record",
            .help = "Measure, and record the frames to disk.",
            .footer = record_footer,
            .options = {optional_configuration_argument(options->configuration),
                        {.name = "--frames",
                         .help = "Stop after this many frames",
                         .value = whole_number_value{.target = &options->frames, .most = most_frames},
                         .value_name = "NUMBER"},
                        {.name = "--seconds",
                         .help = "Stop after this many seconds",
                         .value = number_value{.target = &options->seconds, .above = 0.0},
                         .value_name = "NUMBER"},
                        connect_option(options->connect),
                        {.name = "--output",
                         .help = "New directory for the recording; one in \"recordings\" if not given",
                         .value = &options->output,
                         .value_name = "DIR"},
                        {.name = "--calibration",
                         .help = "Use the calibrations in this file from \"vantor calibrate\"",
                         .value = &options->calibration,
                         .value_name = "FILE"},
                        no_validate_flag(options->no_validate),
                        json_flag(options->json)},
            .run = [options](const command_streams &streams) { return record(*options, streams); }};
}

} // namespace vantor
