/** @file
 * Reading the command line of `vantor_server`.
 */
#include "options.h"

#include <map>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

namespace
{

const std::map<std::string, zet_log_level_t> log_levels = {
    {"ERROR", ZET_LOG_LEVEL_ERROR},     {"WARNING", ZET_LOG_LEVEL_WARNING}, {"INFO", ZET_LOG_LEVEL_INFO},
    {"VERBOSE", ZET_LOG_LEVEL_VERBOSE}, {"DEBUG", ZET_LOG_LEVEL_DEBUG},
};

/** The board's memory may be as small as on a microcontroller. */
constexpr size_t smallest_memory = 4096;
constexpr size_t largest_memory = size_t{1024} * 1024 * 1024;

constexpr const char *description =
    "Measures with simulated k330 radar sensors and streams the frames to one host at a time.\n"
    "The protocol on the link is in docs/protocol.md; `vantor` is a host that speaks it.";

constexpr const char *examples = "Examples:\n"
                                 "  vantor_server --tcp 6110\n"
                                 "  vantor_server --tcp 0.0.0.0:6110 --sensors 2\n"
                                 "  vantor_server --pty --log-level INFO\n";

/** Takes "PORT" or "HOST:PORT" apart; the text of what is wrong, or nothing. */
std::string parse_tcp_address(const std::string &text, options_t &options)
{
    const size_t colon = text.rfind(':');
    const std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
    if (colon != std::string::npos)
    {
        options.tcp_host = text.substr(0, colon);
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

} // namespace

options_result parse_options(int argc, char **argv, options_t &options)
{
    CLI::App app{description, "vantor_server"};
    app.footer(examples);
    app.set_version_flag("--version", std::string("vantor_server ") + VANTOR_SERVER_VERSION);

    std::string clock = "real";
    auto *link = app.add_option_group("link", "Exactly one of them");
    link->add_option_function<std::string>(
            "--tcp",
            [&](const std::string &text) {
                const std::string fault = parse_tcp_address(text, options);
                if (!fault.empty())
                {
                    throw CLI::ValidationError("--tcp", fault);
                }
            },
            "Listen on a TCP port, on the loopback interface unless a host is given")
        ->type_name("[HOST:]PORT");
    bool pty = false;
    bool stdio = false;
    link->add_flag("--pty", pty, "Offer a pseudo-terminal, to be opened like any serial device");
    link->add_flag("--stdio", stdio, "Speak on standard input and output");
    link->require_option(1);
    app.add_option("--sensors", options.sensor_count, "Sensor positions on the board, 1 to 64")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
    app.add_option("--scene", options.scene_path,
                   "What the sensors see (docs/simulator.md); built in when absent")
        ->type_name("FILE.json");
    app.add_option("--seed", options.seed, "Seed of all noise: the same seed gives the same frames")
        ->capture_default_str();
    app.add_option("--memory", options.memory_size,
                   "Memory of the board, 4096 to 1073741824 bytes; costs nothing before it is used")
        ->check(CLI::Range(smallest_memory, largest_memory))
        ->type_name("BYTES")
        ->capture_default_str();
    app.add_option("--clock", clock, "\"real\", or \"virtual\" for frames as fast as the processor allows")
        ->check(CLI::IsMember({"real", "virtual"}))
        ->capture_default_str();
    app.add_option("--log-level", options.log_level, "Least severe log line that goes to standard error")
        ->transform(CLI::CheckedTransformer(log_levels, CLI::ignore_case))
        ->default_str("WARNING");
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError &error)
    {
        return app.exit(error) == 0 ? options_result::done : options_result::refused;
    }
    if (pty)
    {
        options.link = link_kind::pty;
    }
    else if (stdio)
    {
        options.link = link_kind::stdio;
    }
    options.virtual_clock = clock == "virtual";
    return options_result::run;
}
