/** @file
 * `vantor validate`.
 */
#include "commands/validate.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <system_error>

#include "client/server_process.h"
#include "commands/common_options.h"
#include "commands/next_command.h"
#include "commands/plan_report.h"
#include "commands/usage_error.h"
#include "commands/validation.h"
#include "configuration/document_kind.h"
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
  vantor validate examples/scenes/visitor.json
  vantor validate visitor --sensors 2

A document is recognised by its members. For a valid configuration, the figures of "vantor plan" follow; this does
not need a server. docs/configuration.md describes every member. A scene is checked by the program vantor_server, which
is found as for "--connect sim:"; docs/simulator.md describes every key.)";

/** Most sensors on a simulated board. */
constexpr uint64_t most_sensors = 64;

/** The options of the command. */
struct validate_options
{
    std::filesystem::path document;
    uint64_t sensors = 0; /**< on the board that a scene is for; 0 for the default of the server */
    bool json = false;
};

/** Number of faults that are described in JSON. */
constexpr size_t most_faults_in_json = 10000;

/** Prints the faults of a configuration, or its figures. */
exit_code validate_configuration(const std::filesystem::path &file, bool json, const command_streams &streams)
{
    auto &out = streams.out;
    const auto document = load_configuration(file);
    const auto faults = find_faults(document, json ? most_faults_in_json : most_faults);
    const bool valid = faults.count() == 0;
    const auto session = valid ? std::optional(plan(document)) : std::nullopt;
    if (json)
    {
        print_json(out, {{"document", "configuration"},
                         {"valid", valid},
                         {"faults", faults_json(faults.first())},
                         {"further_faults", faults.further()},
                         {"figures", session ? plan_json(*session, std::nullopt) : nullptr}});
    }
    else if (session)
    {
        out << printable(file.string()) << ": valid configuration\n";
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
        out << printable(file.string()) << ": not a valid configuration\n";
    }
    return valid ? exit_code::success : exit_code::bad_file;
}

/** What the server prints about a scene. */
std::string ask_server(const validate_options &options, bool json)
{
    // "=", because the name of a file may begin with a hyphen.
    std::vector<std::string> arguments{"--check-scene", "--scene=" + options.document.string()};
    if (options.sensors > 0)
    {
        arguments.push_back("--sensors=" + std::to_string(options.sensors));
    }
    if (json)
    {
        arguments.emplace_back("--json");
    }
    return output_of_server(arguments);
}

/** Prints the fault of a scene, or what it contains. */
exit_code validate_scene(const validate_options &options, std::ostream &out)
{
    const auto answer = nlohmann::ordered_json::parse(ask_server(options, true), nullptr, false);
    if (!answer.is_object() || !answer.contains("valid") || !answer["valid"].is_boolean())
    {
        throw protocol_error(
            "The program vantor_server does not check scenes; install the one of this version.");
    }
    const auto valid = answer["valid"].get<bool>();
    if (options.json)
    {
        nlohmann::ordered_json document = {{"document", "scene"}};
        document.update(answer);
        print_json(out, document);
    }
    else if (valid)
    {
        out << ask_server(options, false);
    }
    else
    {
        out << "not a valid scene: " << printable(answer.value("fault", "")) << "\n";
    }
    return valid ? exit_code::success : exit_code::bad_file;
}

/** Throws configuration_error if a document is not in a file: reading a pipe could wait forever. */
void require_file(const std::filesystem::path &document)
{
    std::error_code failure;
    const auto status = std::filesystem::status(document, failure);
    if (std::filesystem::is_other(status))
    {
        throw configuration_error("Cannot read " + document.string() + ": it is not a regular file.");
    }
}

/** Checks a document. */
exit_code validate(const validate_options &options, const command_streams &streams)
{
    require_file(options.document);
    if (recognise_document(options.document) == document_kind::scene)
    {
        return validate_scene(options, streams.out);
    }
    if (options.sensors > 0)
    {
        throw usage_error("--sensors is for scenes, but " + options.document.string() +
                          " is a configuration.");
    }
    return validate_configuration(options.document, options.json, streams);
}

} // namespace

command validate_command()
{
    auto options = std::make_shared<validate_options>();
    auto document = configuration_argument(options->document);
    document.help = "Configuration document or scene (a JSON file), or the name of an example scene";
    return {.name = "validate",
            .help = "Check a configuration document without a server, or a scene.",
            .footer = validate_footer,
            .options = {document,
                        {.name = "--sensors",
                         .help = "Sensor positions on the board that a scene is for",
                         .value = whole_number_value{.target = &options->sensors, .most = most_sensors},
                         .value_name = "NUMBER"},
                        json_flag(options->json)},
            .run = [options](const command_streams &streams) { return validate(*options, streams); }};
}

} // namespace vantor
