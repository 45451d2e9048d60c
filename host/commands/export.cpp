/** @file
 * `vantor export`.
 */
#include "commands/export.h"

#include <memory>
#include <ostream>
#include <string>

#include "commands/common_options.h"
#include "commands/damage.h"
#include "commands/each_board.h"
#include "commands/interrupt.h"
#include "commands/reading_progress.h"
#include "export/exporter.h"
#include "recording/printable.h"
#include "recording/recording_documents.h"

namespace vantor
{
namespace
{

constexpr const char *export_footer = R"(Examples:
  vantor export recordings/garage --format csv
      writes one file per item to recordings/garage/export
  vantor export recordings/garage --format npy --output arrays
      writes complex64 arrays with the axes frame, sweep and point, for numpy.load
  vantor export recordings/garage --format npz
      writes these arrays as "samples", with the distances of the points in metres ("distance_m"), the times of the
      frames in seconds since the first one of the item ("time_s"), the number of frames missing before each frame
      ("missing"), the times in UTC with their bounds ("utc_s", "utc_bound_s"), and the other columns of the frame
      table
  vantor export recordings/garage --format truth
      writes what simulated sensors should have found, as one CSV file per item

Each board of a recording of several gets its own directory: "export" in its recording, or one in that of --output.)";

/** The options of `vantor export`. */
struct export_options
{
    std::filesystem::path recording;
    std::string format;
    std::filesystem::path output;
    bool json = false;
};

/** Throws interruption if the user has asked to stop. */
void require_no_interruption()
{
    if (interrupt_watch::interrupted())
    {
        throw interruption("Interrupted; no file was written.");
    }
}

/** The directory for the files of a board. */
std::filesystem::path output_directory(const export_options &options, const board_place &place)
{
    if (options.output.empty())
    {
        return recording_directory(place.recording) / "export";
    }
    return place.board.empty() ? options.output : options.output / place.board;
}

/** Writes the files of a recording and returns their paths; shows progress on a terminal. */
std::vector<std::filesystem::path> write_files(const export_options &options, const board_place &place,
                                               const command_streams &streams)
{
    recording_reader recording(place.recording);
    background_check check(recording.directory(), require_no_interruption);
    const reading_progress progress(recording, streams, 1, require_no_interruption);
    const auto output = output_directory(options, place);
    const export_calls calls{.row = require_no_interruption, .complete = [&] { check.warn(streams); }};
    if (options.format == "truth")
    {
        return export_truth(recording, output, calls);
    }
    if (options.format == "npz")
    {
        return export_npz(recording, output, calls);
    }
    return options.format == "csv" ? export_csv(recording, output, calls)
                                   : export_npy(recording, output, calls);
}

/** Prints the paths of files. */
void print(const std::vector<std::filesystem::path> &files, bool json, const command_streams &streams)
{
    auto names = nlohmann::ordered_json::array();
    for (const auto &file : files)
    {
        names.push_back(file.string());
        if (!json)
        {
            streams.out << printable(file.string()) << "\n";
        }
    }
    if (json)
    {
        print_json(streams.out, {{"files", names}});
    }
}

/** Exports a recording and prints the paths of the files. */
exit_code export_recording(const export_options &options, const command_streams &streams)
{
    const interrupt_watch watch;
    std::vector<std::filesystem::path> files;
    try
    {
        const auto result =
            for_each_recording(recordings_at(options.recording), streams.err, [&](const board_place &place) {
                const auto written = write_files(options, place, streams);
                files.insert(files.end(), written.begin(), written.end());
            });
        print(files, options.json, streams);
        return result;
    }
    catch (const interruption &)
    {
        if (files.empty())
        {
            throw;
        }
        print(files, options.json, streams);
        throw interruption("Interrupted; no further file was written.");
    }
}

} // namespace

command export_command()
{
    auto options = std::make_shared<export_options>();
    return {
        .name = "export",
        .help = "Export a recording as CSV or NumPy files.",
        .footer = export_footer,
        .options =
            {recording_argument(options->recording),
             {.name = "--format",
              .help = "Format of the files: csv, npy or npz (NumPy); truth for what simulated sensors should "
                      "have found, as CSV",
              .value = choice_value{.target = &options->format, .words = {"csv", "npy", "npz", "truth"}},
              .value_name = "FORMAT",
              .required = true},
             {.name = "--output",
              .help = "Directory for the files; \"export\" in the recording if not given",
              .value = &options->output,
              .value_name = "DIR"},
             json_flag(options->json)},
        .run = [options](const command_streams &streams) { return export_recording(*options, streams); }};
}

} // namespace vantor
