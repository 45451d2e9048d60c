/** @file
 * `vantor plot`.
 */
#include "commands/plot.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>

#include "commands/common_options.h"
#include "commands/damage.h"
#include "commands/each_board.h"
#include "commands/interrupt.h"
#include "commands/progress.h"
#include "commands/quantity.h"
#include "commands/reading_progress.h"
#include "commands/usage_error.h"
#include "plot/picture.h"
#include "plot/sensor_scale.h"
#include "recording/number_text.h"
#include "recording/printable.h"
#include "recording/recording_documents.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

constexpr const char *plot_footer = R"(Examples:
  vantor plot recordings/garage
      writes recordings/garage/picture.png
  vantor plot recordings/garage --output garage.png --distance 120cm

The picture has one row per item: mean level over distance, level over time, phase and displacement, velocity
spectrum, and velocity over distance if a frame has at least 4 sweeps. A page has up to six items; the next pages
are named picture-2.png and so on. A recording of several boards gets pictures for each, named picture-BOARD.png, on
one axis of time, which begins with the first frame of all boards. Levels are in dBFS: 0 dBFS is amplitude 32767.

Phase and velocity are those of the strongest echo, or of the echo at --distance. The strongest echo is one from
which the mean level falls by 3 dB on both sides; the direct leakage is left out. The strongest moving echo is the one
that is left in a frame without the mean of all frames; the text above the pictures gives the least and the greatest
distance at which it was found. The spectrum is computed from the sweeps within a frame if there are at least 16,
otherwise from consecutive frames. It leaves out echoes that do not move. "aliased" means that the distance of the
strongest moving echo changes faster than velocities between sweeps can show. Where frames are missing or not valid,
the maps are white, and displacement begins at 0 again. The time axis counts frames if neither a clock nor a frame
rate is known.

Dashed lines are the mean level without echoes, that is, of noise and the sensor's constant offset, and in spectra
that of noise. The noise is measured from the differences between consecutive sweeps, beside echoes that move and
samples that are clipped. Dotted lines are the bounds of velocities that are not ambiguous. Warnings are red.

If the truth of simulated sensors was recorded, thin dashed lines in magenta show where the targets really were: at
their mean distances in the level, at their distances over time in the level over time.)";

/** The options of `vantor plot`. */
struct plot_options
{
    std::filesystem::path recording;
    std::filesystem::path output;
    std::string distance;
    bool json = false;
};

/** Rejects a file name that promises another format. */
void check_output(const std::filesystem::path &output)
{
    auto extension = output.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char letter) { return std::tolower(letter); });
    if (!output.empty() && extension != ".png")
    {
        throw usage_error("--output: \"" + output.string() +
                          "\" is not the name of a PNG file; use a name that ends in .png");
    }
}

/** Rejects a distance that no item measures. */
void check_distance(const recording_reader &recording, std::optional<double> distance)
{
    const auto &items = recording.items();
    const auto covers = [&](const auto &item) { return covers_distance(item, *distance); };
    if (distance && std::none_of(items.begin(), items.end(), covers))
    {
        throw usage_error("--distance " + fixed(*distance, 3) + " m is outside the recording, which has " +
                          covered_distances(recording) + ".");
    }
}

/** Ends a drawing at a signal. */
void check_interrupt()
{
    if (interrupt_watch::interrupted())
    {
        throw drawing_stopped();
    }
}

/** The PNG file of the first page of a recording. */
std::filesystem::path output_of(const plot_options &options, const board_place &place)
{
    auto output =
        options.output.empty() ? recording_directory(options.recording) / "picture.png" : options.output;
    if (!place.board.empty())
    {
        output.replace_filename(output.stem().string() + "-" + place.board.string() +
                                output.extension().string());
    }
    return output;
}

/** What the pictures of all boards have in common. */
struct common_scale
{
    std::optional<double> distance;
    std::optional<shared_axis> axis;
};

