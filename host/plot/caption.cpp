/** @file
 * The texts in the pictures of a recording.
 */
#include "plot/caption.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "plot/sensor_scale.h"
#include "recording/number_text.h"
#include "recording/utc_text.h"

namespace vantor
{
namespace
{

/** Separates two parts of a caption. */
constexpr const char *separator = "  ·  ";

/** The settings of all sub-sweeps: "profile 3", or "profile 1/3/5" if they differ. */
std::string setting_text(const recorded_item &item, const char *title, const char *name)
{
    std::string text;
    bool different = false;
    const auto count = item.configuration.subsweeps.size();
    for (size_t i = 0; i < count; ++i)
    {
        const int value = subsweep_setting(item, i, name);
        different = different || value != subsweep_setting(item, 0, name);
        text += text.empty() ? "" : "/";
        text += std::to_string(value);
    }
    return std::string(title) + " " + (different ? text : text.substr(0, text.find('/')));
}

/** A rate with the velocity bound that follows from it. */
std::string rate_with_bound(double rate, const char *unit)
{
    return three_digits(rate) + " " + unit + " (±" + three_digits(velocity_bound(rate)) + " m/s)";
}

/** A velocity with its sign. */
std::string velocity_text(double velocity)
{
    auto text = std::string(velocity < 0.0 ? "" : "+");
    text += three_digits(velocity);
    return text + " m/s";
}

/** In how many frames something is true. */
std::string share_text(double share)
{
    return " in " + (share < 0.01 ? "less than 1" : fixed(100.0 * share, 0)) + " % of the frames";
}

/** Explains what a picture shows instead of frames that are missing or not valid. */
std::string describe_interruptions(const item_analysis &analysis)
{
    if (analysis.gaps + analysis.figures.channel.invalid == 0)
    {
        return {};
    }
    const auto &spectrum = analysis.spectrum;
    const auto &strips = analysis.map.strips;
    const bool white =
        std::any_of(strips.begin(), strips.end(), [](const auto &strip) { return strip.levels.empty(); });
    auto text = std::string(separator) + (white ? "white: no valid frame; displacement begins at 0 after it"
                                                : "displacement begins at 0 after a gap");
    if (spectrum.between_frames && !spectrum.levels.empty())
    {
        text += std::string(separator) + "velocities from " + std::to_string(spectrum.segments) + " × " +
                std::to_string(spectrum.segment_length) + " consecutive frames";
    }
    return text;
}

} // namespace

std::string item_title(const recorded_item &item)
{
    return "Sensor " + std::to_string(item.configuration.sensor_id) + " (group " +
           std::to_string(item.layout.group + 1) + ", item " + std::to_string(item.layout.index + 1) + ")";
}

std::string describe_recording(const recording_reader &recording, const time_figures &times)
{
    constexpr size_t to_seconds = 19;
    constexpr double milliseconds = 1e3;
    auto date = recording.captures().front().datetime.substr(0, to_seconds);
    std::string text;
    if (times.first)
    {
        date = exact_utc_text(times.first->utc.moment);
        date.pop_back();
        const auto bound = std::chrono::duration<double>(times.largest_bound).count();
        text = " ± " + three_digits(bound * milliseconds) + " ms";
    }
    std::replace(date.begin(), date.end(), 'T', ' ');
    return (date.empty() ? "" : date + " UTC" + text + separator) + "sensor " +
           recording.session().server.sensor + separator + counted(recording.frames(), "frame") + separator +
           "0 dBFS is amplitude 32767";
}

std::string describe_settings(const recorded_item &item, const item_analysis &analysis)
{
    std::string text = setting_text(item, "profile", "profile") + separator +
                       setting_text(item, "gain", "receiver_gain") + separator +
                       setting_text(item, "hwaas", "hwaas") + separator;
    const auto sweeps = item.layout.sweeps();
    text += std::to_string(sweeps) + (sweeps == 1 ? " sweep per frame" : " sweeps per frame");
    if (sweeps > 1)
    {
        text += " at " + rate_with_bound(sweep_rate(item), "Hz");
    }
    return analysis.time.rate > 0.0 ? text + separator + rate_with_bound(analysis.time.rate, "frames/s")
                                    : text;
}

std::string place_name(const recorded_item &item, size_t point)
{
    const double distance = item.layout.distances_m.at(point);
    return std::isfinite(distance) ? fixed(distance, 3) + " m" : "point " + std::to_string(point);
}

std::string level_name(const recorded_item &item, const item_analysis &analysis)
{
    if (!analysis.noise_known)
    {
        return "noise unknown: too few sweeps";
    }
    if (!analysis.above_noise)
    {
        const std::string none = "no echo above the noise";
        return analysis.given ? none + " at " + place_name(item, analysis.point)
                              : none + (analysis.motion ? " on average" : "");
    }
    const std::string saturated = analysis.clipped ? " (saturated)" : "";
    if (analysis.found)
    {
        const auto distance = fixed(analysis.distance, 3) + " m";
        const auto nearest = place_name(item, analysis.point);
        const bool same = analysis.clipped || nearest == distance;
        return "strongest echo at " + distance + (same ? saturated : " (nearest point " + nearest + ")");
    }
    const auto place = (analysis.given ? "echo at " : "highest level at ") + place_name(item, analysis.point);
    return place + (analysis.given && analysis.mostly_noise ? share_text(analysis.share) : "") + saturated;
}

std::string describe_echo(const recorded_item &item, const item_analysis &analysis)
{
    std::string text = level_name(item, analysis);
    if (analysis.motion)
    {
        text = (analysis.rests ? text + separator : std::string()) +
               "the strongest moving echo was found between " + fixed(analysis.motion->nearest, 2) +
               " m and " + fixed(analysis.motion->farthest, 2) + " m";
    }
    text += describe_interruptions(analysis);
    return analysis.figures.saturated > 0 ? text + separator + "red dots: saturated" : text;
}

std::string joined(const std::vector<std::string> &lines)
{
    // A line of the smallest page has place for about 290 characters.
    constexpr size_t longest = 240;
    std::string text;
    size_t count = 0;
    while (count < lines.size() && (count == 0 || text.size() + lines[count].size() < longest))
    {
        text += (text.empty() ? "" : separator) + lines[count++];
    }
    const auto rest = lines.size() - count;
    return rest > 0 ? text + separator + "and " + std::to_string(rest) + " more" : text;
}

std::vector<std::string> aliasing_warnings(const item_analysis &analysis)
{
    std::vector<std::string> lines;
    if (analysis.alias)
    {
        const auto &[velocity, bound, shown] = *analysis.alias;
        lines.push_back(
            "aliased: an echo moves at about " + velocity_text(velocity) + ", beyond ±" +
            three_digits(bound) + " m/s" +
            (shown ? ", and is shown at " + velocity_text(*shown) + " between sweeps" : " between frames"));
    }
    if (analysis.aliased)
    {
        lines.push_back("the motion is too fast for " + three_digits(analysis.time.rate) +
                        " frames/s: displacement, and velocity between frames, are ambiguous beyond ±" +
                        three_digits(velocity_bound(analysis.time.rate)) + " m/s");
    }
    return lines;
}

} // namespace vantor
