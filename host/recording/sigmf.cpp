/** @file
 * The SigMF documents of a recording.
 */
#include "recording/sigmf.h"

#include <algorithm>
#include <cmath>

#include "configuration/sensor_knowledge.h"
#include "vantor/configuration.h"
#include "version.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

/** The version of the SigMF standard that the documents follow. */
constexpr const char *sigmf_version = "1.2.5";

/** The lowest sample rate that the standard can express, in hertz. */
constexpr double lowest_sample_rate = 1.0;

/** Bytes of samples that are written at once, if frames are shorter: enough to make calls of the system
 * cheap. */
constexpr uint64_t block_bytes = 16384;

/** The declaration of the vantor namespace, which readers need not support. */
ordered_json extensions()
{
    return ordered_json::array({{{"name", "vantor"}, {"version", extension_version}, {"optional", true}}});
}

/** The position and distances of an item's sub-sweeps. */
ordered_json describe_subsweeps(const item_layout &layout, const item_configuration &item)
{
    auto list = ordered_json::array();
    for (size_t i = 0; i < layout.subsweeps.size(); ++i)
    {
        const auto &place = layout.subsweeps[i];
        ordered_json entry = {{"offset", place.offset}, {"length", place.length}};
        if (i < item.subsweeps.size())
        {
            const auto &range = item.subsweeps[i];
            entry["start_m"] = range.start_point * layout.base_step_length_m;
            entry["step_m"] = range.step_length * layout.base_step_length_m;
            if (const auto width = pulse_width(range.profile))
            {
                entry["pulse_width_m"] = *width;
            }
        }
        list.push_back(std::move(entry));
    }
    return list;
}

/** Sets a member, or removes it if there is no value. */
void set_member(ordered_json &members, const char *name, bool present, const ordered_json &value)
{
    members.erase(name);
    if (present)
    {
        members[name] = value;
    }
}

/** Sets the members of an item's document that depend on the number of frames. */
void set_totals(ordered_json &global, const session_description &session, const item_layout &layout,
                const item_state &state)
{
    const bool finished = !state.digest.empty();
    const double nominal = nominal_frame_rate(session.configuration, session.metadata, session.server);
    const double measured = measured_frame_rate(state.frames, state.seconds);
    const double sample_rate =
        (nominal > 0.0 ? nominal : measured) * static_cast<double>(layout.frame_length);
    set_member(global, "core:sample_rate", sample_rate >= lowest_sample_rate, sample_rate);
    set_member(global, "core:sha512", finished, state.digest);
    set_member(global, table_digest_member, finished, state.table_digest);
    set_member(global, "vantor:frames", finished, state.frames);
    set_member(global, "vantor:frames_missing", finished, state.frames_missing);
    set_member(global, block_frames_member, !finished && state.block_frames > 1, state.block_frames);
    set_member(global, unlisted_breaks_member, state.unlisted_breaks > 0, state.unlisted_breaks);
    set_member(global, "vantor:frame_rate", nominal > 0.0, nominal);
    set_member(global, "vantor:measured_frame_rate", measured > 0.0, measured);
}

/** The members of an item's document in the vantor namespace. */
void add_own_members(ordered_json &global, const item_layout &layout, const item_configuration &item)
{
    global["vantor:group"] = layout.group + 1;
    global["vantor:item"] = layout.index + 1;
    global["vantor:sensor_id"] = item.sensor_id;
    global["vantor:samples_per_frame"] = layout.frame_length;
    global["vantor:samples_per_sweep"] = layout.sweep_length;
    global["vantor:sweeps_per_frame"] = layout.sweeps();
    global["vantor:max_sweep_rate"] = layout.max_sweep_rate;
    global["vantor:high_speed_mode"] = layout.high_speed_mode;
    global["vantor:base_step_length_m"] = layout.base_step_length_m;
    global["vantor:wavelength_m"] = sensor_figure("wavelength");
    global["vantor:subsweeps"] = describe_subsweeps(layout, item);
    global["vantor:calibration_temperature"] = layout.calibration_temperature;
    global["vantor:frame_table"] = item_name(layout) + ".frames.csv";
    global["vantor:item_configuration"] = item.document;
}

