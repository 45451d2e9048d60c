/** @file
 * `vantor plot`.
 */
#include "commands/plot.h"

#include <memory>
#include <optional>
#include <ostream>

#include "commands/common_options.h"
#include "commands/printable.h"
#include "commands/reading_progress.h"
#include "plot/picture.h"

namespace vantor
{
namespace
{

constexpr const char *plot_footer = R"(Examples:
  vantor plot recordings/garage
      writes recordings/garage/picture.png
  vantor plot recordings/garage --output garage.png --distance 1.2

The picture has one row per item: mean level over distance, level over distance and time, phase over time, and
Doppler spectrum. Phase and Doppler are those of the strongest echo, or of the echo at --distance. The spectrum
is computed from the sweeps within a frame if there are at least 16, otherwise from the frames. It leaves out
echoes that do not move.)";

/** The options of `vantor plot`. */
struct plot_options
{
    std::filesystem::path recording;
    std::filesystem::path output;
    std::optional<double> distance;
    bool json = false;
};

/** Draws the picture and returns its path; shows progress on a terminal. */
std::filesystem::path draw(const plot_options &options, const command_streams &streams)
{
    recording_reader recording(options.recording);
    const reading_progress progress(recording, streams, 2);
    auto output = options.output.empty() ? recording.directory() / "picture.png" : options.output;
    draw_recording(recording, output, options.distance);
    return output;
}

/** Draws the picture and prints its path. */
exit_code plot(const plot_options &options, const command_streams &streams)
{
    const auto picture = draw(options, streams).string();
    if (options.json)
    {
        print_json(streams.out, {{"picture", picture}});
    }
    else
    {
        streams.out << "picture: " << printable(picture) << "\n";
    }
    return exit_code::success;
}

} // namespace

command plot_command()
{
    auto options = std::make_shared<plot_options>();
    return {.name = "plot",
            .help = "Draw a recording as a PNG picture, with gnuplot.",
            .footer = plot_footer,
            .options = {recording_argument(options->recording),
                        {.name = "--output",
                         .help = "PNG file to write; an existing file is replaced",
                         .value = &options->output,
                         .value_name = "FILE"},
                        {.name = "--distance",
                         .help = "Distance for phase and Doppler, in metres; the strongest echo if not given",
                         .value = number_value{.target = &options->distance},
                         .value_name = "NUMBER"},
                        json_flag(options->json)},
            .run = [options](const command_streams &streams) { return plot(*options, streams); }};
}

} // namespace vantor
