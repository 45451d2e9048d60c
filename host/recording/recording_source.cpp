/** @file
 * Describes where a recording comes from.
 */
#include "vantor/recording_source.h"

#include <string>
#include <vector>

#include "configuration/optional_members.h"
#include "recording/input_file.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

/** The value of an option in the arguments of a server, "--name VALUE" or "--name=VALUE". */
std::string option_value(const std::vector<std::string> &arguments, const std::string &name,
                         const std::string &otherwise)
{
    for (size_t i = 0; i < arguments.size(); ++i)
    {
        if (arguments[i].starts_with(name + "="))
        {
            return arguments[i].substr(name.size() + 1);
        }
        if (arguments[i] == name && i + 1 < arguments.size())
        {
            return arguments[i + 1];
        }
    }
    return otherwise;
}

/** A text as JSON; bytes that are not UTF-8, as in some file names, are replaced. */
ordered_json valid_text(const std::string &text)
{
    return ordered_json::parse(
        ordered_json(text).dump(-1, ' ', false, ordered_json::error_handler_t::replace));
}

/** A seed as a number. */
ordered_json read_seed(const std::string &text)
{
    auto seed = ordered_json::parse(text, nullptr, false);
    return seed.is_number_unsigned() ? seed : valid_text(text);
}

/** The content of a scene file; null if it can no longer be read. */
ordered_json read_scene(const std::string &path)
try
{
    auto scene = ordered_json::parse(read_document_text(path), nullptr, false);
    return scene.is_discarded() ? ordered_json() : scene;
}
catch (const bad_recording &)
{
    return nullptr;
}

/** The scene, seed and clock of a simulated server, from its arguments and the defaults of vantor_server. */
ordered_json describe_simulator(const std::vector<std::string> &arguments)
{
    const auto scene = option_value(arguments, "--scene", "");
    ordered_json simulator = {{"scene", valid_text(scene.empty() ? "default" : scene)},
                              {"seed", read_seed(option_value(arguments, "--seed", "1"))},
                              {"clock", valid_text(option_value(arguments, "--clock", "real"))}};
    if (!scene.empty())
    {
        simulator["scene_document"] = read_scene(scene);
    }
    return simulator;
}

/** What a server reports about its board, with its sensors. */
ordered_json describe_board(const board_info &board)
{
    auto members = ordered_json::object();
    set_if_known(members, "name", board.name);
    set_if_known(members, "id", board.id);
    set_if_known(members, "sensors", board.sensors);
    return members;
}

} // namespace

ordered_json describe_source(const address &where, const server_info &server)
{
    ordered_json source = {{"address", valid_text(to_string(where))}};
    if (server.board)
    {
        source["board"] = describe_board(*server.board);
    }
    if (const auto *const simulated = std::get_if<simulator_address>(&where))
    {
        source["simulator"] = describe_simulator(simulated->arguments);
    }
    return source;
}

} // namespace vantor
