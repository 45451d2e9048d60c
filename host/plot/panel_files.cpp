/** @file
 * The files with the figures that gnuplot draws.
 */
#include "plot/panel_files.h"

#include <algorithm>
#include <cmath>
#include <fstream>

#include "plot/distance_bins.h"
#include "plot/scratch_directory.h"
#include "plot/sensor_scale.h"

namespace vantor
{
namespace
{

/** Opens a text file for figures, and checks that it was written. */
class scratch_file
{
public:
    explicit scratch_file(const std::filesystem::path &path) : file_(path)
    {
        file_.precision(9);
    }

    /** Writes something. */
    template <typename value_t> scratch_file &operator<<(const value_t &value)
    {
        file_ << value;
        return *this;
    }

    /** Ends the file; throws recording_error if the disk is full. */
    void close()
    {
        file_.close();
        require_written(!file_.fail());
    }

private:
    std::ofstream file_;
};

/** Writes the mean level of each point: distance, level. */
void write_levels(const std::filesystem::path &path, const recorded_item &item, const item_analysis &analysis,
                  const subsweep_layout &place)
{
    scratch_file file(path);
    for (size_t i = place.offset; i < place.offset + place.length; ++i)
    {
        file << item.layout.distances_m[i] << " " << dbfs(analysis.profile[i]) << "\n";
    }
    file.close();
}

/** Writes a strip of the map: time, distance, level. NaN leaves a gap. */
void write_strip(scratch_file &file, double time, const map_strip &strip, const distance_bins &bins,
                 size_t subsweep)
{
    const size_t count = bins.count(subsweep);
    // The field of the last bin ends where the next one would begin.
    for (size_t bin = 0; bin <= count; ++bin)
    {
        const size_t place = bins.first(subsweep) + std::min(bin, count - 1);
        const double level = strip.levels.empty() ? std::nan("") : dbfs(strip.levels[place]);
        file << time << " " << bins.begin(subsweep, bin) << " " << level << "\n";
    }
    file << "\n";
}

/** Writes the map of a sub-sweep. */
void write_map(const std::filesystem::path &path, const level_map &map, const distance_bins &bins,
               size_t subsweep)
{
    scratch_file file(path);
    double time = 0.0;
    for (const auto &strip : map.strips)
    {
        write_strip(file, time, strip, bins, subsweep);
        time += map.width;
    }
    // The field of the last strip ends one strip later.
    write_strip(file, time, map.strips.back(), bins, subsweep);
    file.close();
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

/** Writes the velocity map of a sub-sweep: velocity, distance, level. */
void write_velocities(const std::filesystem::path &path, const velocity_map &map, const distance_bins &bins,
                      size_t subsweep)
{
    scratch_file file(path);
    const auto velocities = closed(map.velocities);
    for (size_t k = 0; k < velocities.size(); ++k)
    {
        for (size_t bin = 0; bin < bins.count(subsweep); ++bin)
        {
            const double centre = (bins.begin(subsweep, bin) + bins.begin(subsweep, bin + 1)) / 2.0;
            file << velocities[k] << " " << centre << " "
                 << map.levels[k % map.levels.size()][bins.first(subsweep) + bin] << "\n";
        }
        file << "\n";
    }
    file.close();
}

/** Writes the track: time, phase. Blank lines are gaps. */
void write_track(const std::filesystem::path &path, const item_analysis &analysis, bool only_saturated)
{
    scratch_file file(path);
    for (const auto &point : analysis.track)
    {
        if (std::isnan(point.phase))
        {
            file << "\n";
        }
        else if (point.saturated || !only_saturated)
        {
            file << point.time << " " << point.phase << "\n";
        }
    }
    file.close();
}

/** Writes the times of saturated strips of the map. */
void write_saturated(const std::filesystem::path &path, const level_map &map)
{
    scratch_file file(path);
    double centre = map.width / 2.0;
    for (const auto &strip : map.strips)
    {
        if (strip.saturated)
        {
            file << centre << "\n";
        }
        centre += map.width;
    }
    file.close();
}

/** Writes the true distances of all targets: time, distance. Blank lines are between targets. */
void write_truth(const std::filesystem::path &path, const std::vector<truth_track> &tracks)
{
    scratch_file file(path);
    for (const auto &track : tracks)
    {
        for (const auto &point : track.points)
        {
            file << point.time << " " << point.distance << "\n";
        }
        file << "\n\n";
    }
    file.close();
}

/** Writes the velocity spectrum: velocity, level. */
void write_spectrum(const std::filesystem::path &path, const velocity_spectrum &spectrum)
{
    scratch_file file(path);
    const auto velocities = closed(spectrum.velocities);
    for (size_t k = 0; k < velocities.size(); ++k)
    {
        file << velocities[k] << " " << spectrum.levels[k % spectrum.levels.size()] << "\n";
    }
    file.close();
}

} // namespace

void write_scratch_file(const std::filesystem::path &path, const std::string &text)
{
    scratch_file file(path);
    file << text;
    file.close();
}

void write_panel_files(const std::filesystem::path &base, const recorded_item &item,
                       const item_analysis &analysis)
{
    const distance_bins bins(item);
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        const auto &place = item.layout.subsweeps[i];
        if (place.length > 0)
        {
            const auto part = base.string() + "-" + std::to_string(i);
            write_levels(part + ".level", item, analysis, place);
            write_map(part + ".map", analysis.map, bins, i);
            write_velocities(part + ".velocities", analysis.velocities, bins, i);
        }
    }
    write_track(base.string() + ".track", analysis, false);
    write_track(base.string() + ".saturated-track", analysis, true);
    write_saturated(base.string() + ".saturated", analysis.map);
    write_truth(base.string() + ".truth", analysis.truth);
    write_spectrum(base.string() + ".spectrum", analysis.spectrum);
}

} // namespace vantor
