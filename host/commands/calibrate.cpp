/** @file
 * `vantor calibrate`.
 */
#include "commands/calibrate.h"

#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "commands/common_options.h"
#include "commands/interrupt.h"
#include "recording/file_replacement.h"
#include "recording/printable.h"
#include "vantor/calibration_file.h"
#include "vantor/client.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

constexpr const char *calibrate_footer = R"(Examples:
  vantor calibrate --output calibration.json --connect serial:/dev/ttyACM0@921600
  vantor calibrate --output calibration.json --sensor 1 --sensor 3
  vantor record config.json --frames 100 --calibration calibration.json

A calibration is valid while the sensor stays near the temperature at which it was made. A frame with
"calibration_needed" means that a new one is needed.)";

/** The options of `vantor calibrate`. */
struct calibrate_options
{
    std::string connect = "sim:";
    std::filesystem::path output;
    std::vector<uint64_t> sensors; /**< empty for all connected sensors */
    bool json = false;
};

/** A configuration that makes the server calibrate sensors: one group that contains each sensor once. */
nlohmann::json calibrating_configuration(const std::vector<uint64_t> &sensors)
{
    auto group = nlohmann::json::array();
    for (const auto id : sensors)
    {
        group.push_back({{"sensor_id", id}, {"config", nlohmann::json::object()}});
    }
    auto groups = nlohmann::json::array();
    if (!group.empty())
    {
        groups.push_back(std::move(group));
    }
    return {{"groups", std::move(groups)}};
}

/** Sets up a session, and ends it if the command is interrupted meanwhile. */
std::shared_ptr<const session_metadata> configure(client &server, const nlohmann::json &configuration)
{
    try
    {
        return server.configure(configuration);
    }
    catch (const cancelled &)
    {
        server.end_promptly();
        throw;
    }
}

/** Calibrates and writes the file. */
exit_code calibrate(const calibrate_options &options, std::ostream &out)
{
    require_different("--sensor", options.sensors);
    require_no_recording_name("--output", options.output);
    require_replaceable(options.output);
    const auto loop = std::make_shared<event_loop>();
    const interrupt_watch watch(*loop);
    client server(parse_address(options.connect), {}, loop);
    const auto &connected = server.server().connected_sensors;
    require_connected(options.sensors, connected);
    const auto sensors =
        options.sensors.empty() ? std::vector<uint64_t>(connected.begin(), connected.end()) : options.sensors;
    const auto metadata = configure(server, calibrating_configuration(sensors));
    server.end();
    if (metadata->calibrations.empty())
    {
        throw error(
            "The server did not calibrate any sensor. Run \"vantor identify\" to see which are connected.");
    }
    check_calibrations(metadata->calibrations, {sensors.begin(), sensors.end()});
    replace_files({{.path = options.output, .text = calibration_text(metadata->calibrations)}});
    if (options.json)
    {
        out << printable_json(calibration_text(metadata->calibrations));
        return exit_code::success;
    }
    for (const auto &entry : metadata->calibrations)
    {
        out << "sensor " << entry.sensor_id << " calibrated at " << entry.temperature << " degrees\n";
    }
    out << "calibrations: " << printable(options.output.string()) << "\n";
    return exit_code::success;
}

} // namespace

command calibrate_command()
{
    auto options = std::make_shared<calibrate_options>();
    return {.name = "calibrate",
            .help = "Calibrate sensors and save the calibrations to a file.",
            .footer = calibrate_footer,
            .options = {{.name = "--output",
                         .help = "JSON file to write; an existing file is replaced",
                         .value = &options->output,
                         .value_name = "FILE",
                         .required = true},
                        {.name = "--sensor",
                         .help = "Number of a sensor; may be repeated; all connected sensors if not given",
                         .value = whole_numbers_value{.target = &options->sensors,
                                                      .most = std::numeric_limits<uint16_t>::max()},
                         .value_name = "NUMBER"},
                        connect_option(options->connect),
                        json_flag(options->json)},
            .run = [options](const command_streams &streams) { return calibrate(*options, streams.out); }};
}

} // namespace vantor
