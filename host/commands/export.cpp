/** @file
 * `vantor export`.
 */
#include "commands/export.h"

#include <memory>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

#include "commands/common_options.h"
#include "export/exporter.h"

namespace vantor
{
namespace
{

constexpr const char *footer = R"(Examples:
  vantor export recordings/garage --format csv
      one file for each item in recordings/garage/export
  vantor export recordings/garage --format npy --output arrays
      arrays of complex64 with the axes frame, sweep and point, for numpy.load)";

} // namespace

void add_export_command(CLI::App &app, command_streams streams, exit_code &result)
{
    struct export_options
    {
        std::filesystem::path recording;
        std::string format;
        std::filesystem::path output;
    };
    auto *command = app.add_subcommand("export", "Turn a recording into files for other programs.");
    auto options = std::make_shared<export_options>();
    add_recording_argument(*command, options->recording);
    command->add_option("--format", options->format, "csv or npy")
        ->required()
        ->check(CLI::IsMember({"csv", "npy"}));
    command->add_option("--output", options->output, "Directory for the files")->type_name("DIR");
    command->footer(footer);
    command->callback([options, streams, &result] {
        session_reader recording(options->recording);
        const auto output = options->output.empty() ? recording.directory() / "export" : options->output;
        const auto files =
            options->format == "csv" ? export_csv(recording, output) : export_npy(recording, output);
        for (const auto &file : files)
        {
            streams.out << file.string() << "\n";
        }
        result = exit_code::success;
    });
}

} // namespace vantor
