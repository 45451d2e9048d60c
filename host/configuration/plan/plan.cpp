/** @file
 * The figures that follow from a configuration document.
 */
#include "vantor/plan.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "configuration/sensor_knowledge.h"
#include "vantor/configuration.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** The sub-sweeps of a "config"; it can be the only one itself. */
json list_subsweeps(const json &config)
{
    return config.contains("subsweeps") ? config["subsweeps"] : json::array({config});
}

/** A number of an object, or its default. */
double number(const json &object, const char *name)
{
    return member_or_default(object, name).get<double>();
}

/** A figure that depends on a member of an object. */
double figure_of(const char *figure, const json &object, const char *member)
{
    return sensor_figure(figure, member_or_default(object, member).get<std::string>());
}

/** Derives the distances of a sub-sweep. */
subsweep_plan plan_subsweep(const json &subsweep, double base_step, size_t offset)
{
    subsweep_plan result;
    result.offset = offset;
    result.points = static_cast<size_t>(number(subsweep, "num_points"));
    result.first_m = number(subsweep, "start_point") * base_step;
    result.step_m = number(subsweep, "step_length") * base_step;
    result.last_m = result.first_m + static_cast<double>(result.points - 1) * result.step_m;
    result.pulse_width_m = pulse_width(static_cast<int>(number(subsweep, "profile"))).value();
    result.unambiguous_m = figure_of("farthest_point", subsweep, "prf") * base_step;
    return result;
}

/** Duration of all sub-sweeps of a sweep, in microseconds. */
double sweep_duration(const json &config, bool high_speed_mode)
{
    const std::string mode = high_speed_mode ? "_high_speed" : "";
    const double setup = sensor_figure("setup_time" + mode);
    const double settling = sensor_figure("settling_pulses" + mode);
    double total = 0.0;
    for (const auto &subsweep : list_subsweeps(config))
    {
        const double pulses = number(subsweep, "num_points") * (number(subsweep, "hwaas") + settling);
        total += setup + pulses * 1.0e6 / figure_of("pulse_frequency", subsweep, "prf");
    }
    return total;
}

/** Period of a timer, in seconds. */
double timer_period(double rate)
{
    const double clock = sensor_figure("timer_clock");
    // The server uses the type float.
    return std::floor(clock / static_cast<float>(rate) + 0.5) / clock;
}

/** Derives mode, durations and rates of an item. */
void plan_times(item_plan &item, const json &document)
{
    const auto &config = document["config"];
    const bool continuous = member_or_default(config, "continuous_sweep_mode");
    const double sweep_wake = figure_of("wake_time", config, "inter_sweep_idle_state");
    item.high_speed_mode = item.subsweeps.size() == 1 && !continuous &&
                           member_or_default(config, "inter_sweep_idle_state") == "ready";
    const double sweep = sweep_duration(config, item.high_speed_mode);
    item.max_sweep_rate = 1.0e6 / (sweep + sweep_wake);
    item.sweep_rate = number(config, "sweep_rate");
    item.paced_sweeps = item.sweep_rate > 0.0;
    item.sweep_rate = item.paced_sweeps ? item.sweep_rate : item.max_sweep_rate;
    item.frame_rate = number(config, "frame_rate");
    const double frame_wake =
        continuous ? sweep_wake : figure_of("wake_time", config, "inter_frame_idle_state");
    const double assessment = document.value("cca_enable", false) ? sensor_figure("cca_time") : 0.0;
    const double period =
        std::max(item.paced_sweeps ? timer_period(item.sweep_rate) * 1.0e6 : 0.0, sweep + sweep_wake);
    item.sweep_s = sweep * 1.0e-6;
    item.frame_s = (frame_wake + assessment + static_cast<double>(item.sweeps - 1) * period + sweep) * 1.0e-6;
}

/** Derives the figures of an item. */
item_plan plan_item(const json &document, size_t group, size_t index)
{
    item_plan item;
    item.group = group;
    item.index = index;
    item.sensor_id = static_cast<unsigned>(
        std::min<double>(document["sensor_id"].get<double>(), std::numeric_limits<unsigned>::max()));
    item.base_step_m = sensor_figure("base_step");
    item.sweeps = static_cast<size_t>(number(document["config"], "sweeps_per_frame"));
    for (const auto &subsweep : list_subsweeps(document["config"]))
    {
        item.subsweeps.push_back(plan_subsweep(subsweep, item.base_step_m, item.sweep_length));
        item.sweep_length += item.subsweeps.back().points;
    }
    plan_times(item, document);
    return item;
}

/** The frame rate of a session: that of its sensors, otherwise that of the server; 0 if there is none. */
double configured_frame_rate(const json &document)
{
    const double of_sensors = sensor_frame_rate(document);
    return of_sensors > 0.0 ? of_sensors : paced_frame_rate(document);
}

/** Duration of a frame of all items: groups follow each other; sensors of a group measure together. */
double frame_duration(const std::vector<item_plan> &items)
{
    std::map<size_t, std::map<unsigned, double>> groups;
    for (const auto &item : items)
    {
        groups[item.group][item.sensor_id] += item.frame_s;
    }
    double total = 0.0;
    for (const auto &[group, sensors] : groups)
    {
        total += std::max_element(sensors.begin(), sensors.end(), [](const auto &left, const auto &right) {
                     return left.second < right.second;
                 })->second;
    }
    return total;
}

