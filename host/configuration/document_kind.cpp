/** @file
 * Finds out whether a document is a configuration or a scene.
 */
#include "configuration/document_kind.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <string>
#include <system_error>
#include <tuple>

#include <nlohmann/json.hpp>

#include "configuration/sensor_knowledge.h"
#include "vantor/configuration.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** Most bytes that are read to recognise a document. */
constexpr size_t most_bytes_of_document = size_t{1} << 20;

/** The members that only a scene has, as in docs/scene.schema.json. */
const std::set<std::string> &scene_members()
{
    static const std::set<std::string> members = {"bodies",      "description", "faults",       "hardware",
                                                  "interferers", "sensors",     "temperatures", "targets"};
    return members;
}

/** A member that every kind of document can have. */
constexpr const char *common_member = "$schema";

/** The members that only a configuration has. */
std::set<std::string> configuration_members()
{
    std::set<std::string> members;
    for (const auto &[name, schema] : configuration_schema().at("properties").items())
    {
        members.insert(name);
    }
    members.erase(common_member);
    return members;
}

/** The start of a text file. */
std::string start_of(const std::filesystem::path &file)
{
    std::ifstream stream(file, std::ios::binary);
    std::string text(most_bytes_of_document, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(stream.gcount()));
    return text;
}

/** The members of a JSON object, up to the place where the text is not JSON. */
std::set<std::string> members_of(const std::string &text)
{
    std::set<std::string> members;
    const auto note = [&members](int depth, json::parse_event_t event, json &value) {
        if (depth == 1 && event == json::parse_event_t::key)
        {
            members.insert(value.get<std::string>());
        }
        // Nothing is kept.
        return event == json::parse_event_t::object_start && depth == 0;
    };
    std::ignore = json::parse(text, note, false);
    return members;
}

/** Whether two sets have an element in common. */
bool have_common(const std::set<std::string> &first, const std::set<std::string> &second)
{
    return std::any_of(first.begin(), first.end(),
                       [&second](const std::string &each) { return second.contains(each); });
}

/** Whether a name may be that of an example scene. */
bool is_example_name(const std::filesystem::path &file)
{
    std::error_code failure;
    return file.string().find_first_of("./") == std::string::npos && !file.empty() &&
           !std::filesystem::exists(file, failure);
}

/** The elements of a set in a sentence. */
std::string listed(const std::set<std::string> &words)
{
    std::string text;
    for (const auto &word : words)
    {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

} // namespace

document_kind recognise_document(const std::filesystem::path &file)
{
    std::error_code failure;
    if (!std::filesystem::is_regular_file(file, failure))
    {
        return is_example_name(file) ? document_kind::scene : document_kind::configuration;
    }
    auto members = members_of(start_of(file));
    members.erase(common_member);
    const auto of_configuration = configuration_members();
    if (members.empty() || have_common(members, of_configuration))
    {
        return document_kind::configuration;
    }
    if (have_common(members, scene_members()))
    {
        return document_kind::scene;
    }
    throw configuration_error(
        file.string() + " is neither a configuration nor a scene: a configuration has members such as " +
        listed(of_configuration) + ", a scene has members such as " + listed(scene_members()) + ".");
}

} // namespace vantor