/** The captures of an item's document. */
ordered_json describe_captures(const session_metadata &metadata, size_t index,
                               const std::vector<capture> &captures)
{
    const auto &layout = metadata.items.at(index);
    auto list = ordered_json::array();
    uint64_t missing = 0;
    for (const auto &part : captures)
    {
        ordered_json entry = {
            {"core:sample_start", part.first_frame * layout.frame_length},
            {"core:global_index", (part.first_frame + part.frames_missing) * layout.frame_length},
            {"vantor:frames_missing", part.frames_missing - missing}};
        missing = part.frames_missing;
        if (!part.datetime.empty())
        {
            entry["core:datetime"] = part.datetime;
        }
        if (part.begins)
        {
            entry["vantor:break"] = part.begins->reason;
            entry["vantor:break_s"] = part.begins->gap;
            entry["vantor:calibration_temperature"] = part.begins->calibration_temperatures.at(index);
        }
        list.push_back(std::move(entry));
    }
    return list;
}

/** Adds everything that is known about a session. */
void add_session(ordered_json &members, const session_description &session)
{
    members["vantor:configuration"] = session.configuration;
    members["vantor:metadata"] = session.metadata.document;
    members["vantor:server"] = {{"version", session.server.server_version},
                                {"protocol_version", session.server.protocol_version},
                                {"sensor", session.server.sensor},
                                {"ticks_per_second", session.server.ticks_per_second}};
    if (!session.source.is_null())
    {
        members["vantor:source"] = session.source;
    }
    if (!session.truth.is_null())
    {
        members[truth_member] = session.truth;
    }
}

} // namespace

uint64_t frames_per_block(const session_metadata &metadata)
{
    const uint64_t frame_bytes = std::max<uint64_t>(metadata.frame_length() * sizeof(sample), 1);
    return std::clamp<uint64_t>(block_bytes / frame_bytes, 1, most_block_frames);
}

std::string item_name(const item_layout &layout)
{
    return "group-" + std::to_string(layout.group + 1) + "-item-" + std::to_string(layout.index + 1);
}

double measured_frame_rate(uint64_t frames, double seconds)
{
    return frames < 2 || seconds <= 0.0 ? 0.0 : static_cast<double>(frames - 1) / seconds;
}

ordered_json item_document(const session_description &session, size_t index, const item_state &state,
                           const std::vector<capture> &captures)
{
    const auto &layout = session.metadata.items.at(index);
    const auto item = list_items(session.configuration).at(index);
    ordered_json global = {{"core:datatype", "ci16_le"}, {"core:version", sigmf_version}};
    set_totals(global, session, layout, state);
    global["core:description"] =
        "Consecutive radar frames of consecutive sweeps; the points of a sweep are at different distances.";
    global["core:recorder"] = std::string("vantor ") + version;
    global["core:hw"] = session.server.sensor + " sensor " + std::to_string(item.sensor_id);
    global["core:collection"] = collection_name;
    global["core:extensions"] = extensions();
    add_own_members(global, layout, item);
    if (index == 0)
    {
        // A second copy: repair needs it if the collection is damaged.
        add_session(global["vantor:session"], session);
    }
    return {{"global", std::move(global)},
            {"captures", describe_captures(session.metadata, index, captures)},
            {"annotations", ordered_json::array()}};
}

void finish_item_document(ordered_json &document, const session_description &session, size_t index,
                          const item_state &state, const std::vector<capture> &captures)
{
    const auto &layout = session.metadata.items.at(index);
    set_totals(document["global"], session, layout, state);
    document["captures"] = describe_captures(session.metadata, index, captures);
}

ordered_json empty_collection()
{
    return {{"core:version", sigmf_version}, {"core:extensions", extensions()}};
}

ordered_json describe_streams(const std::vector<collection_stream> &streams)
{
    auto list = ordered_json::array();
    for (const auto &entry : streams)
    {
        list.push_back({{"name", entry.name}, {"hash", entry.digest}});
    }
    return list;
}

void announce_streams(ordered_json &document, const std::vector<collection_stream> &next)
{
    document["collection"][next_streams_member] = describe_streams(next);
}

ordered_json collection_document(const session_description &session,
                                 const std::vector<collection_stream> &streams)
{
    auto collection = empty_collection();
    collection["core:streams"] = describe_streams(streams);
    add_session(collection, session);
    return {{"collection", std::move(collection)}};
}

} // namespace vantor
