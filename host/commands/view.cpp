/** @file
 * `vantor view`.
 */
#include "commands/view.h"

#include <memory>

#include "commands/board_arguments.h"
#include "commands/common_options.h"
#include "commands/truth_option.h"
#include "commands/view_run.h"

namespace vantor
{
namespace
{

constexpr const char *view_footer = R"(Examples:
  vantor view examples/single_sensor.json
      shows the frames of a private simulated server in the browser
  vantor view config.json --connect serial:/dev/ttyACM0@921600
  vantor view --connect tcp:192.168.1.20:6110 --record recordings/garage
      measures with sensor 1 until the page sets another configuration, and records
  vantor view config.json --connect tcp:192.168.1.20:6110 --connect tcp:192.168.1.21:6110
      shows two boards on one axis of time
  vantor view recordings/garage
      plays a recording, of one board or of several

The command prints the address of the page, and opens it in the browser of the desktop. The token in the address
lets a viewer in: pass it on only to people who may control the sensors. The first viewer controls, others watch
and can take control. Recordings begun on the page are stored in "recordings". Press Ctrl-C to end the view.)";

} // namespace

command view_command()
{
    auto options = std::make_shared<view_options>();
    return {
        .name = "view",
        .help = "Show frames in the browser while they are measured, or a recording.",
        .footer = view_footer,
        .options = {{.name = "CONFIG_OR_RECORDING",
                     .help = "Configuration document (a JSON file), or directory written by \"vantor "
                             "record\"",
                     .value = &options->what},
                    {.name = "--connect",
                     .help =
                         "Address of a server (tcp:HOST:PORT, unix:PATH or serial:DEVICE@BAUD), or sim: to "
                         "start a private simulated server; repeat it to show several boards",
                     .value = &options->connect,
                     .value_name = address_name,
                     .default_value = default_address},
                    {.name = "--board",
                     .help = "Show a board with its own configuration: the file, \"=\" and an address as "
                             "for --connect; can be repeated",
                     .value = &options->boards,
                     .value_name = "CONFIG=ADDRESS"},
                    {.name = "--listen",
                     .help = "Address at which the page is served; port 0 for any free port",
                     .value = &options->listen,
                     .value_name = "HOST:PORT",
                     .default_value = options->listen},
                    {.name = "--record",
                     .help = "Record from the start, to this new directory",
                     .value = &options->record,
                     .value_name = "DIR"},
                    truth_option(options->truth),
                    {.name = "--no-browser",
                     .help = "Only print the address, do not open a browser",
                     .value = &options->no_browser}},
        .run = [options](const command_streams &streams) { return run_view(*options, streams); }};
}

} // namespace vantor