/** Length of the longest header of a frame, docs/protocol.md. */
size_t header_length(const json &document, size_t payload_bytes)
{
    static constexpr std::string_view always =
        R"({"tick":4294967295,"data_saturated":false,"temperature":-32768,"calibration_needed":false,)"
        R"("frame_delayed":false},)";
    static constexpr std::string_view with_assessment = R"("data_valid":false,)";
    static constexpr std::string_view with_details =
        R"("cca_value":-3.40282347e+38,"cca_detected":false,"tx_enabled":false,)";
    size_t length = std::string_view(R"({"result_info":[],"status":"ok","payload_size":})").size() +
                    std::to_string(payload_bytes).size() + 1;
    for (const auto &group : document.value("groups", json::array()))
    {
        length += std::string_view("[],").size();
        for (const auto &item : group)
        {
            const bool assessed = item.value("cca_enable", false);
            length += always.size() + (assessed ? with_assessment.size() : 0) +
                      (assessed && item.value("cca_debug", false) ? with_details.size() : 0);
        }
    }
    return length;
}

/** Heap that a session needs while it measures. */
size_t session_memory(const std::vector<item_plan> &items, size_t payload_bytes)
{
    std::set<unsigned> sensors;
    for (const auto &item : items)
    {
        sensors.insert(item.sensor_id);
    }
    return payload_bytes +
           static_cast<size_t>(static_cast<double>(sensors.size()) * sensor_figure("sensor_memory") +
                               static_cast<double>(items.size()) * sensor_figure("item_memory"));
}

/** A bound with few digits, so that it can be printed, and a little lower, so that it is surely allowed. */
double rounded_down(double bound)
{
    const double scale = std::pow(10.0, 5.0 - std::floor(std::log10(bound)));
    return std::floor(bound * scale) / scale;
}

/** Describes a rate that is too high. */
configuration_fault too_high(const std::string &place, const json &got, double bound,
                             const std::string &reason)
{
    const double nearest = rounded_down(bound);
    return {place, got.dump(), "at most " + json(nearest).dump() + ": " + reason, nearest};
}

/** Finds the rates of an item that the sensor cannot reach. */
void find_impossible_rates(session_plan &session, const item_plan &item, const json &document)
{
    const auto place = json::json_pointer("/groups") / item.group / item.index / "config";
    const auto &config = document[place];
    if (item.sweep_rate > item.max_sweep_rate)
    {
        session.impossible_rates.push_back(too_high((place / "sweep_rate").to_string(), config["sweep_rate"],
                                                    item.max_sweep_rate,
                                                    "a sweep takes longer with these points"));
    }
    if (item.frame_rate > 0.0 && timer_period(item.frame_rate) < item.frame_s)
    {
        const double clock = sensor_figure("timer_clock");
        session.impossible_rates.push_back(too_high((place / "frame_rate").to_string(), config["frame_rate"],
                                                    clock / (std::floor(item.frame_s * clock) + 1.0),
                                                    "a frame takes longer with these points and sweeps"));
    }
}

/** Finds the rates that are too high. */
void find_rates(session_plan &session, const json &document)
{
    for (const auto &item : session.items)
    {
        find_impossible_rates(session, item, document);
    }
    const char *name = document.contains("max_update_rate") ? "max_update_rate" : "update_rate";
    const double highest = lasting_frame_rate(session, std::nullopt);
    if (document.value(name, 0.0) > highest && !session.items.empty())
    {
        session.doubts.push_back(too_high(std::string("/") + name, document[name], highest,
                                          "a frame that is not measured, read out and sent within the period "
                                          "makes the server leave out the next one"));
    }
}

} // namespace

std::optional<double> item_plan::greatest_velocity() const
{
    return sweeps > 1 ? std::optional(velocity_bound(sweep_rate)) : std::nullopt;
}

std::optional<double> item_plan::smallest_velocity() const
{
    return sweeps > 1 ? std::optional(2.0 * velocity_bound(sweep_rate) / static_cast<double>(sweeps))
                      : std::nullopt;
}

double session_plan::expected_frame_rate() const noexcept
{
    if (!(frame_rate > 0.0) || !(max_frame_rate > 0.0))
    {
        return max_frame_rate;
    }
    // A server that is late leaves out whole frames.
    constexpr double rounding_error = 1e-6;
    return frame_rate / std::max(1.0, std::ceil(frame_rate / max_frame_rate - rounding_error));
}

session_plan plan(const json &document)
{
    session_plan session;
    const auto groups = document.value("groups", json::array());
    size_t group_index = 0;
    for (const auto &group : groups)
    {
        for (size_t index = 0; index < group.size(); ++index)
        {
            session.items.push_back(plan_item(group[index], group_index, index));
            const auto samples = static_cast<double>(session.items.back().frame_length());
            session.payload_bytes += static_cast<size_t>(samples * sensor_figure("sample_bytes"));
        }
        ++group_index;
    }
    const double duration = frame_duration(session.items);
    session.max_frame_rate = duration > 0.0 ? 1.0 / duration : 0.0;
    session.frame_rate = configured_frame_rate(document);
    session.header_bytes = header_length(document, session.payload_bytes);
    session.memory_bytes = session_memory(session.items, session.payload_bytes);
    find_rates(session, document);
    if (session.items.empty())
    {
        session.doubts.push_back(
            {"/groups",
             "empty",
             "at least one item: without one, nothing is measured, and \"vantor record\" "
             "refuses the document",
             {}});
    }
    return session;
}

double lasting_frame_rate(const session_plan &session, std::optional<double> baudrate)
{
    const double measuring = 1.0 / (session.max_frame_rate * measuring_share);
    return 1.0 / (measuring + (baudrate ? 1.0 / link_frame_rate(session, *baudrate) : 0.0));
}

double link_frame_rate(const session_plan &session, double baudrate)
{
    // A byte takes ten bits: a start bit, eight data bits and a stop bit.
    return baudrate / 10.0 / static_cast<double>(session.frame_bytes());
}

} // namespace vantor
