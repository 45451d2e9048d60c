/** @file
 * `vantor plan`.
 */
#include "commands/plan.h"

#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "commands/common_options.h"
#include "commands/interrupt.h"
#include "commands/next_command.h"
#include "commands/plan_report.h"
#include "commands/quantity.h"
#include "commands/usage_error.h"
#include "commands/validation.h"
#include "recording/file_replacement.h"
#include "recording/printable.h"
#include "vantor/client.h"
#include "vantor/configuration.h"
#include "vantor/reported_plan.h"
#include "vantor/wish.h"

namespace vantor
{
namespace
{

constexpr const char *plan_footer = R"(Examples:
  vantor plan config.json
  vantor plan config.json --connect serial:/dev/ttyACM0@921600
  vantor plan --distance 0.2..5 --resolution 0.1 --rate 20 --velocity 2
  vantor plan --distance 5m --resolution 10cm --output config.json
      then measure and draw it:
  vantor record config.json --seconds 10 --output recording
  vantor plot recording

The exit code is 1 if a wish cannot be met; the nearest configuration is then printed, but not saved.)";

/** The options of `vantor plan`. */
struct plan_options
{
    std::filesystem::path configuration;
    std::string distance;
    std::string resolution;
    std::string velocity;
    std::optional<double> rate;
    std::vector<uint64_t> sensors;
    std::filesystem::path output;
    std::string connect;
    std::optional<double> baudrate;
    bool json = false;
};

constexpr unit velocity_units[] = {{"m/s", 1.0}};

/** The first number of a range; with the unit of the second if it has none itself. */
std::optional<double> parse_lower(const std::string &text, const std::string &second,
                                  std::span<const unit> units)
{
    constexpr const char *digits = "0123456789.";
    const bool has_unit = text.find_last_of(digits) + 1 != text.size();
    return parse_quantity(has_unit ? text : text + second.substr(second.find_last_of(digits) + 1), units);
}

/** The two ends of a range; the lower one is missing in "5". */
struct range
{
    std::optional<double> lower;
    double upper = 0.0;
};

/** Reads "5" or "0.2..5", each with an optional unit; that of the second number is for both if the first has
 * none. */
range parse_range(const char *option, const std::string &text, std::span<const unit> units)
{
    const auto dots = text.find("..");
    const bool is_range = dots != std::string::npos;
    const auto second = is_range ? text.substr(dots + 2) : text;
    const auto upper = parse_quantity(second, units);
    const auto lower = is_range ? parse_lower(text.substr(0, dots), second, units) : std::nullopt;
    const bool has_third_dot = second.starts_with('.') && is_range;
    if (!upper || *upper <= 0.0 || has_third_dot || lower.value_or(0.0) < 0.0 || (is_range && !lower))
    {
        throw usage_error(std::string(option) + ": \"" + text +
                          "\" is not a range; use a number above 0, or two such as 0.2..5");
    }
    if (lower && *lower >= *upper)
    {
        throw usage_error(std::string(option) + ": \"" + text +
                          "\": the first must be smaller than the second");
    }
    return {lower, *upper};
}

/** The baud rate of the link; nothing if it is not known. */
std::optional<double> link_baudrate(const plan_options &options)
{
    if (options.baudrate || options.connect.empty())
    {
        return options.baudrate;
    }
    const auto where = parse_address(options.connect);
    const auto *serial = std::get_if<serial_address>(&where);
    return serial == nullptr ? std::nullopt : std::optional(static_cast<double>(serial->baudrate));
}

/** Reads the wish from the options. */
wish read_wish(const plan_options &options)
{
    wish wanted;
    const auto distance = parse_range("--distance", options.distance, length_units);
    wanted.nearest_m = distance.lower;
    wanted.farthest_m = distance.upper;
    if (!options.resolution.empty())
    {
        wanted.resolution_m = parse_length("--resolution", options.resolution);
    }
    if (!options.velocity.empty())
    {
        const auto velocity = parse_range("--velocity", options.velocity, velocity_units);
        wanted.greatest_velocity = velocity.upper;
        wanted.smallest_velocity = velocity.lower;
    }
    wanted.frame_rate = options.rate;
    wanted.baudrate = link_baudrate(options);
    require_different("--sensor", options.sensors);
    if (!options.sensors.empty())
    {
        wanted.sensors.assign(options.sensors.begin(), options.sensors.end());
    }
    return wanted;
}

/** Checks that the options ask for one thing. */
void check_options(const plan_options &options)
{
    const bool has_wish = !options.distance.empty();
    if (has_wish != options.configuration.empty())
    {
        throw usage_error("Give either a configuration document or --distance.");
    }
    const bool needs_wish = !options.resolution.empty() || !options.velocity.empty() || options.rate ||
                            !options.sensors.empty() || !options.output.empty();
    if (needs_wish && !has_wish)
    {
        throw usage_error("--resolution, --velocity, --rate, --sensor and --output need --distance.");
    }
    require_no_recording_name("--output", options.output);
}

/** Replaces figures by those that a server reports. */
void ask_server(client &server, const nlohmann::json &document, session_plan &session)
try
{
    const auto before = server.server().memory;
    apply_metadata(session, *server.configure(document));
    const auto after = server.identify().memory;
    if (before && after && after->live > before->live)
    {
        session.memory_bytes = after->live - before->live;
        session.memory_assumed = false;
    }
    server.end();
}
catch (const cancelled &)
{
    server.end_promptly();
    throw;
}

/**
 * The figures of a document; those that a server reports, if it is connected.
 *
 * @param sensors  those that must be connected
 */
session_plan find_figures(const nlohmann::json &document, const std::string &connect,
                          const std::vector<uint64_t> &sensors)
{
    auto session = plan(document);
    if (!connect.empty())
    {
        const auto loop = std::make_shared<event_loop>();
        const interrupt_watch watch(*loop);
        client server(parse_address(connect), {}, loop);
        require_connected(sensors, server.server().connected_sensors);
        ask_server(server, document, session);
    }
    return session;
}

/** Prints the parts of a wish that cannot be met. */
void print_shortfalls(std::ostream &err, const choice &chosen)
{
    for (const auto &part : chosen.shortfalls)
    {
        err << "vantor: " << to_string(part) << "\n";
    }
}

/** Prints what was chosen, and why. */
void print_decisions(std::ostream &out, const choice &chosen)
{
    out << (chosen.shortfalls.empty() ? "chosen:\n" : "the nearest configuration that is possible:\n");
    for (const auto &each : chosen.decisions)
    {
        out << "  " << each.member << " " << each.value.dump() << ": " << each.reason << "\n";
    }
}

/** A choice as JSON. */
nlohmann::ordered_json to_json(const choice &chosen)
{
    auto decisions = nlohmann::ordered_json::array();
    for (const auto &each : chosen.decisions)
    {
        decisions.push_back({{"member", each.member}, {"value", each.value}, {"reason", each.reason}});
    }
    auto shortfalls = nlohmann::ordered_json::array();
    for (const auto &part : chosen.shortfalls)
    {
        shortfalls.push_back({{"wish", part.wish},
                              {"unit", part.unit},
                              {"asked", part.asked},
                              {"nearest", part.nearest},
                              {"reason", part.reason}});
    }
    return {{"configuration", chosen.configuration},
            {"chosen", std::move(decisions)},
            {"not_possible", std::move(shortfalls)}};
}

/** What happens with the chosen configuration. */
std::string describe_output(const plan_options &options, bool saved)
{
    return options.output.empty() ? "use --output FILE to save the configuration"
           : saved                ? "configuration: " + printable(options.output.string())
                                  : "not saved: ask for what is possible";
}

/** Chooses a configuration, and prints and saves it. */
exit_code plan_wish(const plan_options &options, const command_streams &streams)
{
    const auto wanted = read_wish(options);
    const auto chosen = choose_configuration(wanted);
    const bool possible = chosen.shortfalls.empty();
    print_shortfalls(streams.err, chosen);
    streams.err << std::flush;
    const auto session = find_figures(nlohmann::json(chosen.configuration), options.connect,
                                      {wanted.sensors.begin(), wanted.sensors.end()});
    if (!options.output.empty() && possible)
    {
        replace_files({{.path = options.output, .text = chosen.configuration.dump(2) + "\n"}});
    }
    if (options.json)
    {
        auto report = to_json(chosen);
        report["figures"] = plan_json(session, link_baudrate(options));
        print_json(streams.out, report);
    }
    else
    {
        print_decisions(streams.out, chosen);
        print_plan(streams.out, session, link_baudrate(options));
        streams.out << describe_output(options, possible) << "\n";
    }
    if (!options.output.empty() && possible && !options.json)
    {
        suggest(streams, "vantor record", options.output, options.connect);
    }
    return possible ? exit_code::success : exit_code::failure;
}

/** Prints the figures of a document. */
exit_code plan_document(const plan_options &options, const command_streams &streams)
{
    const auto document = load_configuration(options.configuration);
    require_valid(document, options.configuration, streams.err);
    const auto session = find_figures(document, options.connect, {});
    if (options.json)
    {
        print_json(streams.out, {{"figures", plan_json(session, link_baudrate(options))}});
        return exit_code::success;
    }
    print_doubts(streams.out, options.configuration, session);
    print_plan(streams.out, session, link_baudrate(options));
    return exit_code::success;
}

/** The argument CONFIG, which is missing if there is a wish. */
command_option optional_configuration(std::filesystem::path &target)
{
    auto argument = configuration_argument(target);
    argument.required = false;
    return argument;
}

} // namespace

