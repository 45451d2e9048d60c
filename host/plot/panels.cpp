/** @file
 * The gnuplot commands for the panels of an item.
 */
#include "plot/panels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "plot/caption.h"
#include "plot/gnuplot.h"
#include "plot/sensor_scale.h"
#include "recording/number_text.h"

namespace vantor
{
namespace
{

/** Looks of what appears in several panels. */
constexpr const char *noise_look = "nohead dt 2 lw 1.5 lc rgb '#707070'";
constexpr const char *mark_look = "nohead dt 3 lw 1.5 lc rgb '#c04040'";
constexpr const char *truth_look = "dt 2 lw 1 lc rgb '#b000b0'";
constexpr const char *truth_text = "font ',8' textcolor rgb '#b000b0'";
constexpr const char *small_text = "font ',8' textcolor rgb '#606060'";

/** Minimum range of colours in dB: noise does not look like a signal. */
constexpr double fewest_colours = 30.0;

/** The lowest and highest value on an axis. */
using axis_range = std::pair<double, double>;

/** The command that sets the range of an axis. */
std::string range_command(const char *axis, axis_range range)
{
    return std::string("set ") + axis + "range [" + fixed(range.first, 9) + ":" + fixed(range.second, 9) +
           "]\n";
}

/** The commands that undo those of the previous panel. */
constexpr const char *clean_panel = R"(unset label
unset arrow
unset y2tics
unset y2label
unset x2tics
unset colorbox
set border 11
set xtics nomirror autofreq textcolor rgb '#303030'
set ytics nomirror textcolor rgb '#303030'
set cbtics textcolor rgb '#303030'
set autoscale
)";

/** The commands that begin a panel: its place, title and axes. */
std::string begin_panel(const panel_row &place, size_t column, const std::string &title, const std::string &x,
                        const char *y)
{
    return std::string(clean_panel) + place.sheet.panel(place.row, column) + "set title " +
           gnuplot_quote(title) + " offset 0,0 noenhanced\nset xlabel " + gnuplot_quote(x) +
           " noenhanced\nset ylabel " + gnuplot_quote(y) + " noenhanced\n";
}

/** The commands for an empty panel with the reason. */
std::string empty_panel(const std::string &reason)
{
    return "set label " + gnuplot_quote(reason) +
           " at graph 0.5,0.5 center textcolor rgb '#606060'\nset xrange [0:1]\nset yrange [0:1]\n"
           "unset border\nunset tics\nunset xlabel\nunset ylabel\n"
           "plot NaN with lines\n";
}

/** A line between two places, given as gnuplot coordinates. */
std::string line(const std::string &from, const std::string &to, const char *look)
{
    return "set arrow from " + from + " to " + to + " " + look + "\n";
}

/** A plot command with the files of an item's sub-sweeps; those of a single point have their own look. */
std::string plot_subsweeps(const panel_row &place, const std::string &command, const std::string &extension,
                           const std::string &look, const std::string &look_of_point)
{
    std::string text;
    for (size_t i = 0; i < place.item.layout.subsweeps.size(); ++i)
    {
        if (const auto length = place.item.layout.subsweeps[i].length; length > 0)
        {
            text += text.empty() ? command + " " : ", ";
            text += gnuplot_quote(place.base + "-" + std::to_string(i) + extension) + " " +
                    (length == 1 ? look_of_point : look);
        }
    }
    return text;
}

/** Whether the distances of an item are known. */
bool has_distances(const panel_row &place)
{
    return std::isfinite(place.item.layout.distances_m.at(place.analysis.point));
}

/** The mean level of noise and offset in a sub-sweep, in dBFS; NaN if unknown. */
double noise_floor(const panel_row &place, size_t subsweep)
{
    const double level = place.analysis.around.at(subsweep).level();
    return std::isnan(level) ? level : dbfs(level);
}

/** A range from the noise, or the lowest level, to the highest level, in steps of 10 dB; at least 40 dB. */
axis_range level_range(const panel_row &place)
{
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (const double level : place.analysis.profile)
    {
        low = std::min(low, dbfs(level));
        high = std::max(high, dbfs(level));
    }
    for (size_t i = 0; i < place.analysis.around.size(); ++i)
    {
        low = std::fmin(low, noise_floor(place, i));
    }
    constexpr double step = 10.0;
    constexpr double narrowest = 40.0;
    low = step * std::floor((low - 4.0) / step);
    return {low, std::max(step * std::ceil((high + 2.0) / step), low + narrowest)};
}

/** The commands for a second scale of levels: amplitudes. */
std::string amplitude_scale(axis_range range)
{
    std::string tics;
    for (const int amplitude : {1, 10, 100, 1000, 10000})
    {
        tics += (tics.empty() ? "" : ", ") + gnuplot_quote(std::to_string(amplitude)) + " " +
                fixed(dbfs(amplitude), 4);
    }
    return "set y2tics (" + tics + ") nomirror\nset y2label 'amplitude'\n" + range_command("y2", range);
}

/** What the dashed lines are: a constant offset that is as strong as the noise is named, too. */
std::string floor_name(const panel_row &place)
{
    const auto has_offset = [](const background &around) { return around.offset > around.noise / 2.0; };
    const auto &all = place.analysis.around;
    return std::any_of(all.begin(), all.end(), has_offset) ? "noise and constant offset" : "noise";
}

/** The commands for the floor of each sub-sweep: the level without echoes. */
std::string noise_lines(const panel_row &place)
{
    std::string text;
    for (size_t i = 0; i < place.analysis.around.size(); ++i)
    {
        const auto &part = place.item.layout.subsweeps[i];
        const double level = noise_floor(place, i);
        if (part.length == 0 || std::isnan(level))
        {
            continue;
        }
        const auto &distances = place.item.layout.distances_m;
        const auto at = [y = fixed(level, 4)](double distance) { return fixed(distance, 6) + "," + y; };
        const auto first = at(distances[part.offset]);
        text += text.empty() ? "set label " + gnuplot_quote(floor_name(place)) + " at " + first +
                                   " offset 0.5,-0.6 " + small_text + "\n"
                             : "";
        text += line(first, at(distances[part.offset + part.length - 1]), noise_look);
    }
    return text;
}

/** The commands for the legend of the truth; none if it is unknown. */
std::string truth_legend(const panel_row &place)
{
    return place.analysis.truth.empty()
               ? std::string()
               : "set label 'truth (dashed)' at graph 0.98, graph 0.95 right front " +
                     std::string(truth_text) + "\n";
}

/** The commands for marks at the mean true distances of all targets. */
std::string truth_marks(const panel_row &place)
{
    auto text = truth_legend(place);
    for (const auto &track : place.analysis.truth)
    {
        const auto distance = fixed(track.mean, 6);
        text += line(distance + ", graph 0", distance + ", graph 1",
                     ("nohead " + std::string(truth_look)).c_str());
    }
    return text;
}

/** The part of a plot command that draws the true distances over time; empty if they are unknown. */
std::string truth_lines(const panel_row &place)
{
    return place.analysis.truth.empty()
               ? std::string()
               : ", " + gnuplot_quote(place.base + ".truth") + " using 1:2:(0) with lines " + truth_look;
}

/** The commands that draw the mean level over distance, with the noise and the selected point. */
std::string draw_level(const panel_row &place)
{
    const auto head = begin_panel(place, 0, "Mean level: " + level_name(place.item, place.analysis),
                                  "distance in m", "level in dBFS");
    if (!has_distances(place))
    {
        return head + empty_panel("distances unknown");
    }
    const auto mark = fixed(place.item.layout.distances_m[place.analysis.point], 6);
    const auto range = level_range(place);
    const auto around = place.item.layout.distances_m.size() == 1
                            ? "set xrange [" + mark + "-0.01:" + mark + "+0.01]\n"
                            : std::string("set autoscale xfix\n");
    return head + around + range_command("y", range) + amplitude_scale(range) + noise_lines(place) +
           truth_marks(place) + line(mark + ", graph 0", mark + ", graph 1", mark_look) +
           plot_subsweeps(place, "plot", ".level", "with lines lw 1.6 lc rgb '#2a5d9c'",
                          "with points pt 7 lc rgb '#2a5d9c'") +
           "\n";
}

/** The label of an axis of time. */
std::string time_label(const panel_row &place)
{
    if (place.window)
    {
        return "time in s since " + place.window->start;
    }
    return place.analysis.time.in_seconds ? "time in s" : "frame number (neither clock nor rate is known)";
}

/** A step of 1, 2 or 5 times a power of ten, of which few fit into a length. */
double step_of_tics(double length)
{
    constexpr double most_tics = 6.0;
    const double least = length / most_tics;
    const double power = std::pow(10.0, std::floor(std::log10(least)));
    const double factor = least / power;
    return power * (factor > 5.0 ? 10.0 : factor > 2.0 ? 5.0 : factor > 1.0 ? 2.0 : 1.0);
}

/** The command for tics that count from the start of a window. */
std::string window_tics(const time_window &window)
{
    const double length = window.end - window.begin;
    const double step = step_of_tics(length);
    const int digits = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
    std::string tics;
    for (int i = 0; i * step <= length * (1.0 + 1e-9); ++i)
    {
        tics += (i == 0 ? "" : ", ") + gnuplot_quote(fixed(i * step, digits)) + " " +
                fixed(window.begin + i * step, 9);
    }
    return "set xtics (" + tics + ")\n";
}

/** The commands for an axis of time that ends with the frames, unless it has a window. */
std::string time_range(const panel_row &place, double end)
{
    if (!place.window || !(place.window->begin < place.window->end))
    {
        return range_command("x", {0.0, end});
    }
    return range_command("x", {place.window->begin, place.window->end}) + window_tics(*place.window);
}

/** The colours of the map: from the noise to the highest level. */
axis_range map_range(const panel_row &place)
{
    double low = std::numeric_limits<double>::quiet_NaN();
    for (size_t i = 0; i < place.analysis.around.size(); ++i)
    {
        low = std::fmin(low, noise_floor(place, i));
    }
    double high = -std::numeric_limits<double>::infinity();
    for (const auto &strip : place.analysis.map.strips)
    {
        for (const float level : strip.levels)
        {
            high = std::max(high, dbfs(level));
        }
    }
    low = std::isnan(low) ? level_range(place).first : low;
    return {low, std::max(high, low + fewest_colours)};
}

/** The commands that draw the level over time and distance. */
std::string draw_map(const panel_row &place)
{
    const auto head = begin_panel(place, 1, "Level over time, in dBFS", time_label(place), "distance in m");
    const auto &map = place.analysis.map;
    if (map.strips.size() < 2)
    {
        return head + empty_panel("only one frame");
    }
    if (!has_distances(place))
    {
        return head + empty_panel("distances unknown");
    }
    const auto &distances = place.item.layout.distances_m;
    const auto top = fixed(*std::max_element(distances.begin(), distances.end()), 6);
    const auto saturated = ", " + gnuplot_quote(place.base + ".saturated") + " using 1:(" + top +
                           "):(0) with points pt 7 ps 0.5 lc rgb '#e02020'";
    constexpr const char *look = "using 1:2:3 with pm3d";
    return head + "set autoscale noextend\nset pm3d map corners2color c1\n" +
           time_range(place, map.width * static_cast<double>(map.strips.size())) +
           range_command("cb", map_range(place)) + place.sheet.colour_scale(place.row, 1) +
           truth_legend(place) + plot_subsweeps(place, "splot", ".map", look, look) + truth_lines(place) +
           (place.analysis.figures.saturated > 0 ? saturated : std::string()) + "\nunset pm3d\n";
}

/** The range of the phase, wide enough that noise does not look like a signal. */
axis_range phase_range(const item_analysis &analysis)
{
    constexpr double narrowest = 0.5;
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (const auto &point : analysis.track)
    {
        low = std::fmin(low, point.phase);
        high = std::fmax(high, point.phase);
    }
    const double margin = std::max((narrowest - (high - low)) / 2.0, (high - low) * 0.04);
    return {low - margin, high + margin};
}

/** Number of phases in the track. */
size_t count_phases(const item_analysis &analysis)
{
    return static_cast<size_t>(std::count_if(analysis.track.begin(), analysis.track.end(),
                                             [](const auto &point) { return !std::isnan(point.phase); }));
}

/** What follows the title of the panels of a point. */
std::string doubt(const item_analysis &analysis)
{
    if (!analysis.above_noise)
    {
        return analysis.noise_known ? ": only noise" : ": noise unknown";
    }
    if (analysis.mostly_noise)
    {
        return ": mostly noise";
    }
    return analysis.aliased ? ": ambiguous" : "";
}

/** The commands that draw phase and displacement over time. */
std::string draw_phase(const panel_row &place)
{
    const auto &analysis = place.analysis;
    const auto head = begin_panel(
        place, 2, "Phase and displacement at " + place_name(place.item, analysis.point) + doubt(analysis),
        time_label(place), "phase in rad, from 0");
    if (count_phases(analysis) < 2)
    {
        return head + empty_panel("too few frames");
    }
    const auto range = phase_range(analysis);
    const double millimetres = 1000.0 * metres_per_radian();
    const auto saturated =
        ", " + gnuplot_quote(place.base + ".saturated-track") + " with points pt 7 ps 0.5 lc rgb '#e02020'";
    return head + time_range(place, analysis.time.end) + range_command("y", range) +
           range_command("y2", {range.first * millimetres, range.second * millimetres}) +
           "set y2tics nomirror\nset y2label 'displacement in mm (positive: away)'\nplot " +
           gnuplot_quote(place.base + ".track") + " with lines lw 1.4 lc rgb '#2a788e'" +
           (analysis.figures.saturated > 0 ? saturated : std::string()) + "\n";
}

/** What follows the titles of velocities between sweeps. */
std::string alias_doubt(const item_analysis &analysis)
{
    return analysis.alias && analysis.alias->shown ? ": aliased" : "";
}

/** The highest level of a spectrum. */
double peak_of(const velocity_spectrum &spectrum)
{
    return *std::max_element(spectrum.levels.begin(), spectrum.levels.end());
}

/** How far the highest level of noise is above its mean, in dB: less in the mean of many segments. */
double most_of_noise(const velocity_spectrum &spectrum)
{
    const auto segments = static_cast<double>(std::max<size_t>(spectrum.segments, 1));
    return std::max(3.0, 10.0 * std::log10(1.0 + 15.0 / std::sqrt(segments)));
}

/** The title of the spectrum panel. */
std::string spectrum_title(const panel_row &place)
{
    const auto &spectrum = place.analysis.spectrum;
    const auto title = "Velocity at " + place_name(place.item, place.analysis.point) +
                       (spectrum.between_frames ? ", between frames" : ", between sweeps");
    if (!spectrum.levels.empty() && peak_of(spectrum) < spectrum.floor + most_of_noise(spectrum))
    {
        return title + ": only noise";
    }
    if (!spectrum.between_frames)
    {
        return title + alias_doubt(place.analysis);
    }
    const auto doubts = doubt(place.analysis);
    return title + (doubts.empty() && place.analysis.alias ? ": aliased" : doubts);
}

/** The range of levels of a spectrum: noise, and what is lower, fills the lower part. */
axis_range spectrum_levels(const velocity_spectrum &spectrum)
{
    auto levels = spectrum.levels;
    std::sort(levels.begin(), levels.end());
    const double low = std::fmin(spectrum.floor, levels[levels.size() / 4]) - 15.0;
    return {low, std::max(levels.back() + 10.0, low + 50.0)};
}

/** The commands for the noise floor of a spectrum, and the bounds of unambiguous velocities. */
std::string spectrum_lines(const velocity_spectrum &spectrum)
{
    const auto bound = fixed(velocity_bound(spectrum.rate), 9);
    auto text = line(bound + ", graph 0", bound + ", graph 1", mark_look) +
                line("-" + bound + ", graph 0", "-" + bound + ", graph 1", mark_look) + "set label " +
                gnuplot_quote("ambiguous beyond ±" + three_digits(velocity_bound(spectrum.rate)) + " m/s") +
                " at graph 0.5, graph 0.96 center " + small_text + "\n";
    if (!std::isnan(spectrum.floor))
    {
        const auto y = ", first " + fixed(spectrum.floor, 4);
        text += line("graph 0" + y, "graph 1" + y, noise_look) + "set label 'noise' at graph 1.02" + y + " " +
                small_text + "\n";
    }
    return text;
}

/** The commands that draw the velocity spectrum. */
std::string draw_spectrum(const panel_row &place)
{
    const auto &spectrum = place.analysis.spectrum;
    const auto head =
        begin_panel(place, 3, spectrum_title(place),
                    "velocity in m/s (positive: away); above: frequency in Hz", "level in dBFS");
    if (spectrum.levels.empty())
    {
        return head +
               empty_panel(spectrum.rate > 0.0 ? "too few frames without a gap" : "frame rate unknown");
    }
    const double width = 1.06 * velocity_bound(spectrum.rate);
    const double frequency = 1.06 * spectrum.rate / 2.0;
    return head + range_command("x", {-width, width}) + range_command("y", spectrum_levels(spectrum)) +
           range_command("x2", {-frequency, frequency}) +
           "set x2tics nomirror font ',8' offset 0,-0.4\nset title offset 0,-0.7\n" +
           spectrum_lines(spectrum) + "plot " + gnuplot_quote(place.base + ".spectrum") +
           " with lines lw 1.4 lc rgb '#8c4a8c'\n";
}

/** The colours of the velocity map: from the noise to the highest level. */
axis_range map_levels(const velocity_map &map)
{
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (const auto &levels : map.levels)
    {
        const auto [least, most] = std::minmax_element(levels.begin(), levels.end());
        low = std::min<double>(low, *least);
        high = std::max<double>(high, *most);
    }
    low = std::isnan(map.floor) ? low : map.floor;
    return {low, std::max(high, low + fewest_colours)};
}

} // namespace

