/** @file
 * Describes a recording as JSON.
 */
#include "commands/info_document.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "configuration/optional_members.h"
#include "plot/echo_search.h"
#include "recording/repair.h"
#include "recording/sigmf.h"
#include "recording/stream_facts.h"
#include "recording/utc_text.h"
#include "vantor/board_clock.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

/** Frames per second that were due; 0 if unknown. */
double nominal_rate(const session_description &session)
{
    return nominal_frame_rate(session.configuration, session.metadata, session.server);
}

/** The distances of a sub-sweep, as far as they are known. */
ordered_json describe_range(const recorded_item &item, size_t subsweep)
{
    const auto &place = item.layout.subsweeps[subsweep];
    ordered_json range = {{"points", place.length}};
    if (place.length > 0 && subsweep < item.configuration.subsweeps.size())
    {
        range["start_m"] = item.layout.distances_m[place.offset];
        range["end_m"] = item.layout.distances_m[place.offset + place.length - 1];
        range["step_m"] = item.configuration.subsweeps[subsweep].step_length * item.layout.base_step_length_m;
    }
    return range;
}

/** The distances of all sub-sweeps. */
ordered_json describe_ranges(const recorded_item &item)
{
    auto list = ordered_json::array();
    for (size_t i = 0; i < item.layout.subsweeps.size(); ++i)
    {
        list.push_back(describe_range(item, i));
    }
    return list;
}

/** The totals of the clear-channel assessment; null if it was not enabled. */
ordered_json describe_channel(const channel_figures &channel)
{
    if (channel.valid + channel.invalid == 0)
    {
        return nullptr;
    }
    ordered_json totals = {{"frames_valid", channel.valid},
                           {"frames_not_valid", channel.invalid},
                           {"frames_with_detection", channel.detected}};
    if (channel.values > 0)
    {
        totals["value"] = {{"lowest", channel.lowest},
                           {"mean", channel.sum / static_cast<double>(channel.values)},
                           {"highest", channel.highest}};
    }
    return totals;
}

/** Rate, distances, levels and configuration of an item. */
void add_measurement(ordered_json &entry, const recording_check &check, size_t index)
{
    const auto &item = check.documents.items[index];
    const auto &found = check.items[index];
    const auto strongest = find_strongest_echo(item, found.level);
    const auto level = found.level.mean_level();
    entry["frame_rate"] = or_null(nominal_rate(check.documents.session));
    entry["measured_frame_rate"] = or_null(measured_frame_rate(check.frames, found.figures.seconds));
    entry["sweep_rate"] = or_null(item.configuration.sweep_rate);
    entry["max_sweep_rate"] = item.layout.max_sweep_rate;
    entry["high_speed_mode"] = item.layout.high_speed_mode;
    entry["ranges"] = describe_ranges(item);
    entry["mean_level"] = level ? ordered_json(*level) : ordered_json();
    entry["strongest_echo_m"] = strongest.distance ? ordered_json(*strongest.distance) : ordered_json();
    entry["strongest_echo_note"] = strongest.note.empty() ? ordered_json() : ordered_json(strongest.note);
    entry["channel"] = describe_channel(found.figures.channel);
    entry["calibration_temperature"] = item.layout.calibration_temperature;
    entry["configuration"] = item.configuration.document;
}

/** Describes one item. */
ordered_json describe_item(const recording_check &check, size_t index)
{
    const auto &item = check.documents.items[index];
    const auto &found = check.items[index];
    const auto &figures = found.figures;
    ordered_json entry = {{"name", item.name},
                          {"group", item.layout.group + 1},
                          {"item", item.layout.index + 1},
                          {"sensor_id", item.configuration.sensor_id},
                          {"subsweeps", item.layout.subsweeps.size()},
                          {"samples_per_frame", item.layout.frame_length},
                          {"sweeps_per_frame", item.layout.sweeps()},
                          {"seconds", figures.seconds},
                          {"frames_saturated", figures.saturated},
                          {"frames_delayed", figures.delayed},
                          {"frames_with_calibration_needed", figures.calibration_needed},
                          {"frames_missing", check.missing}};
    if (figures.lowest_temperature <= figures.highest_temperature)
    {
        entry["temperature"] = {figures.lowest_temperature, figures.highest_temperature};
    }
    add_measurement(entry, check, index);
    return entry;
}

/** When the first frame arrived; null if unknown. */
ordered_json start_time(const std::vector<capture> &captures)
{
    const auto &started = captures.front().datetime;
    return started.empty() ? ordered_json() : ordered_json(started);
}

/** Whether all times by the server's clock follow from it: it did not start again. */
bool has_one_clock(const recording_check &check)
{
    return check.unlisted_breaks == 0 &&
           std::none_of(check.captures.begin(), check.captures.end(), [](const capture &part) {
               return part.begins && part.begins->reason == connected_again;
           });
}

/**
 * How much faster the server's clock runs than that of the host, in ppm: the least and the most that the
 * times of the first and the last frame allow. Null if they allow nearly anything.
 */
