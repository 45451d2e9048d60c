/** @file
 * `vantor validate`.
 */
#include "commands/validate.h"

#include <filesystem>
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>

#include "check/configuration_check.h"
#include "commands/common_options.h"
#include "configuration.h"

namespace vantor
{
namespace
{

constexpr const char *footer = R"(Examples:
  vantor validate examples/two_sensors.json
  vantor validate config.json --json

It needs no server. docs/configuration.md describes every member.)";

/** Prints the faults for people. */
void print(std::ostream &out, const std::string &file, const std::vector<configuration_fault> &faults)
{
    for (const auto &fault : faults)
    {
        out << file << ": " << (fault.pointer.empty() ? "the document" : fault.pointer) << ": got "
            << fault.got << "; allowed: " << fault.allowed;
        if (!fault.nearest.empty())
        {
            out << "; nearest: " << fault.nearest;
        }
        out << "\n";
    }
    if (faults.empty())
    {
        out << file << ": no fault found\n";
    }
}

/** The faults for programs. */
nlohmann::ordered_json to_json(const std::vector<configuration_fault> &faults)
{
    auto list = nlohmann::ordered_json::array();
    for (const auto &fault : faults)
    {
        nlohmann::ordered_json entry = {
            {"pointer", fault.pointer}, {"got", fault.got}, {"allowed", fault.allowed}, {"nearest", nullptr}};
        if (!fault.nearest.empty())
        {
            entry["nearest"] = fault.nearest;
        }
        list.push_back(std::move(entry));
    }
    return {{"valid", faults.empty()}, {"faults", std::move(list)}};
}

} // namespace

void add_validate_command(CLI::App &app, command_streams streams, exit_code &result)
{
    struct validate_options
    {
        std::filesystem::path configuration;
        bool json = false;
    };
    auto *command = app.add_subcommand("validate", "Check a configuration document, without a server.");
    auto options = std::make_shared<validate_options>();
    command->add_option("CONFIG", options->configuration, "Configuration document, a JSON file")
        ->required()
        ->type_name("");
    add_json_flag(*command, options->json);
    command->footer(footer);
    command->callback([options, streams, &result] {
        const auto faults = check_configuration(load_configuration(options->configuration));
        if (options->json)
        {
            print_json(streams.out, to_json(faults));
        }
        else
        {
            print(streams.out, options->configuration.string(), faults);
        }
        result = faults.empty() ? exit_code::success : exit_code::bad_file;
    });
}

} // namespace vantor
