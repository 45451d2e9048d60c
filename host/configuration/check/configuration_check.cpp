/** @file
 * Checks a configuration document without a server.
 */
#include "vantor/configuration_check.h"

#include "configuration/check/configuration_rules.h"
#include "configuration/check/schema_check.h"
#include "configuration/sensor_knowledge.h"
#include "vantor/plan.h"

namespace vantor
{

fault_list find_faults(const nlohmann::json &document, size_t most)
{
    fault_list found(most);
    check_schema(document, configuration_schema(), found);
    if (found.count() == 0)
    {
        check_rules(document, found);
    }
    if (found.count() == 0)
    {
        for (const auto &fault : plan(document).impossible_rates)
        {
            found.add([&] { return fault; });
        }
    }
    return found;
}

std::vector<configuration_fault> check_configuration(const nlohmann::json &document)
{
    return find_faults(document).first();
}

} // namespace vantor
