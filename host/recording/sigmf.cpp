/** @file
 * The SigMF documents of a recording.
 */
#include "recording/sigmf.h"

#include <cmath>

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
        }
        list.push_back(std::move(entry));
    }
    return list;
}

/** The frame rate that was asked for, and the one that was measured, where known. */
void add_rates(ordered_json &global, double nominal_rate, const item_state &state)
{
    if (nominal_rate > 0.0)
    {
        global["vantor:frame_rate"] = nominal_rate;
    }
    if (const double rate = measured_frame_rate(state); rate > 0.0)
    {
        global["vantor:measured_frame_rate"] = rate;
    }
}

/** The members of an item's document in the vantor namespace. */
void add_own_members(ordered_json &global, const item_layout &layout, const item_configuration &item,
                     const item_state &state, double nominal_rate)
{
    global["vantor:group"] = layout.group + 1;
    global["vantor:item"] = layout.index + 1;
    global["vantor:sensor_id"] = item.sensor_id;
    if (!state.digest.empty())
    {
        global["vantor:frames"] = state.frames;
    }
    add_rates(global, nominal_rate, state);
    global["vantor:samples_per_frame"] = layout.frame_length;
    global["vantor:samples_per_sweep"] = layout.sweep_length;
    global["vantor:sweeps_per_frame"] = layout.sweeps();
    global["vantor:max_sweep_rate"] = layout.max_sweep_rate;
    global["vantor:high_speed_mode"] = layout.high_speed_mode;
    global["vantor:base_step_length_m"] = layout.base_step_length_m;
    global["vantor:subsweeps"] = describe_subsweeps(layout, item);
    global["vantor:calibration_temperature"] = layout.calibration_temperature;
    global["vantor:frame_table"] = item_name(layout) + ".frames.csv";
    global["vantor:item_configuration"] = item.document;
}

/** The captures of an item's document. */
ordered_json describe_captures(const item_layout &layout, const std::vector<capture> &captures)
{
    auto list = ordered_json::array();
    uint64_t missing = 0;
    for (const auto &segment : captures)
    {
        list.push_back(
            {{"core:sample_start", segment.first_frame * layout.frame_length},
             {"core:global_index", (segment.first_frame + segment.frames_missing) * layout.frame_length},
             {"core:datetime", segment.datetime},
             {"vantor:frames_missing", segment.frames_missing - missing}});
        missing = segment.frames_missing;
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
}

} // namespace

std::string item_name(const item_layout &layout)
{
    return "group-" + std::to_string(layout.group + 1) + "-item-" + std::to_string(layout.index + 1);
}

double measured_frame_rate(const item_state &state)
{
    return state.frames < 2 || state.seconds <= 0.0 ? 0.0
                                                    : static_cast<double>(state.frames - 1) / state.seconds;
}

ordered_json item_document(const session_description &session, size_t index, const item_state &state,
                           const std::vector<capture> &captures)
{
    const auto &layout = session.metadata.items.at(index);
    const auto item = list_items(session.configuration).at(index);
    ordered_json global = {{"core:datatype", "ci16_le"}, {"core:version", sigmf_version}};
    const double nominal_rate = nominal_frame_rate(session.configuration, session.metadata, session.server);
    const double sample_rate = (nominal_rate > 0.0 ? nominal_rate : measured_frame_rate(state)) *
                               static_cast<double>(layout.frame_length);
    if (sample_rate >= lowest_sample_rate)
    {
        global["core:sample_rate"] = sample_rate;
    }
    if (!state.digest.empty())
    {
        global["core:sha512"] = state.digest;
    }
    global["core:description"] =
        "Consecutive radar frames of consecutive sweeps; the points of a sweep are at different distances.";
    global["core:recorder"] = std::string("vantor ") + version;
    global["core:hw"] = session.server.sensor + " sensor " + std::to_string(item.sensor_id);
    global["core:collection"] = collection_name;
    global["core:extensions"] = extensions();
    add_own_members(global, layout, item, state, nominal_rate);
    if (index == 0)
    {
        // A second copy: repair needs it if the collection is damaged.
        add_session(global["vantor:session"], session);
    }
    return {{"global", std::move(global)},
            {"captures", describe_captures(layout, captures)},
            {"annotations", ordered_json::array()}};
}

ordered_json collection_document(const session_description &session, const std::vector<stream> &streams)
{
    auto list = ordered_json::array();
    for (const auto &entry : streams)
    {
        list.push_back({{"name", entry.name}, {"hash", entry.digest}});
    }
    ordered_json collection = {{"core:version", sigmf_version},
                               {"core:extensions", extensions()},
                               {"core:streams", std::move(list)}};
    add_session(collection, session);
    return {{"collection", std::move(collection)}};
}

} // namespace vantor