/** Draws the pictures of a recording; shows progress on a terminal. */
drawn_pictures draw(const plot_options &options, const board_place &place, const common_scale &scale,
                    const command_streams &streams)
{
    recording_reader recording(place.recording);
    check_distance(recording, scale.distance);
    background_check check(recording.directory(), check_interrupt);
    const reading_progress progress(recording, streams, 2, check_interrupt);
    const auto directory = std::filesystem::weakly_canonical(recording_directory(options.recording));
    const auto board = place.board.empty() ? std::string() : ", board " + place.board.string();
    // Names of boards can end in a number like those of pages, but have no full stop.
    return draw_recording(recording, {.output = output_of(options, place),
                                      .page_mark = place.board.empty() ? "-" : ".",
                                      .title = printable(directory.filename().string() + board),
                                      .distance = scale.distance,
                                      .axis = scale.axis,
                                      .stop = interrupt_watch::interrupted,
                                      .complete = [&] { check.warn(streams); }});
}

/** The times of the frames of a board; shows progress on a terminal. */
time_figures read_times(const board_place &place, const command_streams &streams)
{
    const recording_reader recording(place.recording);
    progress_line line(streams.err, streams.terminal, {.frames = recording.frames()});
    return read_times(recording, 0, [&](uint64_t frames) {
        line.update(frames);
        check_interrupt();
    });
}

/** The axis of time of several boards, of those that can be read; nothing for a single one. */
std::optional<shared_axis> axis_of(const std::vector<board_place> &places, const command_streams &streams)
{
    if (places.front().board.empty())
    {
        return std::nullopt;
    }
    std::vector<time_figures> times;
    times.reserve(places.size());
    for (const auto &place : places)
    {
        try
        {
            times.push_back(read_times(place, streams));
        }
        catch (const bad_recording &)
        {
            // Drawing it reports why.
        }
    }
    return find_shared_axis(times);
}

/** Draws the pictures of all boards, and adds them to a list; returns the exit code of the first failure. */
exit_code draw(const plot_options &options, const command_streams &streams, drawn_pictures &all)
{
    check_output(options.output);
    const auto distance = options.distance.empty()
                              ? std::nullopt
                              : std::optional(parse_distance("--distance", options.distance));
    const auto places = recordings_at(options.recording);
    const common_scale scale{.distance = distance, .axis = axis_of(places, streams)};
    return for_each_recording(places, streams.err, [&](const board_place &place) {
        auto drawn = draw(options, place, scale, streams);
        std::move(drawn.pages.begin(), drawn.pages.end(), std::back_inserter(all.pages));
        std::move(drawn.warnings.begin(), drawn.warnings.end(), std::back_inserter(all.warnings));
    });
}

/** Prints the paths of the pictures, and the warnings. */
void print(const drawn_pictures &drawn, bool json, const command_streams &streams)
{
    auto names = nlohmann::ordered_json::array();
    for (const auto &path : drawn.pages)
    {
        names.push_back(path.string());
        if (!json)
        {
            streams.out << "picture: " << printable(path.string()) << "\n";
        }
    }
    if (json)
    {
        const auto first = names.empty() ? nlohmann::ordered_json() : names.front();
        print_json(streams.out, {{"picture", first}, {"pages", names}, {"warnings", drawn.warnings}});
    }
    for (const auto &warning : drawn.warnings)
    {
        streams.err << "vantor: warning: " << printable(warning) << "\n";
    }
}

/** Draws the pictures and prints their paths. */
exit_code plot(const plot_options &options, const command_streams &streams)
{
    const interrupt_watch watch;
    drawn_pictures drawn;
    try
    {
        const auto result = draw(options, streams, drawn);
        print(drawn, options.json, streams);
        return result;
    }
    catch (const drawing_stopped &)
    {
        if (drawn.pages.empty())
        {
            streams.out << "interrupted; no picture was written\n";
            return exit_code::interrupted;
        }
        print(drawn, options.json, streams);
        (options.json ? streams.err : streams.out) << "interrupted; no further picture was written\n";
        return exit_code::interrupted;
    }
}

} // namespace

command plot_command()
{
    auto options = std::make_shared<plot_options>();
    return {
        .name = "plot",
        .help = "Draw a recording as a PNG picture, with gnuplot.",
        .footer = plot_footer,
        .options = {recording_argument(options->recording),
                    {.name = "--output",
                     .help = "PNG file to write, whose name ends in .png; an existing file is replaced",
                     .value = &options->output,
                     .value_name = "FILE"},
                    {.name = "--distance",
                     .help = "Distance for phase and velocity (m, cm, mm); the strongest echo if not given",
                     .value = &options->distance,
                     .value_name = "DISTANCE"},
                    json_flag(options->json)},
        .run = [options](const command_streams &streams) { return plot(*options, streams); }};
}

} // namespace vantor
