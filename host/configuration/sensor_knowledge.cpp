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

} // namespace vantor
