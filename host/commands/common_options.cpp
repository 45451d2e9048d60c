/** @file
 * Options shared by several commands.
 */
#include "commands/common_options.h"

#include <algorithm>
#include <ostream>
#include <set>

#include "commands/server_description.h"
#include "commands/usage_error.h"
#include "recording/printable.h"
#include "vantor/errors.h"

namespace vantor
{

command_option connect_option(std::string &target)
{
    return {.name = "--connect",
            .help = "Address of the server (tcp:HOST:PORT, unix:PATH or serial:DEVICE@BAUD), or sim: to "
                    "start a private "
                    "simulated server",
            .value = &target,
            .value_name = address_name,
            .default_value = target};
}

command_option json_flag(bool &target)
{
    return {.name = "--json", .help = "Print JSON instead of text", .value = &target};
}

command_option recording_argument(std::filesystem::path &target)
{
    return {.name = "RECORDING",
            .help = "Directory written by \"vantor record\"",
            .value = &target,
            .required = true};
}

command_option configuration_argument(std::filesystem::path &target)
{
    return {
        .name = "CONFIG", .help = "Configuration document (a JSON file)", .value = &target, .required = true};
}

command_option optional_configuration_argument(std::filesystem::path &target)
{
    auto option = configuration_argument(target);
    option.required = false;
    option.help += "; \"vantor replay\" needs none";
    return option;
}

void require_different(const char *option, const std::vector<uint64_t> &values)
{
    std::set<uint64_t> seen;
    for (const auto value : values)
    {
        if (!seen.insert(value).second)
        {
            throw usage_error(std::string(option) + " " + std::to_string(value) + " is given twice");
        }
    }
}

void require_no_recording_name(const char *option, const std::filesystem::path &file)
{
    if (file.extension().string().starts_with(".sigmf-"))
    {
        throw usage_error(std::string(option) + ": \"" + file.string() +
                          "\" is a name for a file of a recording; choose another one, such as " +
                          file.stem().string() + ".json");
    }
}

void require_connected(const std::vector<uint64_t> &sensors, const std::vector<unsigned> &connected)
{
    for (const auto id : sensors)
    {
        if (std::find(connected.begin(), connected.end(), id) == connected.end())
        {
            throw error("Sensor " + std::to_string(id) +
                        " is not connected to the server; connected: " + join(connected) + ".");
        }
    }
}

void print_json(std::ostream &out, const nlohmann::ordered_json &document)
{
    using on_error = nlohmann::ordered_json::error_handler_t;
    out << printable_json(document.dump(2, ' ', false, on_error::replace)) << "\n";
}

} // namespace vantor
