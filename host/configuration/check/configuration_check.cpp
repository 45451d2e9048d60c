/** @file
 * Checks a configuration document without a server.
 */
#include "vantor/configuration_check.h"

#include "configuration/check/configuration_rules.h"
#include "configuration/check/schema_check.h"
#include "configuration/sensor_knowledge.h"

namespace vantor
{

std::vector<configuration_fault> check_configuration(const nlohmann::json &document)
{
    auto found = check_schema(document, configuration_schema());
    return found.empty() ? check_rules(document) : found;
}

} // namespace vantor
