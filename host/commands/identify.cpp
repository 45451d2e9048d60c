/** @file
 * `vantor identify`.
 */
#include "commands/identify.h"

#include <memory>
#include <ostream>
#include <string>

#include "commands/common_options.h"
#include "commands/interrupt.h"
#include "commands/server_description.h"
#include "commands/server_links.h"
#include "commands/text_table.h"
#include "recording/number_text.h"
#include "recording/printable.h"
#include "vantor/client.h"

namespace vantor
{
namespace
{

constexpr const char *identify_footer = R"(Examples:
  vantor identify
      starts a private simulated server and describes it
  vantor identify --connect serial:/dev/ttyACM0@115200
  vantor identify --connect tcp:192.168.1.20:6110 --json)";

/** Prints a line, if the server reports the value. */
void print_if_reported(std::ostream &out, const char *title, const std::optional<std::string> &value)
{
    if (value)
    {
        out << title << printable(*value) << "\n";
    }
}

/** Prints what a server reports about its board. */
void print_board(const server_info &info, std::ostream &out)
{
    if (info.board)
    {
        print_if_reported(out, "board      ", info.board->name);
        print_if_reported(out, "id         ", info.board->id);
        print_if_reported(out, "reset      ", info.board->reset_cause);
        print_if_reported(out, "last fault ", info.board->last_fault);
    }
}

/** Prints the memory and stack usage of a server, if it reports them. */
void print_memory(const server_info &info, std::ostream &out)
{
    if (info.memory)
    {
        out << "memory     " << info.memory->size << " bytes, " << info.memory->live << " in use, peak "
            << info.memory->peak << "; " << info.memory->failures << " failed requests\n";
    }
    if (info.stack)
    {
        out << "stack      " << info.stack->size << " bytes, peak " << info.stack->peak << "\n";
    }
}

/** Prints a description of a server. */
exit_code identify(const std::string &where, bool json, const command_streams &streams)
{
    const auto loop = std::make_shared<event_loop>();
    const interrupt_watch watch(*loop);
    auto &out = streams.out;
    const client server(links_to(parse_address(where), loop, streams), {}, loop);
    const auto &info = server.server();
    if (json)
    {
        print_json(out, to_json(where, info));
        return exit_code::success;
    }
    out << "server     vantor_server " << printable(info.server_version) << ", protocol "
        << info.protocol_version << "\n";
    print_board(info, out);
    out << "sensors    " << printable(info.sensor) << ", " << info.sensor_count
        << (info.sensor_count == 1 ? " position" : " positions")
        << ", connected: " << join(info.connected_sensors)
        << (info.board && info.board->sensors ? "; " + printable(*info.board->sensors) : "") << "\n"
        << "clock      "
        << (info.ticks_per_second > 0.0 ? fixed(info.ticks_per_second, 0) + " ticks per second" : "none")
        << "\n";
    if (info.max_baudrate > 0)
    {
        out << "link       up to " << info.max_baudrate << " baud\n";
    }
    print_if_reported(out, "last drop  a host was disconnected: ", info.last_drop);
    print_memory(info, out);
    return exit_code::success;
}

} // namespace

command identify_command()
{
    struct identify_options
    {
        std::string connect = "sim:";
        bool json = false;
    };
    auto options = std::make_shared<identify_options>();
    return {.name = "identify",
            .help = "Show a server's version, board and sensors.",
            .footer = identify_footer,
            .options = {connect_option(options->connect), json_flag(options->json)},
            .run = [options](const command_streams &streams) {
                return identify(options->connect, options->json, streams);
            }};
}

} // namespace vantor
