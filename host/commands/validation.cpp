/** @file
 * Checks a configuration document before it is used, and prints its faults.
 */
#include "commands/validation.h"

#include <algorithm>
#include <ostream>

#include "configuration/check/shortened.h"
#include "recording/printable.h"
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

/** A JSON pointer with long names shortened. */
std::string place_text(const std::string &pointer)
{
    std::string text;
    size_t start = 1;
    while (start <= pointer.size())
    {
        const auto end = std::min(pointer.find('/', start), pointer.size());
        text += '/';
        text += shortened(std::string_view(pointer).substr(start, end - start));
        start = end + 1;
    }
    return text.empty() ? "the document" : text;
}

} // namespace

command_option no_validate_flag(bool &target)
{
    return {.name = "--no-validate",
            .help = "Do not check the configuration first; for servers that accept more than \"vantor "
                    "validate\"",
            .value = &target};
}

void print_faults(std::ostream &out, const std::string &file, const fault_list &faults)
{
    for (const auto &fault : faults.first())
    {
        const auto place = place_text(fault.pointer);
        const auto nearest = fault.nearest.is_null() ? "" : "; nearest: " + nearest_text(fault.nearest);
        out << printable(file) << ": " << printable(place) << ": got " << printable(fault.got)
            << "; allowed: " << printable(fault.allowed) << printable(nearest) << "\n";
    }
    if (faults.further() > 0)
    {
        out << printable(file) << ": and " << faults.further() << " more faults\n";
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
    const auto faults = find_faults(configuration);
    if (faults.count() == 0)
    {
        return;
    }
    print_faults(err, file.string(), faults);
    throw configuration_error(file.string() + " is not valid: correct it" + advice + ".");
}

} // namespace vantor
