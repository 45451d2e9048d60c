/** @file
 * Checks a configuration document before it is used, and prints its faults.
 */
#include "commands/validation.h"

#include <ostream>

#include "commands/printable.h"
#include "vantor/configuration.h"
#include "vantor/configuration_check.h"

namespace vantor
{
namespace
{

/** The closest allowed value as text: JSON, but an object without its braces. */
std::string nearest_text(const nlohmann::ordered_json &nearest)
{
    if (!nearest.is_object())
    {
        return nearest.dump();
    }
    std::string text;
    for (const auto &[name, value] : nearest.items())
    {
        text += (text.empty() ? "\"" : ", \"") + name + "\": " + value.dump();
    }
    return text;
}

} // namespace

command_option no_validate_flag(bool &target)
{
    return {.name = "--no-validate",
            .help = "Do not check the configuration first; for servers that accept more than \"vantor "
                    "validate\"",
            .value = &target};
}

void print_faults(std::ostream &out, const std::string &file, const std::vector<configuration_fault> &faults)
{
    for (const auto &fault : faults)
    {
        const auto place = fault.pointer.empty() ? "the document" : fault.pointer;
        const auto nearest = fault.nearest.is_null() ? "" : "; nearest: " + nearest_text(fault.nearest);
        out << printable(file) << ": " << printable(place) << ": got " << printable(fault.got)
            << "; allowed: " << printable(fault.allowed) << printable(nearest) << "\n";
    }
}

nlohmann::ordered_json faults_json(const std::vector<configuration_fault> &faults)
{
    auto list = nlohmann::ordered_json::array();
    for (const auto &fault : faults)
    {
        list.push_back({{"pointer", fault.pointer},
                        {"got", fault.got},
                        {"allowed", fault.allowed},
                        {"nearest", fault.nearest}});
    }
    return list;
}

void require_valid(const nlohmann::json &configuration, const std::filesystem::path &file, std::ostream &err,
                   const std::string &advice)
{
    const auto faults = check_configuration(configuration);
    if (faults.empty())
    {
        return;
    }
    print_faults(err, file.string(), faults);
    throw configuration_error(file.string() + " is not valid: correct it" + advice + ".");
}

} // namespace vantor
