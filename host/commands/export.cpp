/** @file
 * `vantor export`.
 */
#include "commands/export.h"

#include <memory>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>

#include "commands/common_options.h"
#include "commands/reading_progress.h"
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

/** What is to be exported, and into what. */
struct export_options
{
    std::filesystem::path recording;
    std::string format;
    std::filesystem::path output;
    bool json = false;
};

/** Writes the files, showing progress on a terminal; returns them. */
std::vector<std::filesystem::path> write_files(const export_options &options, const command_streams &streams)
{
    session_reader recording(options.recording);
    const reading_progress progress(recording, streams, 1);
    const auto output = options.output.empty() ? recording.directory() / "export" : options.output;
    return options.format == "csv" ? export_csv(recording, output) : export_npy(recording, output);
}

/** Exports and prints the names of the files. */
exit_code export_recording(const export_options &options, const command_streams &streams)
{
    auto names = nlohmann::ordered_json::array();
    for (const auto &file : write_files(options, streams))
    {
        names.push_back(file.string());
    }
    if (options.json)
    {
        print_json(streams.out, {{"files", names}});
        return exit_code::success;
    }
    for (const auto &name : names)
    {
        streams.out << name.get<std::string>() << "\n";
    }
    return exit_code::success;
}

} // namespace

void add_export_command(CLI::App &app, command_streams streams, exit_code &result)
{
    auto *command = app.add_subcommand("export", "Turn a recording into files for other programs.");
    auto options = std::make_shared<export_options>();
    add_recording_argument(*command, options->recording);
    command->add_option("--format", options->format, "csv or npy")
        ->required()
        ->check(CLI::IsMember({"csv", "npy"}).description(""))
        ->type_name("FORMAT");
    command->add_option("--output", options->output, "Directory for the files")->type_name("DIR");
    add_json_flag(*command, options->json);
    command->footer(footer);
    command->callback([options, streams, &result] { result = export_recording(*options, streams); });
}

} // namespace vantor
