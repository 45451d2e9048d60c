/** @file
 * Draws a recording.
 */
#include "plot/picture.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>
#include <system_error>

#include "plot/gnuplot.h"
#include "plot/item_analysis.h"
#include "recording/output_file.h"
#include "recording/recording_error.h"

namespace vantor
{
namespace
{

/** The style of all pictures. */
constexpr const char *style = R"(set border 3 lc rgb '#606060'
set tics nomirror textcolor rgb '#303030'
set grid lc rgb '#d8d8d8' lw 0.5
set key off
set palette defined (0 '#440154', 1 '#414487', 2 '#2a788e', 3 '#22a884', 4 '#7ad151', 5 '#fde725')
)";

/** The directory of temporary files. */
std::filesystem::path temporary_files()
{
    std::error_code failure;
    auto directory = std::filesystem::temp_directory_path(failure);
    if (failure)
    {
        throw recording_error(
            "Cannot create temporary files: TMPDIR is not a directory that exists; set it to another one.");
    }
    return directory;
}

/** Throws recording_error if something could not be written to the directory of temporary files. */
void require_written(bool complete)
{
    if (!complete)
    {
        throw recording_error("Cannot write the temporary files of the picture to " +
                              temporary_files().string() +
                              ": free space there, or set TMPDIR to another directory.");
    }
}

/** Closes a temporary file, which must be complete. */
void finish(std::ofstream &file)
{
    file.close();
    require_written(!file.fail());
}

/** A temporary directory for the files that gnuplot reads. */
class scratch_directory
{
public:
    scratch_directory()
    {
        const auto parent = temporary_files();
        auto pattern = (parent / "vantor-plot-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
        {
            throw recording_error("Cannot create temporary files in " + parent.string() +
                                  ": free space there, or set TMPDIR to another directory.");
        }
        path_ = pattern;
    }
    scratch_directory(const scratch_directory &) = delete;
    scratch_directory &operator=(const scratch_directory &) = delete;
    scratch_directory(scratch_directory &&) = delete;
    scratch_directory &operator=(scratch_directory &&) = delete;

    ~scratch_directory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    /** The path of a file in the directory. */
    [[nodiscard]] std::filesystem::path operator/(const std::string &name) const
    {
        return path_ / name;
    }

private:
    std::filesystem::path path_;
};

/** The distance between two points of a sub-sweep, in metres. */
double step_length(const recorded_item &item, size_t subsweep)
{
    const auto &ranges = item.configuration.subsweeps;
    return subsweep < ranges.size() ? ranges[subsweep].step_length * item.layout.base_step_length_m : 0.0;
}

/** Writes the profile and the map of one sub-sweep. */
void write_subsweep(const std::filesystem::path &base, const recorded_item &item,
                    const item_analysis &analysis, size_t subsweep)
{
    const auto &place = item.layout.subsweeps[subsweep];
    if (place.length == 0)
    {
        return;
    }
    std::ofstream profile(base.string() + ".profile");
    std::ofstream map(base.string() + ".map");
    for (size_t i = place.offset; i < place.offset + place.length; ++i)
    {
        profile << item.distances[i] << " " << analysis.profile[i] << "\n";
    }
    for (const auto &strip : analysis.map)
    {
        for (size_t i = place.offset; i < place.offset + place.length; ++i)
        {
            map << strip.seconds << " " << item.distances[i] << " " << strip.levels[i] << "\n";
        }
        // Its field ends where the next point would be.
        const auto last = place.offset + place.length - 1;
        map << strip.seconds << " " << item.distances[last] + step_length(item, subsweep) << " "
            << strip.levels[last] << "\n\n";
    }
    finish(profile);
    finish(map);
}

/** Writes two columns. */
void write_columns(const std::filesystem::path &path, const std::vector<double> &first,
                   const std::vector<double> &second)
{
    std::ofstream file(path);
    for (size_t i = 0; i < first.size(); ++i)
    {
        file << first[i] << " " << second[i] << "\n";
    }
    finish(file);
}

/** Builds a plot command with the files of an item's sub-sweeps; sub-sweeps of a single point have their own
 * style. */
std::string plot_subsweeps(const std::string &command, const std::string &base, const recorded_item &item,
                           const std::string &extension, const char *look, const char *look_of_point)
{
    std::string text;
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        if (const auto length = item.layout.subsweeps[i].length; length > 0)
        {
            text += text.empty() ? command + " " : ", ";
            text += gnuplot_quote(std::string(base).append("-").append(std::to_string(i)).append(extension));
            text += ' ';
            text += length == 1 ? look_of_point : look;
        }
    }
    return text + "\n";
}

/** The commands that set title and axes of a picture. */
std::string axes(const std::string &title, const std::string &x, const std::string &y)
{
    return "set title " + gnuplot_quote(title) + " noenhanced\nset xlabel " + gnuplot_quote(x) +
           " noenhanced\nset ylabel " + gnuplot_quote(y) + " noenhanced\nset autoscale\n";
}

/** The commands for an empty picture with the reason. */
std::string empty_picture(const std::string &reason)
{
    return "set label 1 " + gnuplot_quote(reason) +
           " at graph 0.5,0.5 center textcolor rgb '#606060'\nset xrange [0:1]\nset yrange [0:1]\n"
           "plot NaN with lines\nunset label 1\n";
}

/** The command that sets the phase range, wide enough that noise does not look like a signal. */
std::string phase_range(const item_analysis &analysis)
{
    constexpr double narrowest = 0.5;
    const auto [lowest, highest] = std::minmax_element(analysis.phase.begin(), analysis.phase.end());
    if (*highest - *lowest >= narrowest)
    {
        return {};
    }
    const double middle = (*highest + *lowest) / 2.0;
    return "set yrange [" + std::to_string(middle - narrowest / 2.0) + ":" +
           std::to_string(middle + narrowest / 2.0) + "]\n";
}

/** The commands that draw the mean level over distance, with a mark at the selected point. */
std::string draw_profile(const recorded_item &item, const item_analysis &analysis, const std::string &base)
{
    const double distance = item.distances[analysis.point];
    const std::string name = "Sensor " + std::to_string(item.configuration.sensor_id) + " (group " +
                             std::to_string(item.layout.group + 1) + ", item " +
                             std::to_string(item.layout.index + 1) + "): mean level";
    const auto head = axes(name, "distance in m", "level");
    if (!std::isfinite(distance))
    {
        return head + empty_picture("distances unknown");
    }
    const auto mark = std::to_string(distance);
    const auto range = item.distances.size() == 1 ? "set xrange [" + mark + "-0.01:" + mark + "+0.01]\n" : "";
    return head + range + "set yrange [0:*]\nset arrow 1 from " + mark + ", graph 0 to " + mark +
           ", graph 1 nohead dt 2 lc rgb '#c04040'\n" +
           plot_subsweeps("plot", base, item, ".profile", "with lines lw 1.6 lc rgb '#2a5d9c'",
                          "with points pt 7 lc rgb '#2a5d9c'") +
           "unset arrow 1\n";
}

/** The commands that draw the level over time and distance. */
std::string draw_map(const recorded_item &item, const item_analysis &analysis, const std::string &base)
{
    const auto head = axes("level over time", "time in s", "distance in m");
    if (analysis.map.size() < 2)
    {
        return head + empty_picture("only one frame");
    }
    if (!std::isfinite(item.distances[analysis.point]))
    {
        return head + empty_picture("distances unknown");
    }
    constexpr const char *look = "using 1:2:3 with pm3d";
    return head + "set autoscale noextend\nset pm3d map corners2color c1\nset view map scale 1.1\n" +
           plot_subsweeps("splot", base, item, ".map", look, look) + "unset pm3d\n";
}

/** The commands that draw the phase over time. */
std::string draw_phase(const item_analysis &analysis, const std::string &base, const std::string &place)
{
    const auto head = axes("phase at " + place, "time in s", "phase in radians");
    if (analysis.phase.size() < 2)
    {
        return head + empty_picture("too few frames");
    }
    return head + "set autoscale xfix\n" + phase_range(analysis) + "plot " + gnuplot_quote(base + ".phase") +
           " with lines lw 1.4 lc rgb '#2a788e'\n";
}

/** The commands that draw the Doppler spectrum. */
std::string draw_doppler(const item_analysis &analysis, const std::string &base, const std::string &place)
{
    const std::string between = analysis.between_frames ? " between frames" : " between sweeps";
    const auto head = axes("Doppler at " + place + between, "frequency in Hz", "power in dB");
    if (analysis.powers.empty())
    {
        return head + empty_picture("too few frames");
    }
    return head + "plot " + gnuplot_quote(base + ".doppler") + " with lines lw 1.4 lc rgb '#8c4a8c'\n";
}

/** The commands that draw one item. */
std::string draw_item(const recorded_item &item, const item_analysis &analysis, const std::string &base)
{
    std::ostringstream place;
    place.precision(3);
    if (const double distance = item.distances[analysis.point]; std::isfinite(distance))
    {
        place << std::fixed << distance << " m";
    }
    else
    {
        place << "point " << analysis.point;
    }
    return draw_profile(item, analysis, base) + draw_map(item, analysis, base) +
           draw_phase(analysis, base, place.str()) + draw_doppler(analysis, base, place.str());
}

/** Writes the figures of an item to files and returns the commands that draw them. */
std::string prepare_item(recording_reader &recording, size_t index, std::optional<double> distance,
                         const std::filesystem::path &base)
{
    const auto &item = recording.items()[index];
    const auto analysis = analyse_item(recording, index, distance);
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        write_subsweep(base.string() + "-" + std::to_string(i), item, analysis, i);
    }
    write_columns(base.string() + ".phase", analysis.seconds, analysis.phase);
    write_columns(base.string() + ".doppler", analysis.frequencies, analysis.powers);
    return draw_item(item, analysis, base.string());
}

