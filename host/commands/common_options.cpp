/** @file
 * Options that several commands have.
 */
#include "commands/common_options.h"

#include <ostream>

#include "commands/printable.h"

namespace vantor
{

command_option connect_option(std::string &target)
{
    return {.name = "--connect",
            .help =
                "The server: tcp:HOST:PORT, serial:DEVICE@BAUD, or sim: to start a private simulated server",
            .value = &target,
            .value_name = "WHERE",
            .default_value = target};
}

command_option json_flag(bool &target)
{
    return {.name = "--json", .help = "Print JSON, for programs", .value = &target};
}

command_option recording_argument(std::filesystem::path &target)
{
    return {.name = "RECORDING",
            .help = "Directory that \"vantor record\" wrote",
            .value = &target,
            .required = true};
}

command_option configuration_argument(std::filesystem::path &target)
{
    return {
        .name = "CONFIG", .help = "Configuration document, a JSON file", .value = &target, .required = true};
}

void print_json(std::ostream &out, const nlohmann::ordered_json &document)
{
    using on_error = nlohmann::ordered_json::error_handler_t;
    out << printable_json(document.dump(2, ' ', false, on_error::replace)) << "\n";
}

} // namespace vantor
