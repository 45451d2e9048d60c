/** @file
 * `vantor validate`.
 */
#include "commands/validate.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>

#include "commands/common_options.h"
#include "commands/next_command.h"
#include "commands/plan_report.h"
#include "commands/validation.h"
#include "recording/printable.h"
#include "vantor/configuration.h"
#include "vantor/configuration_check.h"

namespace vantor
{
namespace
{

constexpr const char *validate_footer = R"(Examples:
  vantor validate examples/two_sensors.json
  vantor validate config.json --json

This does not need a server. docs/configuration.md describes every member. For a valid document, the figures of
"vantor plan" follow.)";

/** Number of faults that are described in JSON. */
constexpr size_t most_faults_in_json = 10000;

/** Prints the faults of a document, or its figures. */
exit_code validate(const std::filesystem::path &file, bool json, const command_streams &streams)
{
    auto &out = streams.out;
    const auto document = load_configuration(file);
    const auto faults = find_faults(document, json ? most_faults_in_json : most_faults);
    const bool valid = faults.count() == 0;
    const auto session = valid ? std::optional(plan(document)) : std::nullopt;
    if (json)
    {
        print_json(out, {{"valid", valid},
                         {"faults", faults_json(faults.first())},
                         {"further_faults", faults.further()},
                         {"figures", session ? plan_json(*session, std::nullopt) : nullptr}});
    }
    else if (session)
    {
        out << printable(file.string()) << ": valid\n";
        print_doubts(out, file, *session);
        print_plan(out, *session, std::nullopt);
        if (!session->items.empty())
        {
            suggest(streams, "vantor record", file);
        }
    }
    else
    {
        print_faults(out, file.string(), faults);
    }
    return valid ? exit_code::success : exit_code::bad_file;
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
                return validate(options->configuration, options->json, streams);
            }};
}

} // namespace vantor