std::string draw_panels(const panel_row &place)
{
    return draw_level(place) + draw_map(place) + draw_phase(place) + draw_spectrum(place);
}

std::string draw_velocity_map(const panel_row &place)
{
    const auto &map = place.analysis.velocities;
    const auto head =
        begin_panel(place, 4, "Velocity over distance, between sweeps, in dBFS" + alias_doubt(place.analysis),
                    "velocity in m/s (positive: away; 0: what rests, constant offset)", "distance in m");
    if (map.velocities.empty())
    {
        return head + empty_panel("fewer than 4 sweeps in a frame");
    }
    if (!has_distances(place))
    {
        return head + empty_panel("distances unknown");
    }
    const double bound = velocity_bound(sweep_rate(place.item));
    return head + "set autoscale yfix\n" + range_command("x", {-1.06 * bound, 1.06 * bound}) +
           range_command("cb", map_levels(map)) + place.sheet.colour_scale(place.row, 4) +
           line(fixed(bound, 9) + ", graph 0", fixed(bound, 9) + ", graph 1", mark_look) +
           line(fixed(-bound, 9) + ", graph 0", fixed(-bound, 9) + ", graph 1", mark_look) +
           plot_subsweeps(place, "plot", ".velocities", "using 1:2:3 with image",
                          "using 1:2:3 with points pt 5 palette") +
           "\n";
}

} // namespace vantor
