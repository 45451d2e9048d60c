/** @file
 * The truth as JSON.
 */
#include "vantor/truth.h"

#include <cmath>
#include <utility>

#include "client/json_members.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

/** Returns a required member as a finite number. */
double finite_member(const nlohmann::json &object, const char *name)
{
    const double value = number_member(object, name);
    if (!std::isfinite(value))
    {
        throw protocol_error(std::string("\"") + name + "\" is not a number.");
    }
    return value;
}

/** Decodes a target. */
target_truth decode_target(const nlohmann::json &document)
{
    return {.target = length_member(document, "target"),
            .body = document.contains("body") ? length_member(document, "body") : 0,
            .distance_m = finite_member(document, "distance_m"),
            .velocity_m_s = finite_member(document, "velocity_m_s"),
            .amplitude = finite_member(document, "amplitude"),
            .phase_rad = finite_member(document, "phase_rad"),
            .snr_db = optional_number_member(document, "snr_db")};
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

item_truth decode_truth(const nlohmann::json &document)
{
    item_truth truth{.sensor_id = integer_member<unsigned>(document, "sensor"),
                     .tick = integer_member<uint32_t>(document, "tick"),
                     .time_s = finite_member(document, "time_s"),
                     .temperature = integer_member<int16_t>(document, "temperature"),
                     .noise_power = finite_member(document, "noise_power"),
                     .interference = finite_member(document, "interference"),
                     .targets = {}};
    for (const auto &target : array_member(document, "targets"))
    {
        truth.targets.push_back(decode_target(target));
    }
    return truth;
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
