/** @file
 * `vantor record`.
 */
#include "commands/record.h"

#include <exception>
#include <memory>
#include <utility>

#include "commands/board_recording.h"
#include "commands/common_options.h"
#include "commands/interrupt.h"
#include "commands/next_command.h"
#include "commands/progress.h"
#include "commands/record_boards.h"
#include "commands/recorded_boards.h"
#include "commands/recording_report.h"
#include "commands/truth_option.h"
#include "commands/validation.h"
#include "recording/dated_directory.h"

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
  vantor record config.json --connect tcp:192.168.1.20:6110 --connect tcp:192.168.1.21:6110
      records two boards, until Ctrl-C; one that fails does not end the other
  vantor record --seconds 60 --board a.json=tcp:192.168.1.20:6110 --board b.json=serial:/dev/ttyACM0

Without --frames and --seconds, press Ctrl-C to end the recording. Without CONFIG, the server must be a
"vantor replay" or a board behind a broker: what it sends is recorded.)";

/** Upper limit of --frames: more than any recording has, and far below the limit of the type. */
constexpr uint64_t most_frames = 1'000'000'000'000;

/** Upper limit of --queue: a terabyte. */
constexpr uint64_t most_megabytes = 1U << 20U;

/** Records one board, and prints a summary. */
exit_code record_board(const record_options &options, const command_streams &streams, board_source source,
                       const std::shared_ptr<event_loop> &loop)
{
    const interrupt_watch watch(*loop);
    board_recording board(options, std::move(source), loop);
    board.set_up();
    const auto output = output_directory(options);
    board.create_files(output);
    {
        progress_line line(streams.err, streams.terminal,
                           {.frames = options.frames, .seconds = options.seconds.value_or(0.0)},
                           loop->clock());
        board.run([&] {
            line.update(board.frames(), [&] { return board.warnings(); });
            return interrupt_watch::interrupted();
        });
    }
    board.note(board.complete_files());
    print_report(board.result(), streams.out, options.json);
    if (board.has_failed())
    {
        std::rethrow_exception(board.failure());
    }
    if (!options.json)
    {
        suggest(streams, "vantor plot", output);
    }
    return board.interrupted() ? exit_code::interrupted : exit_code::success;
}

} // namespace

std::filesystem::path output_directory(const record_options &options)
{
    if (!options.output.empty())
    {
        return options.output;
    }
    if (!options.configuration.empty())
    {
        return dated_directory(options.configuration.stem().string());
    }
    return dated_directory(options.boards.empty() ? "replay" : "boards");
}

exit_code record(const record_options &options, const command_streams &streams)
{
    const auto loop = std::make_shared<event_loop>();
    auto list = list_boards(options, streams, loop);
    return list.boards.size() == 1 ? record_board(options, streams, std::move(list.boards.front()), loop)
                                   : record_boards(options, streams, std::move(list.boards), loop);
}

exit_code record(const record_options &options, const command_streams &streams,
                 const client::link_factory &open_links, const std::shared_ptr<event_loop> &loop,
                 truth_file *truth)
{
    return record_board(options, streams,
                        {.file = options.configuration,
                         .configuration = read_configuration(options.configuration, options, streams),
                         .address = default_address,
                         .open_links = open_links,
                         .truth = truth},
                        loop);
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
                     .help = "Stop after this many frames of each board",
                     .value = whole_number_value{.target = &options->frames, .most = most_frames},
                     .value_name = "NUMBER"},
                    {.name = "--seconds",
                     .help = "Stop after this many seconds, by the clock of this computer",
                     .value = number_value{.target = &options->seconds, .above = 0.0},
                     .value_name = "NUMBER"},
                    {.name = "--connect",
                     .help =
                         "Address of a server (tcp:HOST:PORT, unix:PATH or serial:DEVICE@BAUD), or sim: to "
                         "start a private simulated server; repeat it to record several boards with CONFIG",
                     .value = &options->connect,
                     .value_name = address_name,
                     .default_value = default_address},
                    {.name = "--board",
                     .help = "Record a board with its own configuration: the file, \"=\" and an address as "
                             "for --connect; can be repeated",
                     .value = &options->boards,
                     .value_name = "CONFIG=ADDRESS"},
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
                     .help = "Megabytes of frames that can wait for the disk, for each board",
                     .value = whole_number_value{.target = &options->queue_megabytes, .most = most_megabytes},
                     .value_name = "NUMBER"},
                    json_flag(options->json)},
        .run = [options](const command_streams &streams) { return record(*options, streams); }};
}

} // namespace vantor
