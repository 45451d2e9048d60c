/** @file
 * The truth as JSON.
 */
#include "vantor/truth.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** Most targets that a scene has. */
constexpr size_t most_targets = 64;

/** Returns a required member; throws protocol_error if it is missing. */
const json &required(const json &object, const char *name)
{
    const auto found = object.is_object() ? object.find(name) : object.end();
    if (found == object.end())
    {
        throw protocol_error(std::string("\"") + name + "\" is missing.");
    }
    return *found;
}

/** Returns a required member as a whole number of the type. */
template <typename integer_t> integer_t whole(const json &object, const char *name)
{
    using limits = std::numeric_limits<integer_t>;
    const auto &value = required(object, name);
    const bool fits = value.is_number_unsigned()
                          ? std::in_range<integer_t>(value.get<uint64_t>())
                          : value.is_number_integer() && std::in_range<integer_t>(value.get<int64_t>());
    if (!fits)
    {
        throw protocol_error(std::string("\"") + name + "\" is not a whole number from " +
                             std::to_string(limits::min()) + " to " + std::to_string(limits::max()) + ".");
    }
    return value.get<integer_t>();
}

/** Returns a required member as a finite number. */
double finite(const json &object, const char *name)
{
    const auto &value = required(object, name);
    if (!value.is_number() || !std::isfinite(value.get<double>()))
    {
        throw protocol_error(std::string("\"") + name + "\" is not a number.");
    }
    return value.get<double>();
}

/** Returns an optional member as a finite number; nothing if it is missing or null. */
std::optional<double> optional_finite(const json &object, const char *name)
{
    const auto found = object.find(name);
    return found == object.end() || found->is_null() ? std::nullopt : std::optional(finite(object, name));
}

/** Decodes a target. */
target_truth decode_target(const json &document)
{
    return {.target = whole<uint16_t>(document, "target"),
            .body = document.contains("body") ? whole<uint16_t>(document, "body") : size_t{0},
            .distance_m = finite(document, "distance_m"),
            .velocity_m_s = finite(document, "velocity_m_s"),
            .amplitude = finite(document, "amplitude"),
            .phase_rad = finite(document, "phase_rad"),
            .snr_db = optional_finite(document, "snr_db")};
}

/** Decodes all targets of a line. */
std::vector<target_truth> decode_targets(const json &list)
{
    if (!list.is_array() || list.size() > most_targets)
    {
        throw protocol_error("\"targets\" is not a list of at most " + std::to_string(most_targets) +
                             " targets.");
    }
    std::vector<target_truth> targets;
    for (const auto &document : list)
    {
        const auto target = decode_target(document);
        if (std::ranges::find(targets, target.target, &target_truth::target) != targets.end())
        {
            throw protocol_error("\"targets\" has target " + std::to_string(target.target) + " twice.");
        }
        targets.push_back(target);
    }
    return targets;
}

/** Encodes a target. */
nlohmann::ordered_json encode_target(const target_truth &target)
{
    nlohmann::ordered_json document = {{"target", target.target}};
    if (target.body > 0)
    {
        document["body"] = target.body;
    }
    document.update(
        {{"distance_m", target.distance_m},
         {"velocity_m_s", target.velocity_m_s},
         {"amplitude", target.amplitude},
         {"phase_rad", target.phase_rad},
         {"snr_db", target.snr_db ? nlohmann::ordered_json(*target.snr_db) : nlohmann::ordered_json()}});
    return document;
}

} // namespace

item_truth decode_truth(const json &document)
{
    return {.sensor_id = whole<unsigned>(document, "sensor"),
            .tick = whole<uint32_t>(document, "tick"),
            .time_s = finite(document, "time_s"),
            .temperature = whole<int16_t>(document, "temperature"),
            .noise_power = finite(document, "noise_power"),
            .interference = finite(document, "interference"),
            .targets = decode_targets(required(document, "targets"))};
}

nlohmann::ordered_json encode_truth(const item_truth &truth)
{
    auto targets = nlohmann::ordered_json::array();
    for (const auto &target : truth.targets)
    {
        targets.push_back(encode_target(target));
    }
    return {{"sensor", truth.sensor_id},        {"tick", truth.tick},
            {"time_s", truth.time_s},           {"temperature", truth.temperature},
            {"noise_power", truth.noise_power}, {"interference", truth.interference},
            {"targets", std::move(targets)}};
}

} // namespace vantor
