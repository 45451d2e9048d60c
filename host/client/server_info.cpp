/** @file
 * Decodes what a server reports about itself.
 */
#include "vantor/session.h"

#include "client/json_members.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

/** Decodes the memory usage. */
memory_use decode_memory(const nlohmann::json &memory)
{
    return {.size = integer_member<uint32_t>(memory, "size"),
            .live = integer_member<uint32_t>(memory, "live"),
            .peak = integer_member<uint32_t>(memory, "peak"),
            .largest_free = integer_member<uint32_t>(memory, "largest_free"),
            .failures = integer_member<uint32_t>(memory, "failures")};
}

/** Decodes the stack usage. */
stack_use decode_stack(const nlohmann::json &stack)
{
    return {.size = integer_member<uint32_t>(stack, "size"), .peak = integer_member<uint32_t>(stack, "peak")};
}

/** Decodes the description of the board. */
board_info decode_board(const nlohmann::json &board)
{
    if (!board.is_object())
    {
        throw protocol_error("The server sent a \"board\" that is not an object.");
    }
    return {.name = optional_text_member(board, "name"),
            .id = optional_text_member(board, "id"),
            .reset_cause = optional_text_member(board, "reset_cause"),
            .last_fault = optional_text_member(board, "last_fault"),
            .sensors = optional_text_member(board, "sensors")};
}

/** Decodes the rate of the server's clock. Within these bounds all times can be computed. */
double decode_ticks_per_second(const nlohmann::json &document)
{
    constexpr double lowest = 1e-3;
    constexpr double highest = 1e12;
    const double rate = number_member(document, "ticks_per_second");
    if (rate != 0.0 && !(rate >= lowest && rate <= highest))
    {
        throw protocol_error(
            "The server reports \"ticks_per_second\": " + document["ticks_per_second"].dump() +
            "; it must be 0 (no clock) or from 0.001 to 1e12.");
    }
    return rate;
}

} // namespace

server_info decode_server_info(const nlohmann::json &document)
{
    server_info info;
    info.server_version = text_member(document, "server_version");
    info.protocol_version = integer_member<int32_t>(document, "protocol_version");
    info.sensor = text_member(document, "sensor");
    info.sensor_count = integer_member<uint16_t>(document, "sensor_count");
    for (const auto &id : array_member(document, "connected_sensors"))
    {
        info.connected_sensors.push_back(
            static_cast<unsigned>(to_integer(id, "connected_sensors", 1, info.sensor_count)));
    }
    info.ticks_per_second = decode_ticks_per_second(document);
    info.max_baudrate = integer_member<uint32_t>(document, "max_baudrate");
    info.last_drop = optional_text_member(document, "last_drop");
    if (document.contains("board"))
    {
        info.board = decode_board(document["board"]);
    }
    if (document.contains("memory"))
    {
        info.memory = decode_memory(document["memory"]);
    }
    if (document.contains("stack"))
    {
        info.stack = decode_stack(document["stack"]);
    }
    if (document.contains("configuration"))
    {
        info.configuration = document["configuration"];
    }
    return info;
}

} // namespace vantor
