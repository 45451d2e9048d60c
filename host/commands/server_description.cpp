/** @file
 * Describes a server as text and as JSON.
 */
#include "commands/server_description.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>

#include "configuration/optional_members.h"
#include "configuration/word_list.h"

namespace vantor
{

std::string join(const std::vector<unsigned> &numbers)
{
    std::vector<std::string> words;
    std::ranges::transform(numbers, std::back_inserter(words),
                           [](unsigned number) { return std::to_string(number); });
    return words.empty() ? "none" : join(words, ", ");
}

namespace
{

/** What a server reports about its board, as JSON. */
nlohmann::ordered_json to_json(const board_info &board)
{
    auto document = nlohmann::ordered_json::object();
    set_if_known(document, "name", board.name);
    set_if_known(document, "id", board.id);
    set_if_known(document, "reset_cause", board.reset_cause);
    set_if_known(document, "last_fault", board.last_fault);
    set_if_known(document, "sensors", board.sensors);
    return document;
}

/** A number as JSON, without a fraction if it is a whole number, as in the protocol. */
nlohmann::ordered_json to_json(double number)
{
    // Every whole number up to this one is exact.
    constexpr double most = 9007199254740992.0;
    if (number <= most && number == std::floor(number))
    {
        return static_cast<uint64_t>(number);
    }
    return number;
}

} // namespace

nlohmann::ordered_json to_json(const std::string &where, const server_info &info)
{
    nlohmann::ordered_json document = {{"address", where},
                                       {"server_version", info.server_version},
                                       {"protocol_version", info.protocol_version},
                                       {"sensor", info.sensor},
                                       {"sensor_count", info.sensor_count},
                                       {"connected_sensors", info.connected_sensors},
                                       {"ticks_per_second", to_json(info.ticks_per_second)},
                                       {"max_baudrate", info.max_baudrate}};
    if (info.last_drop)
    {
        document["last_drop"] = *info.last_drop;
    }
    if (info.board)
    {
        document["board"] = to_json(*info.board);
    }
    if (info.memory)
    {
        document["memory"] = {{"size", info.memory->size},
                              {"live", info.memory->live},
                              {"peak", info.memory->peak},
                              {"largest_free", info.memory->largest_free},
                              {"failures", info.memory->failures}};
    }
    if (info.stack)
    {
        document["stack"] = {{"size", info.stack->size}, {"peak", info.stack->peak}};
    }
    if (info.configuration)
    {
        document["configuration"] = *info.configuration;
    }
    return document;
}

} // namespace vantor