ordered_json describe_drift(const time_figures &times)
{
    constexpr double ppm = 1e6;
    constexpr double most_uncertainty = 1e-3;
    const auto seconds_of = [](std::chrono::nanoseconds span) {
        return std::chrono::duration<double>(span).count();
    };
    const double elapsed = seconds_of(times.last->utc.moment - times.first->utc.moment);
    const double error = seconds_of(times.first->utc.bound + times.last->utc.bound);
    const double shown = times.last->seconds - times.first->seconds;
    if (!(error < most_uncertainty * elapsed))
    {
        return nullptr;
    }
    const double least = (shown / (elapsed + error) - 1.0) * ppm;
    const double most = (shown / (elapsed - error) - 1.0) * ppm;
    // All times assume this limit.
    constexpr double limit = most_drift * ppm;
    const bool possible = least <= limit && most >= -limit;
    return possible ? ordered_json{std::max(least, -limit), std::min(most, limit)}
                    : ordered_json{least, most};
}

/** When the frames were measured, in UTC, by the first item; null if that is not known. */
ordered_json describe_times(const recording_check &check)
{
    if (check.items.empty() || !check.items.front().figures.times.first)
    {
        return nullptr;
    }
    const auto &times = check.items.front().figures.times;
    const auto bound = std::chrono::duration<double>(times.largest_bound).count();
    return {{"first_utc", exact_utc_text(times.first->utc.moment)},
            {"last_utc", exact_utc_text(times.last->utc.moment)},
            {"largest_bound_s", bound},
            {"frames_unknown", times.unknown},
            {"clock_drift_ppm", has_one_clock(check) ? describe_drift(times) : ordered_json()}};
}

/** Adds the calibrations of a segment to a list, one for each sensor. */
void add_calibrations(const recording_documents &documents, const capture &part, ordered_json &list)
{
    std::set<unsigned> sensors;
    for (size_t i = 0; i < documents.items.size(); ++i)
    {
        const auto sensor = documents.items[i].configuration.sensor_id;
        if (sensors.insert(sensor).second)
        {
            list.push_back({{"sensor_id", sensor},
                            {"temperature", part.begins->calibration_temperatures.at(i)},
                            {"first_frame", part.first_frame}});
        }
    }
}

/** The calibrations that were used: at the start, and after each break. */
ordered_json describe_calibrations(const recording_check &check)
{
    auto list = ordered_json::array();
    for (const auto &used : check.documents.session.metadata.calibrations)
    {
        list.push_back(
            {{"sensor_id", used.sensor_id}, {"temperature", used.temperature}, {"first_frame", 0}});
    }
    for (const auto &part : check.captures)
    {
        if (part.begins)
        {
            add_calibrations(check.documents, part, list);
        }
    }
    return list;
}

/** The breaks that are listed: why and for how long. */
ordered_json describe_breaks(const recording_check &check)
{
    auto breaks = ordered_json::array();
    for (const auto &part : check.captures)
    {
        if (part.begins)
        {
            breaks.push_back({{"reason", part.begins->reason},
                              {"seconds", part.begins->gap},
                              {"first_frame", part.first_frame}});
        }
    }
    return breaks;
}

/** Why the recording cannot be completed; null if it can, or is complete. */
ordered_json describe_obstacle(const recording_check &check)
{
    const bool is_complete = check.finished && check.faults.empty();
    const auto obstacle = is_complete ? std::nullopt : repair_obstacle(check);
    return obstacle ? ordered_json(*obstacle) : ordered_json();
}

/** The truth of simulated sensors: the scene, and for how many frames it is known; null if there is none. */
ordered_json describe_truth(const recording_check &check)
{
    if (!check.truth)
    {
        return nullptr;
    }
    ordered_json about = check.documents.session.truth;
    about["frames"] = check.truth->frames;
    return about;
}

/** What is known about the frames. */
stream_facts facts_of(const recording_check &check)
{
    auto facts = recording_facts(check.documents.session, check.frames, check.missing, check.captures);
    facts.unlisted_breaks = check.unlisted_breaks;
    for (size_t i = 0; i < check.items.size(); ++i)
    {
        facts.items.push_back(flags_of(check.documents.items[i].layout, check.items[i].figures));
    }
    return facts;
}

} // namespace

ordered_json to_json(const recording_check &check)
{
    const auto &documents = check.documents;
    auto items = ordered_json::array();
    for (size_t i = 0; i < documents.items.size(); ++i)
    {
        items.push_back(describe_item(check, i));
    }
    ordered_json about = {{"recording", documents.directory.string()},
                          {"started", start_time(check.captures)},
                          {"complete", check.finished && check.faults.empty()},
                          {"frames", check.frames}};
    about["times"] = describe_times(check);
    about["frames_recorded"] = check.recorded ? ordered_json(*check.recorded) : ordered_json();
    about["damage"] = check.faults;
    about["in_progress"] = check.in_progress;
    about["repair_obstacle"] = describe_obstacle(check);
    about["repaired"] = !documents.collection.is_null() && documents.collection.contains("vantor:repaired");
    about["frames_missing"] = check.missing;
    about["breaks"] = describe_breaks(check);
    about["breaks_not_listed"] = check.unlisted_breaks;
    about["warnings"] = describe_warnings(facts_of(check));
    about["sensor"] = documents.session.server.sensor;
    about["server_version"] = documents.session.server.server_version;
    about["source"] = documents.session.source;
    about["truth"] = describe_truth(check);
    about["calibrations"] = describe_calibrations(check);
    about["items"] = std::move(items);
    return about;
}

} // namespace vantor
