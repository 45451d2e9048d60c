/** @file
 * The two documents that describe the sensor.
 */
#include "configuration/sensor_knowledge.h"

#include "sensor_documents.h"

namespace vantor
{

const nlohmann::json &configuration_schema()
{
    static const auto schema = nlohmann::json::parse(configuration_schema_text);
    return schema;
}

const nlohmann::json &sensor_knowledge()
{
    static const auto knowledge = nlohmann::json::parse(sensor_knowledge_text);
    return knowledge;
}

const nlohmann::json &member_schema(const std::string &name)
{
    const auto &schema = configuration_schema();
    return schema[schema["properties"].contains(name) ? "properties" : "$defs"][name];
}

const nlohmann::json &member_or_default(const nlohmann::json &object, const std::string &name)
{
    static const nlohmann::json nothing;
    const auto found = object.find(name);
    if (found != object.end())
    {
        return *found;
    }
    const auto &schema = member_schema(name);
    return schema.contains("default") ? schema["default"] : nothing;
}

double sensor_figure(const std::string &name)
{
    return sensor_knowledge()["figures"].at(name).at("value");
}

double sensor_figure(const std::string &name, const std::string &key)
{
    return sensor_knowledge()["figures"].at(name).at("value").at(key);
}

std::optional<double> pulse_width(int profile)
{
    const auto &widths = sensor_knowledge()["figures"]["pulse_width"]["value"];
    const auto found = widths.find(std::to_string(profile));
    return found == widths.end() ? std::nullopt : std::optional(found->get<double>());
}

double velocity_bound(double rate)
{
    return sensor_figure("wavelength") / 4.0 * rate;
}

} // namespace vantor
