/** @file
 * Checks a configuration document without a server.
 */
#include "vantor/configuration_check.h"

#include <algorithm>

#include "configuration/check/configuration_rules.h"
#include "configuration/check/schema_check.h"
#include "configuration/sensor_knowledge.h"
#include "vantor/plan.h"

namespace vantor
{

std::vector<configuration_fault> check_configuration(const nlohmann::json &document)
{
    auto found = check_schema(document, configuration_schema());
    if (found.empty())
    {
        found = check_rules(document);
    }
    if (found.empty())
    {
        found = plan(document).impossible_rates;
        found.resize(std::min(found.size(), most_faults));
    }
    return found;
}

} // namespace vantor
