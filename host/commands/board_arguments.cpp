/** @file
 * Boards on the command line.
 */
#include "commands/board_arguments.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <variant>

#include "commands/usage_error.h"
#include "vantor/address.h"
#include "vantor/board_collection.h"

namespace vantor
{
namespace
{

/** Splits the value of --board. The file is everything before the first "=" that begins an address. */
board_argument parse_board_argument(const std::string &text)
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

/** What two addresses of the same server have in common. */
std::string same_in_addresses(const std::string &text)
{
    const auto where = parse_address(text);
    const auto *const line = std::get_if<serial_address>(&where);
    return line == nullptr ? to_string(where) : line->device;
}

/** Rejects addresses of the same server. */
void require_different_servers(const std::vector<board_argument> &boards)
{
    std::set<std::string> servers;
    for (const auto &board : boards)
    {
        if (!servers.insert(same_in_addresses(board.address)).second)
        {
            throw usage_error(
                "the address " + board.address +
                " is given twice; a server can have only one session, and simulated servers with the "
                "same options measure the same (see \"vantor_server --help\": --board, --seed)");
        }
    }
}

} // namespace

std::vector<board_argument> board_arguments(const std::filesystem::path &configuration,
                                            const std::vector<std::string> &connect,
                                            const std::vector<std::string> &boards)
{
    std::vector<board_argument> all;
    all.reserve(connect.size() + boards.size());
    for (const auto &where : connect)
    {
        all.push_back({.file = configuration, .address = where});
    }
    std::transform(boards.begin(), boards.end(), std::back_inserter(all), parse_board_argument);
    if (all.empty())
    {
        all.push_back({.file = configuration, .address = default_address});
    }
    if (!boards.empty() && connect.empty() && !configuration.empty())
    {
        throw usage_error(
            "CONFIG is for the boards of --connect, but none is given: add --connect ADDRESS, or "
            "give only --board CONFIG=ADDRESS");
    }
    if (all.size() > most_recorded_boards)
    {
        throw usage_error("at most " + std::to_string(most_recorded_boards) + " boards can be given");
    }
    require_different_servers(all);
    return all;
}

} // namespace vantor