command plan_command()
{
    auto options = std::make_shared<plan_options>();
    const auto text = [](const char *name, const char *help, std::string &target, const char *value) {
        return command_option{.name = name, .help = help, .value = &target, .value_name = value};
    };
    return {
        .name = "plan",
        .help = "Choose a configuration, or show what one gives: distances, rates, velocities, sizes.",
        .footer = plan_footer,
        .options = {optional_configuration(options->configuration),
                    text("--distance", "Choose a configuration for these distances: 5 or 0.2..5 (m, cm, mm)",
                         options->distance, "RANGE"),
                    text("--resolution",
                         "Separate equal targets this far from each other by a dip of 3 dB (m, cm, mm)",
                         options->resolution, "LENGTH"),
                    text("--velocity", "Show velocities up to this: 2 or 0.1..2 (m/s)", options->velocity,
                         "RANGE"),
                    {.name = "--rate",
                     .help = "Frames per second",
                     .value = number_value{.target = &options->rate, .above = 0.0},
                     .value_name = "NUMBER"},
                    {.name = "--sensor",
                     .help = "Number of a sensor; may be repeated; 1 if not given",
                     .value = whole_numbers_value{.target = &options->sensors,
                                                  .most = std::numeric_limits<uint16_t>::max()},
                     .value_name = "NUMBER"},
                    {.name = "--output",
                     .help = "JSON file for the chosen configuration; an existing file is replaced",
                     .value = &options->output,
                     .value_name = "FILE"},
                    {.name = "--connect",
                     .help = "Ask this server for the figures that it knows",
                     .value = &options->connect,
                     .value_name = "ADDRESS"},
                    {.name = "--baudrate",
                     .help = "Baud rate of the link; that of a serial --connect if not given",
                     .value = number_value{.target = &options->baudrate, .above = 0.0},
                     .value_name = "NUMBER"},
                    json_flag(options->json)},
        .run = [options](const command_streams &streams) {
            check_options(*options);
            return options->distance.empty() ? plan_document(*options, streams)
                                             : plan_wish(*options, streams);
        }};
}

} // namespace vantor
