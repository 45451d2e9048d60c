/** @file
 * Checks documents against a JSON Schema, for tests.
 */
#include "json_schema.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

namespace
{

using json = nlohmann::ordered_json;

/** Checks a document against the value of a keyword; the last two arguments are the schema around it and the
 * root. */
using keyword_check = std::function<bool(const json &, const json &, const json &, const json &)>;

bool has_type(const json &document, const std::string &type)
{
    if (type == "integer")
    {
        return document.is_number() && std::floor(document.get<double>()) == document.get<double>();
    }
    return (type == "number" && document.is_number()) || (type == "string" && document.is_string()) ||
           (type == "array" && document.is_array()) || (type == "object" && document.is_object());
}

/** How many of several schemas a document fits. */
size_t count_fitting(const json &document, const json &schemas, const json &root)
{
    return static_cast<size_t>(std::count_if(schemas.begin(), schemas.end(), [&](const json &schema) {
        return fits_schema(document, schema, root);
    }));
}

bool has_members(const json &document, const json &names)
{
    return !document.is_object() || std::all_of(names.begin(), names.end(), [&](const json &name) {
        return document.contains(name.get<std::string>());
    });
}

bool fits_properties(const json &document, const json &properties, const json &root)
{
    return !document.is_object() ||
           std::all_of(properties.items().begin(), properties.items().end(), [&](const auto &each) {
               return !document.contains(each.key()) || fits_schema(document[each.key()], each.value(), root);
           });
}

bool has_only(const json &document, const json &properties)
{
    return !document.is_object() ||
           std::all_of(document.items().begin(), document.items().end(),
                       [&](const auto &each) { return properties.contains(each.key()); });
}

bool has_dependent(const json &document, const json &dependent)
{
    return std::all_of(dependent.items().begin(), dependent.items().end(), [&](const auto &each) {
        return !document.is_object() || !document.contains(each.key()) || has_members(document, each.value());
    });
}

const std::map<std::string, keyword_check> &keyword_checks()
{
    static const std::map<std::string, keyword_check> checks = {
        {"$ref",
         [](const json &document, const json &value, const json & /*schema*/, const json &root) {
             const auto pointer = json::json_pointer(value.get<std::string>().substr(1));
             return fits_schema(document, root.at(pointer), root);
         }},
        {"type", [](const json &document, const json &value, const json &,
                    const json &) { return has_type(document, value.get<std::string>()); }},
        {"const", [](const json &document, const json &value, const json &,
                     const json &) { return document == value; }},
        {"enum", [](const json &document, const json &value, const json &,
                    const json &) { return std::find(value.begin(), value.end(), document) != value.end(); }},
        {"minimum",
         [](const json &document, const json &value, const json &, const json &) {
             return !document.is_number() || document.get<double>() >= value.get<double>();
         }},
        {"maximum",
         [](const json &document, const json &value, const json &, const json &) {
             return !document.is_number() || document.get<double>() <= value.get<double>();
         }},
        {"minLength",
         [](const json &document, const json &value, const json &, const json &) {
             return !document.is_string() || document.get<std::string>().size() >= value.get<size_t>();
         }},
        {"minItems",
         [](const json &document, const json &value, const json &, const json &) {
             return !document.is_array() || document.size() >= value.get<size_t>();
         }},
        {"maxItems",
         [](const json &document, const json &value, const json &, const json &) {
             return !document.is_array() || document.size() <= value.get<size_t>();
         }},
        {"items",
         [](const json &document, const json &value, const json &, const json &root) {
             return !document.is_array() ||
                    std::all_of(document.begin(), document.end(),
                                [&](const json &each) { return fits_schema(each, value, root); });
         }},
        {"required", [](const json &document, const json &value, const json &,
                        const json &) { return has_members(document, value); }},
        {"properties", [](const json &document, const json &value, const json &,
                          const json &root) { return fits_properties(document, value, root); }},
        {"additionalProperties",
         [](const json &document, const json &value, const json &schema, const json &) {
             return value == true || has_only(document, schema.at("properties"));
         }},
        {"dependentRequired", [](const json &document, const json &value, const json &,
                                 const json &) { return has_dependent(document, value); }},
        {"allOf", [](const json &document, const json &value, const json &,
                     const json &root) { return count_fitting(document, value, root) == value.size(); }},
        {"anyOf", [](const json &document, const json &value, const json &,
                     const json &root) { return count_fitting(document, value, root) > 0U; }},
        {"oneOf", [](const json &document, const json &value, const json &,
                     const json &root) { return count_fitting(document, value, root) == 1U; }},
        {"not", [](const json &document, const json &value, const json &,
                   const json &root) { return !fits_schema(document, value, root); }},
    };
    return checks;
}

} // namespace

bool fits_schema(const json &document, const json &schema, const json &root)
{
    static const std::set<std::string> notes = {"$schema",     "$id",     "$defs", "title",
                                                "description", "default", "unit"};
    if (schema.is_boolean())
    {
        return schema.get<bool>();
    }
    return std::all_of(schema.items().begin(), schema.items().end(), [&](const auto &each) {
        const auto found = keyword_checks().find(each.key());
        if (found == keyword_checks().end() && !notes.contains(each.key()))
        {
            throw std::logic_error("the schema uses " + each.key());
        }
        return found == keyword_checks().end() || found->second(document, each.value(), schema, root);
    });
}
