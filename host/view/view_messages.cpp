/** @file
 * The messages that viewers receive beside frames.
 */
#include "view/view_messages.h"

#include <utility>

#include "configuration/sensor_knowledge.h"
#include "recording/number_text.h"
#include "vantor/configuration.h"
#include "vantor/configuration_check.h"
#include "vantor/reported_plan.h"
#include "version.h"
#include "view/plan_figures.h"
#include "view/view_requests.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using nlohmann::ordered_json;

/** A member of the first sub-sweep of an item; its default if it is missing. */
json first_setting(const item_configuration &item, const std::string &name)
{
    const auto &config = item.document.at("config");
    return member_or_default(config.contains("subsweeps") ? config["subsweeps"].at(0) : config, name);
}

/** A figure that a server reports; another one if it does not know it, or it is not possible. */
double reported_or(double reported, double least, double most, double otherwise)
{
    return reported >= least && reported <= most ? reported : otherwise;
}

/** The sub-sweeps of an item. */
ordered_json subsweeps_of(const item_layout &layout, const item_configuration &item)
{
    constexpr double least_m = 1e-6;
    const double base_step = reported_or(layout.base_step_length_m, least_m, 1.0, sensor_figure("base_step"));
    auto list = ordered_json::array();
    for (size_t i = 0; i < layout.subsweeps.size(); ++i)
    {
        const auto &place = layout.subsweeps[i];
        const auto &range = item.subsweeps.at(i);
        list.push_back({{"offset", place.offset},
                        {"points", place.length},
                        {"start_m", range.start_point * base_step},
                        {"step_m", range.step_length * base_step}});
    }
    return list;
}

/** An item of a session. */
ordered_json item_of(const item_layout &layout, const item_configuration &item, double rate)
{
    constexpr double least_hz = 1e-3;
    constexpr double most_hz = 1e9;
    const double reported = reported_or(layout.max_sweep_rate, least_hz, most_hz, 0.0);
    const double sweep_rate = item.sweep_rate > 0.0 ? item.sweep_rate : reported;
    return {{"group", layout.group},
            {"index", layout.index},
            {"sensor", item.sensor_id},
            {"profile", item.subsweeps.at(0).profile},
            {"gain", first_setting(item, "receiver_gain")},
            {"sweeps", layout.sweeps()},
            {"points", layout.sweep_length},
            {"sweep_rate", sweep_rate},
            {"wavelength_m", sensor_figure("wavelength")},
            {"full_scale", full_scale},
            {"max_velocity_sweeps", velocity_bound(sweep_rate)},
            {"max_velocity_frames", velocity_bound(rate)},
            {"subsweeps", subsweeps_of(layout, item)}};
}

/** The figures of a session, as reported by its server. */
ordered_json session_figures(const session_description &session)
{
    auto planned = plan(session.configuration);
    apply_metadata(planned, session.metadata);
    return plan_figures(planned);
}

/** The figures of a configuration: those of the session if it has the same one. */
ordered_json figures_of(const json &configuration, const session_description *session)
{
    const bool known = session != nullptr && session->configuration == configuration;
    return known ? session_figures(*session) : plan_figures(plan(configuration));
}

/** The targets of an item. */
ordered_json targets_of(const item_truth &item)
{
    auto targets = ordered_json::array();
    for (const auto &target : item.targets)
    {
        targets.push_back({{"target", target.target},
                           {"distance_m", target.distance_m},
                           {"velocity_m_s", target.velocity_m_s}});
    }
    return targets;
}

} // namespace

ordered_json hello_message(view_kind kind, const std::string &name, const std::string &source)
{
    return {{"type", "hello"},
            {"version", version},
            {"kind", kind == view_kind::server ? "server" : "recording"},
            {"source", source},
            {"name", name},
            {"id", nullptr},
            {"recorded", nullptr},
            {"schema", configuration_schema()}};
}

ordered_json session_message(uint64_t number, const session_description &session)
{
    const double rate = nominal_frame_rate(session.configuration, session.metadata, session.server);
    const double period = nominal_tick_period(session);
    const auto configured = list_items(session.configuration);
    auto items = ordered_json::array();
    for (size_t i = 0; i < configured.size(); ++i)
    {
        items.push_back(item_of(session.metadata.items.at(i), configured[i], rate));
    }
    return {{"type", "session"},
            {"number", number},
            {"configuration", session.configuration},
            {"ticks_per_second", session.server.ticks_per_second},
            {"tick_period", period > 0.0 ? ordered_json(period) : ordered_json()},
            {"rate", rate},
            {"items", std::move(items)},
            {"plan", session_figures(session)}};
}

ordered_json log_message(const std::string &level, const std::string &text)
{
    return {{"type", "log"}, {"level", level}, {"text", text}};
}

ordered_json checked_message(const json &request, const session_description *session)
{
    constexpr double most = 1e15;
    const auto id = static_cast<int64_t>(number_in(request, "id", 0.0, most));
    const auto &configuration = object_in(request, "configuration");
    const auto faults = find_faults(configuration);
    return {{"type", "checked"},
            {"id", id},
            {"faults", view_faults(faults)},
            {"plan", faults.count() == 0 ? figures_of(configuration, session) : ordered_json::array()}};
}

ordered_json truth_message(const frame_truth &truth)
{
    auto items = ordered_json::array();
    for (const auto &item : truth.items)
    {
        items.push_back(item ? targets_of(*item) : ordered_json());
    }
    return {{"type", "truth"}, {"items", std::move(items)}};
}

ordered_json done_message(const std::string &type, const std::string &text)
{
    return {{"type", "done"}, {"for", type}, {"text", text}};
}

ordered_json failed_message(const std::string &type, const std::string &message)
{
    return {{"type", "failed"}, {"for", type}, {"message", message}};
}

ordered_json view_faults(const fault_list &faults)
{
    auto list = ordered_json::array();
    for (const auto &fault : faults.first())
    {
        list.push_back({{"pointer", fault.pointer},
                        {"members", fault.members},
                        {"message", "got " + fault.got + "; allowed: " + fault.allowed},
                        {"nearest", fault.nearest.is_number() ? fault.nearest : ordered_json()}});
    }
    if (faults.further() > 0)
    {
        list.push_back({{"pointer", ""},
                        {"members", ordered_json::array()},
                        {"message", "and " + counted(faults.further(), "further fault")}});
    }
    return list;
}

ordered_json usage_in(const json &statistics, const std::string &name,
                      const std::vector<std::string> &figures)
{
    const auto memory = statistics.is_object() ? statistics.value(name, json()) : json();
    auto usage = ordered_json::object();
    for (const auto &figure : figures)
    {
        const auto bytes = memory.is_object() ? memory.value(figure, json()) : json();
        if (!bytes.is_number_unsigned())
        {
            return nullptr;
        }
        usage[figure] = bytes;
    }
    return usage;
}

std::string lost_lines_text(uint64_t lines)
{
    return counted(lines, "line") + " of the log left out: this viewer was too slow.";
}

std::string message_text(const ordered_json &message)
{
    return message.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

} // namespace vantor
