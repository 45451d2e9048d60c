/** @file
 * `vantor validate`.
 */
#include "commands/validate.h"

#include <filesystem>
#include <memory>
#include <ostream>

#include "commands/common_options.h"
#include "commands/printable.h"
#include "commands/validation.h"
#include "configuration/check/configuration_check.h"
#include "configuration/configuration.h"

namespace vantor
{
namespace
{

constexpr const char *validate_footer = R"(Examples:
  vantor validate examples/two_sensors.json
  vantor validate config.json --json

This does not need a server. docs/configuration.md describes every member.)";

/** The faults as JSON. */
nlohmann::ordered_json to_json(const std::vector<configuration_fault> &faults)
{
    auto list = nlohmann::ordered_json::array();
    for (const auto &fault : faults)
    {
        list.push_back({{"pointer", fault.pointer},
                        {"got", fault.got},
                        {"allowed", fault.allowed},
                        {"nearest", fault.nearest}});
    }
    return {{"valid", faults.empty()}, {"faults", std::move(list)}};
}

} // namespace

command validate_command()
{
    struct validate_options
    {
        std::filesystem::path configuration;
        bool json = false;
    };
    auto options = std::make_shared<validate_options>();
    return {.name = "validate",
            .help = "Check a configuration document without a server.",
            .footer = validate_footer,
            .options = {configuration_argument(options->configuration), json_flag(options->json)},
            .run = [options](const command_streams &streams) {
                const auto faults = check_configuration(load_configuration(options->configuration));
                if (options->json)
                {
                    print_json(streams.out, to_json(faults));
                }
                else if (faults.empty())
                {
                    streams.out << printable(options->configuration.string()) << ": valid\n";
                }
                else
                {
                    print_faults(streams.out, options->configuration, faults);
                }
                return faults.empty() ? exit_code::success : exit_code::bad_file;
            }};
}

} // namespace vantor
