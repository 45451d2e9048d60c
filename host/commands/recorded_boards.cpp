/** @file
 * Which boards `vantor record` records.
 */
#include "commands/recorded_boards.h"

#include <algorithm>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "commands/truth_option.h"
#include "commands/usage_error.h"
#include "commands/validation.h"
#include "vantor/address.h"
#include "vantor/board_collection.h"
#include "vantor/calibration_file.h"
#include "vantor/configuration.h"

namespace vantor
{
namespace
{

/** A board on the command line. */
struct given_board
{
    std::filesystem::path file; /**< of the configuration; empty if not given */
    std::string address;
};

/** Splits the value of --board. The file is everything before the first "=" that begins an address. */
given_board parse_board(const std::string &text)
{
    auto end = std::string::npos;
    for (const char *kind : {"=tcp:", "=unix:", "=serial:", "=sim:"})
    {
        end = std::min(end, text.find(kind));
    }
    end = end == std::string::npos ? text.find('=') : end;
    if (end == std::string::npos || end == 0)
    {
        throw usage_error("--board: \"" + text +
                          "\" is not CONFIG=ADDRESS; write for example --board b.json=tcp:192.168.1.20:6110");
    }
    return {.file = text.substr(0, end), .address = text.substr(end + 1)};
}

/** The boards of both options, in this order. */
std::vector<given_board> given_boards(const record_options &options)
{
    std::vector<given_board> boards;
    for (const auto &text : options.connect)
    {
        boards.push_back({.file = options.configuration, .address = text});
    }
    for (const auto &text : options.boards)
    {
        boards.push_back(parse_board(text));
    }
    if (boards.empty())
    {
        boards.push_back({.file = options.configuration, .address = default_address});
    }
    return boards;
}

/** What two addresses of the same server have in common. */
std::string server_of(const std::string &text)
{
    const auto where = parse_address(text);
    const auto *const line = std::get_if<serial_address>(&where);
    return line == nullptr ? to_string(where) : line->device;
}

/** Rejects addresses of the same server. */
void require_different_servers(const std::vector<given_board> &boards)
{
    std::set<std::string> servers;
    for (const auto &board : boards)
    {
        if (!servers.insert(server_of(board.address)).second)
        {
            throw usage_error("the address " + board.address +
                              " is given twice; a server can only be recorded once, and simulated servers "
                              "with the same options measure the same (see \"vantor_server --help\": "
                              "--board, --seed)");
        }
    }
}

/** Rejects options that do not fit the boards. */
void check_options(const record_options &options, const std::vector<given_board> &boards)
{
    if (!options.boards.empty() && options.connect.empty() && !options.configuration.empty())
    {
        throw usage_error(
            "CONFIG is for the boards of --connect, but none is given: add --connect ADDRESS, or "
            "give only --board CONFIG=ADDRESS");
    }
    if (boards.size() > 1 && !options.truth.empty())
    {
        throw usage_error("--truth is the file of one server, but " + std::to_string(boards.size()) +
                          " boards are given: leave it out, which records the truth of sim: addresses, or "
                          "record each board with a command of its own");
    }
    if (boards.size() > most_recorded_boards)
    {
        throw usage_error("at most " + std::to_string(most_recorded_boards) + " boards can be recorded");
    }
    require_different_servers(boards);
}

} // namespace

nlohmann::json read_configuration(const std::filesystem::path &file, const record_options &options,
                                  const command_streams &streams)
{
    nlohmann::json configuration;
    if (file.empty() && !options.calibration.empty())
    {
        throw usage_error("--calibration needs a CONFIG: a replay does not calibrate.");
    }
    if (!file.empty())
    {
        configuration = load_configuration(file);
        if (!options.no_validate)
        {
            require_valid(configuration, file, streams.err, no_validate_advice);
        }
    }
    if (!options.calibration.empty())
    {
        add_calibrations(configuration, options.calibration);
    }
    return configuration;
}

board_list list_boards(const record_options &options, const command_streams &streams,
                       const std::shared_ptr<event_loop> &loop)
{
    const auto given = given_boards(options);
    check_options(options, given);
    board_list list;
    for (const auto &board : given)
    {
        const auto where = parse_address(board.address);
        if (board.file.empty() && std::holds_alternative<simulator_address>(where))
        {
            throw usage_error(configuration_missing);
        }
        auto served = server_with_truth(where, options.truth);
        list.boards.push_back(
            {.file = board.file,
             .configuration = read_configuration(board.file, options, streams),
             .address = board.address,
             .open_links = [where = served.where,
                            loop] { return open_link(where, client_timeouts{}.connect, loop); },
             .truth = served.truth.get()});
        list.truths.push_back(std::move(served.truth));
    }
    return list;
}

} // namespace vantor
