/** @file
 * The two documents that describe the sensor.
 */
#ifndef VANTOR_SENSOR_KNOWLEDGE_H
#define VANTOR_SENSOR_KNOWLEDGE_H

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace vantor
{

/** The schema of configuration documents, docs/configuration.schema.json. */
const nlohmann::json &configuration_schema();

/** Sensor figures, and the rules between the members of a configuration, docs/k330.json. */
const nlohmann::json &sensor_knowledge();

/** The schema of a member of a configuration or of the document. */
const nlohmann::json &member_schema(const std::string &name);

/** A member of an object, or its default; null if it has neither. Valid as long as the object. */
const nlohmann::json &member_or_default(const nlohmann::json &object, const std::string &name);

/** A figure of the sensor. */
double sensor_figure(const std::string &name);

/** A figure of the sensor for one value of the member that it depends on. */
double sensor_figure(const std::string &name, const std::string &key);

/** Width of the pulse of a profile, in metres; nothing if there is no such profile. */
std::optional<double> pulse_width(int profile);

/**
 * The velocity that turns the phase by half a turn between two measurements, in m/s. Velocities beyond it
 * look like lower ones.
 *
 * @param rate  measurements per second
 */
double velocity_bound(double rate);

} // namespace vantor

#endif
