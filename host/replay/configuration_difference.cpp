/** @file
 * Compares a requested configuration with that of a recording.
 */
#include "replay/configuration_difference.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

#include "configuration/sensor_knowledge.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** Finds the first difference. Pointers lead to the normal form of a document, in which every "config" has
 * "subsweeps". */
class comparison
{
public:
    /** Compares two values that a schema describes. */
    void compare(const json &recorded, const json &requested, const json &schema, const std::string &pointer)
    {
        const auto &resolved = resolve(schema);
        if (recorded.is_object() && requested.is_object() && resolved.contains("properties"))
        {
            compare_members(recorded, requested, resolved["properties"], pointer);
        }
        else if (recorded.is_array() && requested.is_array())
        {
            compare_elements(recorded, requested, resolved.value("items", json::object()), pointer);
        }
        else if (recorded != requested && !difference_)
        {
            difference_ = {.pointer = pointer, .requested = requested, .recorded = recorded};
        }
    }

    /** The first difference, if there is one. */
    [[nodiscard]] const std::optional<configuration_difference> &difference() const noexcept
    {
        return difference_;
    }

private:
    /** Follows a reference to a definition of the schema. */
    static const json &resolve(const json &schema)
    {
        if (!schema.contains("$ref"))
        {
            return schema;
        }
        const auto pointer = schema["$ref"].get<std::string>().substr(1);
        return configuration_schema().at(json::json_pointer(pointer));
    }

    /** The value of a member: its default if it is missing, null if it has none. */
    static json value_of(const json &object, const json &properties, const std::string &name)
    {
        if (const auto found = object.find(name); found != object.end())
        {
            return *found;
        }
        const auto schema = properties.find(name);
        return schema == properties.end() ? json() : resolve(*schema).value("default", json());
    }

    void compare_members(const json &recorded, const json &requested, const json &properties,
                         const std::string &pointer)
    {
        std::set<std::string> names;
        for (const auto *const object : {&recorded, &requested, &properties})
        {
            for (const auto &member : object->items())
            {
                names.insert(member.key());
            }
        }
        for (const auto &name : names)
        {
            compare(value_of(recorded, properties, name), value_of(requested, properties, name),
                    properties.value(name, json::object()), (json::json_pointer(pointer) / name).to_string());
        }
    }

    void compare_elements(const json &recorded, const json &requested, const json &schema,
                          const std::string &pointer)
    {
        for (size_t i = 0; i < std::max(recorded.size(), requested.size()); ++i)
        {
            compare(i < recorded.size() ? recorded[i] : json(), i < requested.size() ? requested[i] : json(),
                    schema, pointer + "/" + std::to_string(i));
        }
    }

    std::optional<configuration_difference> difference_;
};

/** Removes members that a server ignores. */
void keep_known(json &object, const json &properties)
{
    for (auto member = object.begin(); member != object.end();)
    {
        member = properties.contains(member.key()) ? std::next(member) : object.erase(member);
    }
}

/** Moves the members of a single sub-sweep from "config" into "subsweeps". */
void move_subsweep(json &config)
{
    if (config.contains("subsweeps"))
    {
        return;
    }
    auto subsweep = json::object();
    for (const auto &property : configuration_schema()["$defs"]["subsweep"]["properties"].items())
    {
        if (const auto found = config.find(property.key()); found != config.end())
        {
            subsweep[property.key()] = *found;
            config.erase(found);
        }
    }
    config["subsweeps"] = json::array({std::move(subsweep)});
}

/** Brings an item to its normal form. */
void normalise_item(json &item)
{
    if (item.is_object())
    {
        keep_known(item, configuration_schema()["$defs"]["item"]["properties"]);
        if (const auto config = item.find("config"); config != item.end() && config->is_object())
        {
            move_subsweep(*config);
        }
    }
}

/** Replaces the update rate and its alias by one member, which is missing if there is no limit. */
void normalise_rate(json &document)
{
    const auto rate = document.value("max_update_rate", document.value("update_rate", json()));
    document.erase("update_rate");
    document.erase("max_update_rate");
    if (!rate.is_null() && !(rate.is_number() && rate.get<double>() <= 0.0))
    {
        document["max_update_rate"] = rate;
    }
}

/** Returns the normal form of a document: equal measurements are written in the same way, and members that do
 * not change what is measured are missing. */
json normal_form(json document)
{
    if (!document.is_object())
    {
        return document;
    }
    keep_known(document, configuration_schema()["properties"]);
    for (const auto *const name : {"$schema", "enable_log", "enable_diagnostics", "calibration_info"})
    {
        document.erase(name);
    }
    normalise_rate(document);
    if (const auto groups = document.find("groups"); groups != document.end() && groups->is_array())
    {
        for (auto &group : *groups)
        {
            for (auto &item : group)
            {
                normalise_item(item);
            }
        }
    }
    return document;
}

/** Converts a pointer to the normal form of a document into one to the document itself. */
std::string pointer_in(const json &document, std::string pointer)
{
    constexpr std::string_view added = "/subsweeps/0";
    const auto place = pointer.find(added);
    if (place != std::string::npos &&
        !document.contains(json::json_pointer(pointer.substr(0, place) + "/subsweeps")))
    {
        pointer.erase(place, added.size());
    }
    return pointer;
}

/** Formats a value for a message; objects and lists can be long. */
std::string value_text(const json &value)
{
    if (value.is_null())
    {
        return "missing";
    }
    if (value.is_structured())
    {
        return value.is_array() ? "a list" : "an object";
    }
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

} // namespace

std::optional<configuration_difference> first_difference(const json &recorded, const json &requested)
{
    comparison compared;
    compared.compare(normal_form(recorded), normal_form(requested), configuration_schema(), "");
    auto difference = compared.difference();
    if (difference)
    {
        difference->pointer = pointer_in(requested, difference->pointer);
    }
    return difference;
}

std::string difference_text(const configuration_difference &difference)
{
    const auto place = difference.pointer.empty() ? std::string("The configuration") : difference.pointer;
    return place + " is " + value_text(difference.requested) + ", but in the recording it is " +
           value_text(difference.recorded) + ".";
}

} // namespace vantor
