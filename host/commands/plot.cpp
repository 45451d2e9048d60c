/** @file
 * `vantor plot`.
 */
#include "commands/plot.h"

#include <memory>
#include <optional>
#include <ostream>

#include "commands/common_options.h"
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

One row for each item: mean level over the distance, level over distance and time, phase over time and
Doppler, both at the strongest echo or at --distance. The spectrum is that of the sweeps within a frame when
there are at least 16 of them, else that of the frames; what does not move is removed from it.)";

/** What is to be drawn, and into what. */
struct plot_options
{
    std::filesystem::path recording;
    std::filesystem::path output;
    std::optional<double> distance;
    bool json = false;
};

/** Draws, showing progress on a terminal; returns the picture's place. */
std::filesystem::path draw(const plot_options &options, const command_streams &streams)
{
    recording_reader recording(options.recording);
    const reading_progress progress(recording, streams, 2);
    auto output = options.output.empty() ? recording.directory() / "picture.png" : options.output;
    draw_recording(recording, output, options.distance);
    return output;
}

/** Draws and prints where the picture is. */
exit_code plot(const plot_options &options, const command_streams &streams)
{
    const auto picture = draw(options, streams).string();
    if (options.json)
    {
        print_json(streams.out, {{"picture", picture}});
    }
    else
    {
        streams.out << "picture: " << picture << "\n";
    }
    return exit_code::success;
}

} // namespace

command plot_command()
{
    auto options = std::make_shared<plot_options>();
    return {.name = "plot",
            .help = "Draw a recording.",
            .footer = plot_footer,
            .options = {recording_argument(options->recording),
                        {.name = "--output",
                         .help = "The picture, a PNG file; it is replaced",
                         .value = &options->output,
                         .value_name = "FILE"},
                        {.name = "--distance",
                         .help = "Where phase and Doppler look, in metres",
                         .value = number_value{.target = &options->distance},
                         .value_name = "NUMBER"},
                        json_flag(options->json)},
            .run = [options](const command_streams &streams) { return plot(*options, streams); }};
}

} // namespace vantor
