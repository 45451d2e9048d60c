/** @file
 * What a bridge knows about a board.
 */
#include "bridge/board_state.h"

#include <cmath>
#include <limits>

#include "bridge/batch.h"
#include "client/json_members.h"
#include "configuration/optional_members.h"
#include "vantor/configuration.h"

namespace vantor
{
namespace
{

/** The version of the document. */
constexpr int state_version = 1;

/** Adds what the server of the board has reported about itself. */
void add_server(nlohmann::ordered_json &document, const server_info &server)
{
    document["server_version"] = server.server_version;
    if (server.board)
    {
        set_if_known(document, "board_name", server.board->name);
        set_if_known(document, "board_id", server.board->id);
    }
}

/** Reads what the server of the board has reported about itself. */
std::optional<server_info> read_server(const nlohmann::json &document)
{
    auto version = optional_text_member(document, "server_version");
    if (!version)
    {
        return std::nullopt;
    }
    server_info server;
    server.server_version = std::move(*version);
    server.board.emplace();
    server.board->name = optional_text_member(document, "board_name");
    server.board->id = optional_text_member(document, "board_id");
    return server;
}

/** Reads a temperature; nothing if there is none. */
std::optional<int> read_temperature(const nlohmann::json &document)
{
    if (!document.contains("temperature"))
    {
        return std::nullopt;
    }
    return integer_member<int16_t>(document, "temperature");
}

/** Reads a number that is not null. */
double known_number(const nlohmann::json &document, const char *name)
{
    const auto number = number_member(document, name);
    if (std::isnan(number))
    {
        throw bad_batch("The member \"" + std::string(name) + "\" of a state is not a number.");
    }
    return number;
}

/** Like decode_state(), but also throws what the readers of JSON throw. */
decoded_state read_state(const nlohmann::json &document)
{
    decoded_state read;
    if (to_integer(member(document, "vantor_state"), "vantor_state", 1, std::numeric_limits<int>::max()) !=
        state_version)
    {
        throw bad_batch("The state has another version than 1: a newer Vantor has written it.");
    }
    read.site = name_member(document, "site");
    read.bridge = optional_text_member(document, "bridge").value_or("");
    read.utc_s = known_number(document, "utc_s");
    read.interval_s = known_number(document, "interval_s");
    read.state = {.board = name_member(document, "board"),
                  .address = text_member(document, "address"),
                  .online = boolean_member(document, "online"),
                  .fault = optional_text_member(document, "fault").value_or(""),
                  .server = read_server(document),
                  .sessions = count_member(document, "sessions"),
                  .frames = count_member(document, "frames"),
                  .lost = count_member(document, "lost"),
                  .dropped = count_member(document, "dropped"),
                  .waiting = count_member(document, "waiting"),
                  .rate = known_number(document, "rate"),
                  .temperature = read_temperature(document),
                  .calibration_needed = boolean_member(document, "calibration_needed")};
    return read;
}

} // namespace

std::string encode_state(const board_state &state, const state_report &about)
{
    const std::chrono::duration<double> utc =
        std::chrono::floor<std::chrono::milliseconds>(about.now.time_since_epoch());
    nlohmann::ordered_json document = {{"vantor_state", state_version},
                                       {"site", about.site},
                                       {"board", state.board},
                                       {"bridge", about.bridge},
                                       {"utc_s", utc.count()},
                                       {"interval_s", about.interval.count()},
                                       {"online", state.online},
                                       {"address", state.address},
                                       {"sessions", state.sessions},
                                       {"frames", state.frames},
                                       {"rate", state.rate},
                                       {"lost", state.lost},
                                       {"dropped", state.dropped},
                                       {"waiting", state.waiting},
                                       {"calibration_needed", state.calibration_needed}};
    set_if_known(document, "temperature", state.temperature);
    if (!state.fault.empty())
    {
        document["fault"] = state.fault;
    }
    if (state.server)
    {
        add_server(document, *state.server);
    }
    return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

decoded_state decode_state(std::string_view bytes)
try
{
    return read_state(parse_json_text(bytes, "The state"));
}
catch (const bad_batch &)
{
    throw;
}
catch (const error &fault)
{
    throw bad_batch(fault.what());
}

} // namespace vantor
