/** @file
 * Parses the command line of `vantor_server`.
 */
#include "options.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iostream>
#include <iterator>
#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "console.h"
#include "zet_log_levels.h"

namespace
{

/** Limits of the board's memory, which may be as small as on a microcontroller. */
constexpr uint64_t smallest_memory = 4096;
constexpr uint64_t largest_memory = uint64_t{1024} * 1024 * 1024;

constexpr uint64_t most_sensors = 64;

constexpr uint64_t longest_stall_limit_s = 86400;

constexpr const char *description =
    "Measures with simulated k330 radar sensors and streams the frames to one host at a time.\n"
    "The protocol is described in docs/protocol.md; `vantor` is a host that uses it.";

constexpr const char *footer = "Examples:\n"
                               "  vantor_server --tcp 6110\n"
                               "  vantor_server --tcp 0.0.0.0:6110 --sensors 2\n"
                               "  vantor_server --unix radar.socket\n"
                               "  vantor_server --pty --log-level INFO\n"
                               "  vantor_server --check-scene --scene my_scene.json\n"
                               "\n"
                               "Exit codes:\n"
                               "  0  success\n"
                               "  1  any other failure\n"
                               "  2  wrong command line\n";

/** Parses "PORT" or "HOST:PORT"; returns a text that says what is wrong, or an empty one. */
std::string parse_tcp_address(const std::string &text, options_t &options)
{
    const size_t colon = text.rfind(':');
    const std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
    if (colon != std::string::npos)
    {
        const bool bracketed = text.front() == '[' && colon > 2 && text[colon - 1] == ']';
        options.tcp_host = bracketed ? text.substr(1, colon - 2) : text.substr(0, colon);
    }
    const bool digits =
        !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
    if (!digits || std::stoul(port) > UINT16_MAX || options.tcp_host.empty())
    {
        return "expected PORT or HOST:PORT with a port from 0 (any free one) to 65535, got \"" + text + "\"";
    }
    options.tcp_port = static_cast<uint16_t>(std::stoul(port));
    return {};
}

/** Adds an option whose value is a decimal whole number within bounds; the target's value is the default. */
template <typename number_t>
void add_number(CLI::App &app, const std::string &name, number_t &target, const std::string &help,
                uint64_t least, uint64_t most)
{
    const auto parse = [=, &target](const std::string &text) {
        uint64_t value = 0;
        const char *const end = text.data() + text.size();
        const auto [stop, failure] = std::from_chars(text.data(), end, value);
        if (failure != std::errc{} || stop != end || value < least || value > most)
        {
            throw CLI::ValidationError(name, "\"" + text + "\" is not a whole number from " +
                                                 std::to_string(least) + " to " + std::to_string(most));
        }
        target = static_cast<number_t>(value);
    };
    app.add_option_function<std::string>(name, parse, help)
        ->type_name("NUMBER")
        ->default_str(std::to_string(target));
}

/** Returns the names of the log levels as a list in a sentence, with a conjunction before the last one. */
std::string list_of_log_levels(const std::string &conjunction)
{
    std::string list = zet_log_level_words.front();
    for (size_t i = 1; i < zet_log_level_words.size(); ++i)
    {
        const bool is_last = i + 1 == zet_log_level_words.size();
        list += (is_last ? " " + conjunction + " " : ", ") + zet_log_level_words[i];
    }
    return list;
}

/** Parses the name of a log level, in upper or lower case. */
zet_log_level_t parse_log_level(const std::string &text)
{
    std::string name = text;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    const auto *const found = std::find(zet_log_level_words.begin(), zet_log_level_words.end(), name);
    if (found == zet_log_level_words.end())
    {
        throw CLI::ValidationError("--log-level",
                                   "\"" + text + "\" is not one of " + list_of_log_levels("and"));
    }
    return static_cast<zet_log_level_t>(found - zet_log_level_words.begin());
}

/** Parses the name of a file. */
std::string parse_file_name(const std::string &name, const std::string &text)
{
    if (text.empty())
    {
        throw CLI::ValidationError(name, "the value is empty; give the name of a file");
    }
    return text;
}

/** Adds the options for the link and the check instead of it, exactly one of which is required. */
void add_link_options(CLI::App &app, options_t &options)
{
    auto *link = app.add_option_group("link", "Exactly one of these is required");
    link->add_option_function<std::string>(
            "--tcp",
            [&options](const std::string &text) {
                const std::string fault = parse_tcp_address(text, options);
                if (!fault.empty())
                {
                    throw CLI::ValidationError("--tcp", fault);
                }
            },
            "Listen on a TCP port, on the loopback interface unless a host is given")
        ->type_name("[HOST:]PORT");
    link->add_option_function<std::string>(
            "--unix",
            [&options](const std::string &text) {
                options.link = link_kind_t::local;
                options.socket_path = parse_file_name("--unix", text);
            },
            "Listen on a socket in the file system, which only your own programs can open")
        ->type_name("PATH");
    link->add_flag_callback(
        "--pty", [&options] { options.link = link_kind_t::pty; },
        "Create a pseudo-terminal, which the host opens like a serial device");
    link->add_flag_callback(
        "--stdio", [&options] { options.link = link_kind_t::stdio; },
        "Use standard input and output as the link");
    auto *const check = link->add_flag_callback(
        "--check-scene", [&options] { options.check_scene = true; },
        "Check the scene, print what it contains, and exit");
    link->require_option(1);
    app.add_flag_callback(
           "--json", [&options] { options.json = true; }, "With --check-scene: print JSON instead of text")
        ->needs(check);
    add_number(app, "--stall-limit", options.stall_limit_s,
               "Seconds after which a host that accepts no data is disconnected, 0 to 86400; 0 for never", 0,
               longest_stall_limit_s);
}

/** Parses the name of a clock; returns whether it is the virtual one. */
bool parse_clock(const std::string &text)
{
    if (text != "real" && text != "virtual")
    {
        throw CLI::ValidationError("--clock", "\"" + text + "\" is not one of real and virtual");
    }
    return text == "virtual";
}

/** Parses a decimal number within bounds; returns nothing if it is not one. */
std::optional<double> parse_decimal(const std::string &text, double least, double most)
{
    double value = 0.0;
    const char *const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
    const bool valid = failure == std::errc{} && stop == end && value >= least && value <= most;
    return valid ? std::optional(value) : std::nullopt;
}

/** Parses by how much the board's clock is wrong, in ppm. */
double parse_clock_error(const std::string &text)
{
    constexpr double most_ppm = 1000.0;
    const auto value = parse_decimal(text, -most_ppm, most_ppm);
    if (!value)
    {
        throw CLI::ValidationError("--clock-error", "\"" + text + "\" is not a number from -1000 to 1000");
    }
    return *value;
}

/** Parses when the scene starts: "server", or a time in seconds since 1970. */
void parse_scene_start(const std::string &text, options_t &options)
{
    constexpr double latest_s = 1.0e11;
    if (text == "server")
    {
        options.scene_goes_on = true;
        return;
    }
    options.scene_start_s = parse_decimal(text, 0.0, latest_s);
    if (!options.scene_start_s)
    {
        throw CLI::ValidationError("--scene-start",
                                   "\"" + text +
                                       "\" is neither \"server\" nor a number of seconds from 0 "
                                       "to 100000000000");
    }
}

/** Adds the options that describe the simulated board. */
void add_board_options(CLI::App &app, options_t &options)
{
    add_number(app, "--sensors", options.sensor_count, "Sensor positions on the board, 1 to 64", 1,
               most_sensors);
    app.add_option_function<std::string>(
           "--scene",
           [&options](const std::string &text) { options.scene_path = parse_file_name("--scene", text); },
           "Scene that the sensors see: a file, or the name of an example (docs/simulator.md); a built-in "
           "one by "
           "default")
        ->type_name("FILE.json");
    add_number(app, "--board", options.board,
               "Number of this board, if several boards see one scene, 1 to 65535; 0 for the only one", 0,
               UINT16_MAX);
    app.add_option_function<std::string>(
           "--scene-start", [&options](const std::string &text) { parse_scene_start(text, options); },
           "When the scene starts: \"server\" for once, with the server, so that it goes on over sessions; "
           "or the "
           "time of day in seconds since 1970-01-01 UTC, such as that of `date +%s`, for several boards; "
           "with each "
           "session by default")
        ->type_name("TIME");
    app.add_flag_callback(
        "--ideal", [&options] { options.ideal = true; },
        "Ideal sensors: no phase noise, drift, sidelobes, ringing and bursts, whatever the scene describes");
    app.add_option_function<std::string>(
           "--truth",
           [&options](const std::string &text) { options.truth_path = parse_file_name("--truth", text); },
           "File that receives what the sensors should have found in each frame (docs/simulator.md); an "
           "existing one is replaced")
        ->type_name("FILE");
    app.add_option_function<std::string>(
           "--name", [&options](const std::string &text) { options.board_name = text; },
           "Name of the board, shown by `vantor identify`")
        ->type_name("TEXT")
        ->default_str(options.board_name);
    app.add_option_function<std::string>(
           "--id", [&options](const std::string &text) { options.board_id = text; },
           "Identifier of the board, such as a serial number; none by default")
        ->type_name("TEXT");
}

/** Adds the options for the simulation, and the log level. */
void add_simulation_options(CLI::App &app, options_t &options)
{
    add_number(app, "--seed", options.seed, "Seed of the noise: the same seed gives the same frames", 0,
               std::numeric_limits<uint64_t>::max());
    add_number(app, "--memory", options.memory_size,
               "Memory of the board in bytes, 4096 to 1073741824; taken from the system only when used",
               smallest_memory, largest_memory);
    app.add_option_function<std::string>(
           "--clock", [&options](const std::string &text) { options.virtual_clock = parse_clock(text); },
           "\"real\", or \"virtual\" to measure frames as fast as the processor allows")
        ->type_name("CLOCK")
        ->default_str("real");
    app.add_option_function<std::string>(
           "--clock-error",
           [&options](const std::string &text) { options.clock_error_ppm = parse_clock_error(text); },
           "How much faster the board's real clock runs than that of the PC, -1000 to 1000 ppm")
        ->type_name("PPM")
        ->default_str("0");
    add_number(app, "--first-tick", options.first_tick,
               "What the board's clock shows at the start, in microseconds, 0 to 4294967295: ticks continue "
               "with 0 after that",
               0, UINT32_MAX);
    app.add_option_function<std::string>(
           "--log-level", [&options](const std::string &text) { options.log_level = parse_log_level(text); },
           "Least severe level that is logged to standard error: " + list_of_log_levels("or"))
        ->type_name("LEVEL")
        ->default_str("WARNING");
}

/** Rejects an option without its value: CLI11 would use the next word, even if that is an option. */
void refuse_missing_value(const CLI::Option &option, const std::string &word, const char *next)
{
    const std::string name = option.get_name();
    const std::string expected = "; expected " + option.get_type_name();
    if (word == name + "=")
    {
        throw CLI::ValidationError(name, "the value is empty" + expected);
    }
    if (word == name && next == nullptr)
    {
        throw CLI::ValidationError(name, "the value is missing" + expected);
    }
    const std::string value = word == name ? next : "";
    if (value.starts_with("--"))
    {
        throw CLI::ValidationError(name, "the value is missing; if it is \"" + value + "\", write " + name +
                                             "=" + value);
    }
}

/** Rejects a flag with a value, and another option without one or that is repeated. */
void check_value(const CLI::Option &option, const std::string &word, const char *next, bool repeated)
{
    if (option.get_items_expected_max() > 0)
    {
        refuse_missing_value(option, word, next);
        if (repeated)
        {
            throw CLI::ValidationError(option.get_name() + " is given twice");
        }
    }
    else if (word.find('=') != std::string::npos)
    {
        throw CLI::ValidationError(word.substr(0, word.find('=')) + " takes no value");
    }
}

/** Rejects options with a missing or surplus value, and those that are given too often. */
void check_values(const CLI::App &app, const std::vector<const char *> &words)
{
    std::set<std::string> given;
    const auto end = std::find(words.begin(), words.end(), std::string_view("--"));
    for (auto each = words.begin(); each != end; ++each)
    {
        const std::string word = *each;
        const std::string name = word.substr(0, word.find('='));
        const auto *const option = name.starts_with("--") ? app.get_option_no_throw(name) : nullptr;
        if (option != nullptr)
        {
            const auto next = std::next(each);
            check_value(*option, word, next == end ? nullptr : *next, !given.insert(name).second);
        }
    }
}

/** Rejects what only a real clock has on a virtual clock: the time of day, and an error. */
void check_clock(const options_t &options)
{
    if (options.virtual_clock && (options.scene_start_s || options.clock_error_ppm != 0.0))
    {
        const std::string name = options.scene_start_s ? "--scene-start" : "--clock-error";
        throw CLI::ValidationError(name + " needs the real clock; remove --clock virtual");
    }
}

/** Describes what is wrong with the command line: unexpected arguments first, in their order. */
std::string describe(const CLI::App &app, const CLI::ParseError &failure)
{
    auto words = app.remaining(true);
    // "--" ends the options, and is allowed anywhere.
    std::erase(words, "--");
    std::string text = words.size() == 1 ? "unexpected argument:" : "unexpected arguments:";
    for (const auto &word : words)
    {
        text += " " + word;
    }
    return words.empty() ? failure.what() : text;
}

/** Prints what is wrong with the command line, or the requested help or version. */
options_result_t explain(const CLI::App &app, const CLI::ParseError &failure, bool stdio)
{
    if (failure.get_exit_code() == 0)
    {
        // With --stdio a host reads standard output, and a person reads standard error.
        app.exit(failure, stdio ? std::cerr : std::cout, std::cerr);
        return options_result_t::done;
    }
    print_error("vantor_server: " + describe(app, failure));
    print_error("Run vantor_server --help for more information.");
    return options_result_t::refused;
}

} // namespace

options_result_t parse_options(int argc, char **argv, options_t &options)
{
    CLI::App app{description, "vantor_server"};
    app.footer(footer);
    app.set_version_flag("--version", std::string("vantor_server ") + VANTOR_SERVER_VERSION);
    add_link_options(app, options);
    add_board_options(app, options);
    add_simulation_options(app, options);
    try
    {
        check_values(app, {argv + 1, argv + argc});
        app.parse(argc, argv);
        check_clock(options);
    }
    catch (const CLI::ParseError &failure)
    {
        return explain(app, failure, std::find(argv, argv + argc, std::string("--stdio")) != argv + argc);
    }
    return options_result_t::run;
}
