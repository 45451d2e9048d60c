/** @file
 * Tells what is wrong with a configuration document before a server sees it.
 */
#include "check/configuration_check.h"

#include "check/configuration_rules.h"
#include "check/schema_check.h"
#include "configuration_schema.h"

namespace vantor
{

const nlohmann::json &configuration_schema()
{
    static const auto schema = nlohmann::json::parse(configuration_schema_text);
    return schema;
}

std::vector<configuration_fault> check_configuration(const nlohmann::json &document)
{
    auto found = check_schema(document, configuration_schema());
    return found.empty() ? check_rules(document) : found;
}

} // namespace vantor
