/** @file
 * The rules of a configuration document that tie several of its members together.
 */
#include "check/configuration_rules.h"

#include <array>
#include <cmath>
#include <map>
#include <sstream>
#include <string>

namespace vantor
{
namespace
{

using nlohmann::json;
using pointer = json::json_pointer;
using faults = std::vector<configuration_fault>;

/** Most samples that a frame can have. */
constexpr long most_samples = 16383;

/** Relative difference up to which two rates count as equal. */
constexpr double rate_tolerance = 1.0e-3;

/** Length of a base step, in metres. */
constexpr double base_step_m = 0.0025;

/** The words of a sub-sweep's pulse repetition frequency, in hertz. */
const std::map<std::string, double> pulse_frequencies = {{"19_5_MHz", 78.0e6 / 4}, {"15_6_MHz", 78.0e6 / 5},
                                                         {"13_0_MHz", 78.0e6 / 6}, {"8_7_MHz", 78.0e6 / 9},
                                                         {"6_5_MHz", 78.0e6 / 12}, {"5_2_MHz", 78.0e6 / 15}};

/** The idle states, from the deepest. */
const std::map<std::string, int> idle_states = {{"deep_sleep", 0}, {"sleep", 1}, {"ready", 2}};

constexpr std::array subsweep_members = {"start_point",
                                         "num_points",
                                         "step_length",
                                         "profile",
                                         "hwaas",
                                         "receiver_gain",
                                         "enable_tx",
                                         "enable_loopback",
                                         "prf",
                                         "phase_enhancement",
                                         "iq_imbalance_compensation"};

/** The farthest point whose echo comes before the next pulse, c / (2 PRF), in base steps. */
long farthest_point(const std::string &prf)
{
    constexpr double speed_of_light = 299792458.0;
    return static_cast<long>(speed_of_light / (2.0 * pulse_frequencies.at(prf) * base_step_m));
}

/** A number as text, without needless digits. */
std::string to_text(double value)
{
    std::ostringstream text;
    text << value;
    return text.str();
}

/** Reads a whole number that may be written with a fraction of zero. */
long integer(const json &object, const char *name, long otherwise)
{
    return static_cast<long>(object.value(name, static_cast<double>(otherwise)));
}

/** Sub-sweep members stand in one place. */
void check_double_subsweeps(const json &config, const pointer &place, faults &found)
{
    if (!config.contains("subsweeps"))
    {
        return;
    }
    for (const char *name : subsweep_members)
    {
        if (config.contains(name))
        {
            found.push_back({(place / name).to_string(), config[name].dump(),
                             "not beside \"subsweeps\": move it into the objects there", ""});
        }
    }
}

/** A sub-sweep ends before the echo of the pulse before comes in. */
void check_distance(const json &subsweep, const pointer &place, faults &found)
{
    const long start = integer(subsweep, "start_point", 80);
    const long step = integer(subsweep, "step_length", 1);
    const long points = integer(subsweep, "num_points", 160);
    const long last = start + (points - 1) * step;
    const long farthest = farthest_point(subsweep.value("prf", "15_6_MHz"));
    if (last > farthest)
    {
        const std::string nearest =
            start > farthest ? "\"start_point\": " + std::to_string(farthest) + ", \"num_points\": 1"
                             : "\"num_points\": " + std::to_string((farthest - start) / step + 1);
        found.push_back({place.to_string(), "a last point of " + std::to_string(last),
                         "at most " + std::to_string(farthest) +
                             " with this \"prf\": lower \"prf\", or use fewer "
                             "points",
                         nearest});
    }
}

/** A frame does not have too many samples. */
void check_frame_length(const json &config, const pointer &place, faults &found)
{
    long points = 0;
    for (const auto &subsweep : config.value("subsweeps", json::array({config})))
    {
        points += integer(subsweep, "num_points", 160);
    }
    const long sweeps = integer(config, "sweeps_per_frame", 1);
    if (points * sweeps > most_samples)
    {
        const long fitting = most_samples / points;
        found.push_back(
            {place.to_string(), std::to_string(points) + " points in " + std::to_string(sweeps) + " sweeps",
             "at most " + std::to_string(most_samples) + " samples (points times sweeps) in a frame",
             fitting > 0 ? "\"sweeps_per_frame\": " + std::to_string(fitting) : ""});
    }
}

/** The sensor does not sleep deeper between sweeps than between frames. */
void check_idle_states(const json &config, const pointer &place, faults &found)
{
    const std::string between_frames = config.value("inter_frame_idle_state", "deep_sleep");
    const std::string between_sweeps = config.value("inter_sweep_idle_state", "ready");
    if (idle_states.at(between_sweeps) < idle_states.at(between_frames))
    {
        found.push_back({(place / "inter_sweep_idle_state").to_string(), '"' + between_sweeps + '"',
                         "not deeper than \"inter_frame_idle_state\", which is \"" + between_frames + '"',
                         '"' + between_frames + '"'});
    }
}

/** Continuous sweeps need rates that agree. */
void check_continuous_sweeps(const json &config, const pointer &place, faults &found)
{
    if (!config.value("continuous_sweep_mode", false))
    {
        return;
    }
    const double sweeps = config.value("sweeps_per_frame", 1.0);
    const double needed = config.value("frame_rate", 0.0) * sweeps;
    const double given = config.value("sweep_rate", 0.0);
    if (needed <= 0.0)
    {
        found.push_back({(place / "continuous_sweep_mode").to_string(), "true",
                         "only with a \"frame_rate\" above 0", "false"});
    }
    else if (std::fabs(given - needed) > rate_tolerance * needed)
    {
        found.push_back({(place / "sweep_rate").to_string(), to_text(given),
                         "\"frame_rate\" times \"sweeps_per_frame\", because of \"continuous_sweep_mode\"",
                         to_text(needed)});
    }
}

/** A frame rate stands alone: one group, no update rate. */
void check_frame_rate(const json &document, const json &config, const pointer &place, faults &found)
{
    const double rate = config.value("frame_rate", 0.0);
    if (rate == 0.0)
    {
        return;
    }
    const auto where = (place / "frame_rate").to_string();
    if (document["groups"].size() > 1)
    {
        found.push_back({where, to_text(rate),
                         "only in a session of one group; pace several groups with \"max_update_rate\"",
                         "0"});
    }
    for (const char *name : {"max_update_rate", "update_rate"})
    {
        if (document.contains(name))
        {
            found.push_back({where, to_text(rate), std::string("not together with \"") + name + '"', "0"});
        }
    }
}

/** The rules of one item's configuration. */
void check_config(const json &document, const json &config, const pointer &place, faults &found)
{
    check_double_subsweeps(config, place, found);
    if (config.contains("subsweeps"))
    {
        for (std::size_t i = 0; i < config["subsweeps"].size(); ++i)
        {
            check_distance(config["subsweeps"][i], place / "subsweeps" / i, found);
        }
    }
    else
    {
        check_distance(config, place, found);
    }
    check_frame_length(config, place, found);
    check_idle_states(config, place, found);
    check_continuous_sweeps(config, place, found);
    check_frame_rate(document, config, place, found);
}

} // namespace

std::vector<configuration_fault> check_rules(const json &document)
{
    faults found;
    const auto groups = document.value("groups", json::array());
    for (std::size_t group = 0; group < groups.size(); ++group)
    {
        for (std::size_t item = 0; item < groups[group].size(); ++item)
        {
            check_config(document, groups[group][item]["config"],
                         pointer("/groups") / group / item / "config", found);
        }
    }
    return found;
}

} // namespace vantor
