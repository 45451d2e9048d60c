/** @file
 * `vantor record`.
 */
#include "commands/record.h"

#include <exception>
#include <memory>
#include <ostream>
#include <utility>
#include <variant>
#include <vector>

#include "commands/common_options.h"
#include "commands/interrupt.h"
#include "commands/next_command.h"
#include "commands/progress.h"
#include "commands/recording_report.h"
#include "commands/stream_warnings.h"
#include "commands/truth_option.h"
#include "commands/usage_error.h"
#include "commands/validation.h"
#include "recording/dated_directory.h"
#include "recording/printable.h"
#include "vantor/calibration_file.h"
#include "vantor/configuration.h"
#include "vantor/frame_tally.h"
#include "vantor/hub.h"
#include "vantor/recording_error.h"
#include "vantor/recording_sink.h"
#include "vantor/recording_source.h"
#include "vantor/session_source.h"

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

/** Upper limit of --queue: a terabyte. */
constexpr uint64_t most_megabytes = 1U << 20U;

/** Returns a new directory in "recordings", named after the configuration or "replay", and the current time.
 */
std::filesystem::path default_output(const std::filesystem::path &configuration)
{
    return dated_directory(configuration.empty() ? "replay" : configuration.stem().string());
}

/** What a person should know while a stream is recorded. */
std::string describe(const frame_tally &tally, const session_source &source)
{
    return short_warnings(tally, source.nominal_rate()) +
           (source.lost() ? ", link lost, connecting again" : "");
}

/**
 * Passes frames to the sinks; shows progress on a terminal.
 *
 * @return the failure, to be reported once the recording is finished; null if there was none
 */
std::exception_ptr run_stream(hub &stream, const frame_tally &tally, const session_source &source,
                              const record_options &options, const command_streams &streams,
                              const time_source &now)
{
    const double seconds = options.seconds.value_or(0.0);
    progress_line line(streams.err, streams.terminal, {.frames = options.frames, .seconds = seconds}, now);
    try
    {
        stream.run({.frames = options.frames, .seconds = seconds, .stop = [&] {
                        line.update(stream.frames(), [&] { return describe(tally, source); });
                        return interrupt_watch::interrupted();
                    }});
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
            require_valid(configuration, options.configuration, streams.err, no_validate_advice);
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

/** Whether the sensors of a server are simulated, as far as it reports that. */
bool is_simulated(const server_info &server)
{
    return server.board && server.board->sensors == "simulated";
}

/** Writes the final documents; returns false if that fails, which is the failure if there was none before. */
bool finish(recording_writer &writer, std::exception_ptr &failure)
{
    try
    {
        writer.finish();
        return true;
    }
    catch (const recording_error &)
    {
        failure = failure ? failure : std::current_exception();
        return false;
    }
}

/** Throws the failure of a recording; if it concerns its files, with what is left of them. */
[[noreturn]] void report_failure(const std::exception_ptr &failure, const recording_writer &writer,
                                 bool finished)
{
    try
    {
        std::rethrow_exception(failure);
    }
    catch (const recording_error &reason)
    {
        throw recording_error(std::string(reason.what()) +
                              " Frames recorded: " + std::to_string(writer.frames()) +
                              (finished ? ", in a complete recording."
                                        : "; \"vantor info\" shows what is left of them, \"vantor repair\" "
                                          "completes the recording."));
    }
}

} // namespace

exit_code record(const record_options &options, const command_streams &streams)
{
    const auto where = parse_address(options.connect);
    if (options.configuration.empty() && std::holds_alternative<simulator_address>(where))
    {
        throw usage_error(configuration_missing);
    }
    const auto loop = std::make_shared<event_loop>();
    const auto served = server_with_truth(where, options.truth);
    const auto open = [&] { return open_link(served.where, client_timeouts{}.connect, loop); };
    return record(options, streams, open, loop, served.truth.get());
}

exit_code record(const record_options &options, const command_streams &streams,
                 const client::link_factory &open_links, const std::shared_ptr<event_loop> &loop,
                 truth_file *truth)
{
    auto configuration = read_configuration(options, streams);
    const interrupt_watch watch(*loop);
    client server(open_links, {}, loop);
    if (options.configuration.empty())
    {
        configuration = configuration_of(server.server());
    }
    session_source source(server, configuration,
                          {.recalibrate = options.recalibrate, .reconnect = options.reconnect}, *loop, truth);
    if (source.metadata().items.empty())
    {
        throw configuration_error(options.configuration.string() +
                                  " has no items, so there is nothing to record: add an item to \"groups\".");
    }
    const auto output = options.output.empty() ? default_output(options.configuration) : options.output;
    recording_writer writer(output,
                            {.configuration = configuration,
                             .metadata = source.metadata(),
                             .server = server.server(),
                             .source = describe_source(parse_address(options.connect), server.server()),
                             .truth = source.scene()});
    recording_sink recorder(writer, source.metadata(), options.queue_megabytes << 20U, *loop);
    frame_tally tally;
    hub stream(source, {&tally, &recorder}, *loop);
    auto failure = run_stream(stream, tally, source, options, streams, loop->clock());
    if (const auto late = recorder.close(); !failure)
    {
        failure = late;
    }
    const bool finished = finish(writer, failure);
    print_report({.writer = writer,
                  .recorder = recorder,
                  .stream = stream,
                  .tally = tally,
                  .source = source,
                  .simulated = is_simulated(server.server()),
                  .frames_reached = options.frames > 0 && stream.frames() >= options.frames,
                  .items = list_items(configuration)},
                 streams.out, options.json);
    if (failure)
    {
        report_failure(failure, writer, finished);
    }
    if (!options.json)
    {
        suggest(streams, "vantor plot", output);
    }
    return stream.interrupted() ? exit_code::interrupted : exit_code::success;
}

command record_command()
{
    auto options = std::make_shared<record_options>();
    return {
        .name = "record",
        .help = "Measure, and record the frames to disk.",
        .footer = record_footer,
        .options = {optional_configuration_argument(options->configuration),
                    {.name = "--frames",
                     .help = "Stop after this many frames",
                     .value = whole_number_value{.target = &options->frames, .most = most_frames},
                     .value_name = "NUMBER"},
                    {.name = "--seconds",
                     .help = "Stop after this many seconds, by the clock of this computer",
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
                    {.name = "--recalibrate",
                     .help = "Calibrate again when a sensor asks for it, and go on in a new segment",
                     .value = &options->recalibrate},
                    {.name = "--reconnect",
                     .help = "Connect again when the link is lost, and go on in a new segment",
                     .value = &options->reconnect},
                    truth_option(options->truth),
                    {.name = "--queue",
                     .help = "Megabytes of frames that can wait for the disk",
                     .value = whole_number_value{.target = &options->queue_megabytes, .most = most_megabytes},
                     .value_name = "NUMBER"},
                    json_flag(options->json)},
        .run = [options](const command_streams &streams) { return record(*options, streams); }};
}

} // namespace vantor
