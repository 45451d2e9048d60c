/** @file
 * The two documents that describe the sensor.
 */
#ifndef VANTOR_SENSOR_KNOWLEDGE_H
#define VANTOR_SENSOR_KNOWLEDGE_H

#include <nlohmann/json.hpp>

namespace vantor
{

/** The schema of configuration documents, docs/configuration.schema.json. */
const nlohmann::json &configuration_schema();

/** Sensor figures, and the rules between the members of a configuration, docs/k330.json. */
const nlohmann::json &sensor_knowledge();

} // namespace vantor

#endif