/** Writes commands to a script and runs it. */
void run_script(const std::filesystem::path &path, const std::string &commands)
{
    std::ofstream script(path);
    script << commands;
    finish(script);
    run_gnuplot(path);
}

/** The content of the picture that gnuplot wrote; gnuplot does not report when the disk is full. */
std::string read_picture(const std::filesystem::path &path)
{
    using namespace std::string_view_literals;
    constexpr auto last_chunk = "\0\0\0\0IEND\xae\x42\x60\x82"sv;
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), {}};
    require_written(content.ends_with(last_chunk));
    return content;
}

} // namespace

int sheet_height(const sheet_format &format, size_t items)
{
    const int count = static_cast<int>(items);
    return count * std::min(format.row_height, format.highest / count);
}

void draw_recording(recording_reader &recording, const std::filesystem::path &output,
                    std::optional<double> distance, const sheet_format &format)
{
    const auto count = recording.items().size();
    if (recording.frames() == 0)
    {
        throw bad_recording("The recording has no complete frame, so there is nothing to draw.");
    }
    const scratch_directory scratch;
    const auto picture = scratch / "picture.png";
    std::string commands = "set terminal pngcairo size " + std::to_string(format.width) + "," +
                           std::to_string(sheet_height(format, count)) +
                           " font 'Sans,10' background rgb 'white'\nset output " +
                           gnuplot_quote(picture.string()) + "\n" + style + "set multiplot layout " +
                           std::to_string(count) + ",4\n";
    for (size_t i = 0; i < count; ++i)
    {
        commands += prepare_item(recording, i, distance, scratch / item_name(recording.items()[i].layout));
    }
    commands += "unset multiplot\n";
    run_script(scratch / "script", commands);
    replace_files({{.path = output, .text = read_picture(picture)}});
}

} // namespace vantor
