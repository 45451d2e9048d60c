/** @file
 * The files with the figures that gnuplot draws.
 */
#include "plot/panel_files.h"

#include <cmath>
#include <fstream>
#include <sstream>

#include "plot/scratch_directory.h"
#include "plot/sensor_scale.h"

namespace vantor
{
namespace
{

/** The mean level of each point: distance, level. */
std::string level_text(const recorded_item &item, const item_analysis &analysis, const subsweep_layout &place)
{
    std::ostringstream text;
    for (size_t i = place.offset; i < place.offset + place.length; ++i)
    {
        text << item.layout.distances_m[i] << " " << dbfs(analysis.profile[i]) << "\n";
    }
    return text.str();
}

/** Writes a strip of the map: time, distance, level. NaN leaves a gap. */
void write_strip(std::ostream &text, double seconds, const std::vector<double> &levels,
                 const recorded_item &item, size_t subsweep)
{
    const auto &place = item.layout.subsweeps[subsweep];
    const auto level = [&](size_t point) { return levels.empty() ? std::nan("") : dbfs(levels[point]); };
    for (size_t i = place.offset; i < place.offset + place.length; ++i)
    {
        text << seconds << " " << item.layout.distances_m[i] << " " << level(i) << "\n";
    }
    // The field of the last point ends where the next point would be.
    const auto last = place.offset + place.length - 1;
    text << seconds << " " << item.layout.distances_m[last] + step_length(item, subsweep) << " "
         << level(last) << "\n\n";
}

/** The map of a sub-sweep. */
std::string map_text(const recorded_item &item, const item_analysis &analysis, size_t subsweep)
{
    std::ostringstream text;
    text.precision(9);
    for (const auto &strip : analysis.map)
    {
        write_strip(text, strip.seconds, strip.levels, item, subsweep);
    }
    // The field of the last strip ends one strip later.
    if (const auto count = analysis.map.size(); count > 1)
    {
        const auto &last = analysis.map.back();
        write_strip(text, 2.0 * last.seconds - analysis.map[count - 2].seconds, last.levels, item, subsweep);
    }
    return text.str();
}

/** Velocities of a spectrum, and the upper bound, which looks like the lower one. */
std::vector<double> closed(std::vector<double> velocities)
{
    if (!velocities.empty() && velocities.size() % 2 == 0)
    {
        velocities.push_back(-velocities.front());
    }
    return velocities;
}

/** The velocity map of a sub-sweep: velocity, distance, level. */
std::string velocity_text(const recorded_item &item, const velocity_map &map, const subsweep_layout &place)
{
    std::ostringstream text;
    text.precision(9);
    const auto velocities = closed(map.velocities);
    for (size_t k = 0; k < velocities.size(); ++k)
    {
        for (size_t i = place.offset; i < place.offset + place.length; ++i)
        {
            text << velocities[k] << " " << item.layout.distances_m[i] << " "
                 << map.levels[k % map.levels.size()][i] << "\n";
        }
        text << "\n";
    }
    return text.str();
}

/** The track: time, phase. Blank lines are gaps. */
std::string track_text(const item_analysis &analysis, bool only_saturated)
{
    std::ostringstream text;
    text.precision(9);
    for (const auto &point : analysis.track)
    {
        if (std::isnan(point.phase))
        {
            text << "\n";
        }
        else if (point.saturated || !only_saturated)
        {
            text << point.seconds << " " << point.phase << "\n";
        }
    }
    return text.str();
}

/** The times of saturated strips of the map. */
std::string saturated_text(const item_analysis &analysis)
{
    std::ostringstream text;
    text.precision(9);
    for (const auto &strip : analysis.map)
    {
        if (strip.saturated)
        {
            text << strip.seconds << "\n";
        }
    }
    return text.str();
}

/** The velocity spectrum: velocity, level. */
std::string spectrum_text(const velocity_spectrum &spectrum)
{
    std::ostringstream text;
    text.precision(9);
    const auto velocities = closed(spectrum.velocities);
    for (size_t k = 0; k < velocities.size(); ++k)
    {
        text << velocities[k] << " " << spectrum.levels[k % spectrum.levels.size()] << "\n";
    }
    return text.str();
}

} // namespace

void write_scratch_file(const std::filesystem::path &path, const std::string &text)
{
    std::ofstream file(path);
    file << text;
    file.close();
    require_written(!file.fail());
}

void write_panel_files(const std::filesystem::path &base, const recorded_item &item,
                       const item_analysis &analysis)
{
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        const auto &place = item.layout.subsweeps[i];
        if (place.length > 0)
        {
            const auto part = base.string() + "-" + std::to_string(i);
            write_scratch_file(part + ".level", level_text(item, analysis, place));
            write_scratch_file(part + ".map", map_text(item, analysis, i));
            write_scratch_file(part + ".velocities", velocity_text(item, analysis.velocities, place));
        }
    }
    write_scratch_file(base.string() + ".track", track_text(analysis, false));
    write_scratch_file(base.string() + ".saturated-track", track_text(analysis, true));
    write_scratch_file(base.string() + ".saturated", saturated_text(analysis));
    write_scratch_file(base.string() + ".spectrum", spectrum_text(analysis.spectrum));
}

} // namespace vantor
