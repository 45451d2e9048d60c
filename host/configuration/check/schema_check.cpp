/** @file
 * Checks a document against a JSON Schema.
 */
#include "configuration/check/schema_check.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <regex>

#include "configuration/check/nearest_word.h"
#include "configuration/check/shortened.h"
#include "configuration/word_list.h"

namespace vantor
{
namespace
{

using nlohmann::json;

/** Whether a value has a JSON Schema type; a number without a fraction is an integer. */
bool has_type(const json &value, const std::string &type)
{
    if (type == "integer")
    {
        return value.is_number_integer() ||
               (value.is_number() && std::trunc(value.get<double>()) == value.get<double>());
    }
    return (type == "number" && value.is_number()) || (type == "string" && value.is_string()) ||
           (type == "boolean" && value.is_boolean()) || (type == "array" && value.is_array()) ||
           (type == "object" && value.is_object());
}

/** A type in words. */
std::string describe_type(const std::string &type)
{
    return type == "integer"   ? "a whole number"
           : type == "number"  ? "a number"
           : type == "string"  ? "a string"
           : type == "boolean" ? "true or false"
           : type == "array"   ? "a list"
                               : "an object";
}

/** The bounds of a number in words; empty if there are none. */
std::string describe_bounds(const json &schema)
{
    if (schema.contains("const"))
    {
        return schema["const"].dump();
    }
    if (schema.contains("minimum") && schema.contains("maximum"))
    {
        return "from " + schema["minimum"].dump() + " to " + schema["maximum"].dump();
    }
    return schema.contains("minimum") ? "from " + schema["minimum"].dump() : std::string();
}

/** What a schema allows, in words. */
std::string describe(const json &schema)
{
    std::string text;
    if (schema.contains("enum"))
    {
        for (const auto &word : schema["enum"])
        {
            text += (text.empty() ? "" : ", ") + word.dump();
        }
        return text;
    }
    for (const auto &branch : schema.value("anyOf", json::array({schema})))
    {
        const auto bounds = describe_bounds(branch);
        text += bounds.empty() ? "" : (text.empty() ? ", " : " or ") + bounds;
    }
    return describe_type(schema["type"]) + text;
}

/** Whether a number is below another. If they are not whole, the server rounds them to float. */
bool is_below(double left, double right, bool whole)
{
    return whole ? left < right : static_cast<float>(left) < static_cast<float>(right);
}

/** The number within the bounds of a schema that is closest to a value. */
json closest_number(double value, const json &schema)
{
    const bool whole = schema.value("type", "") == "integer";
    if (schema.contains("const"))
    {
        return schema["const"];
    }
    if (schema.contains("minimum") && is_below(value, schema["minimum"].get<double>(), whole))
    {
        return schema["minimum"];
    }
    if (schema.contains("maximum") && is_below(schema["maximum"].get<double>(), value, whole))
    {
        return schema["maximum"];
    }
    // Larger numbers have no fraction.
    constexpr double largest_exact = 9007199254740992.0;
    const bool rounded = whole && std::fabs(value) < largest_exact;
    return rounded ? json(std::llround(value)) : json(value);
}

/** Walks through a document and its schema, and collects the faults. */
class checker
{
public:
    checker(const json &root, fault_list &found) : root_(root), found_(found)
    {
    }

    /** Checks a value against a schema. */
    void check(const json &value, const json &given, const json::json_pointer &place)
    {
        const auto &schema = resolve(given);
        const bool fraction = value.is_number() && schema.value("type", "") == "integer";
        if (schema.contains("type") && !has_type(value, schema["type"]) && !fraction)
        {
            add(place, shorten(value), describe(schema));
            return;
        }
        check_enum(value, schema, place);
        check_number(value, schema, place);
        check_pattern(value, schema, place);
        check_object(value, schema, place);
        check_condition(value, schema, place);
        check_array(value, schema, place);
    }

private:
    /** Resolves a reference. */
    const json &resolve(const json &schema) const
    {
        if (!schema.contains("$ref"))
        {
            return schema;
        }
        return root_.at(json::json_pointer(schema["$ref"].get<std::string>().substr(1)));
    }

    /** A value as text, shortened if it is long. */
    static std::string shorten(const json &value)
    {
        return shortened(value.dump(-1, ' ', false, json::error_handler_t::replace));
    }

    void add(const json::json_pointer &place, std::string got, std::string allowed,
             nlohmann::ordered_json nearest = {})
    {
        found_.add([&] {
            return configuration_fault{place.to_string(), std::move(got), std::move(allowed),
                                       std::move(nearest)};
        });
    }

    void check_enum(const json &value, const json &schema, const json::json_pointer &place)
    {
        if (!schema.contains("enum"))
        {
            return;
        }
        const auto words = schema["enum"].get<std::vector<std::string>>();
        const auto word = value.get<std::string>();
        if (std::find(words.begin(), words.end(), word) == words.end())
        {
            add(place, shorten(value), describe(schema), nearest_word(word, words));
        }
    }

    void check_number(const json &value, const json &schema, const json::json_pointer &place)
    {
        if (!value.is_number())
        {
            return;
        }
        const double number = value.get<double>();
        json nearest = number;
        double distance = std::numeric_limits<double>::infinity();
        for (const auto &branch : schema.value("anyOf", json::array({schema})))
        {
            const auto candidate = closest_number(number, branch);
            if (const double away = std::fabs(candidate.get<double>() - number); away <= distance)
            {
                nearest = candidate;
                distance = away;
            }
        }
        if (distance > 0.0)
        {
            add(place, shorten(value), describe(schema), nearest);
        }
    }

    void check_pattern(const json &value, const json &schema, const json::json_pointer &place)
    {
        if (!schema.contains("pattern"))
        {
            return;
        }
        const auto &pattern = schema["pattern"].get_ref<const std::string &>();
        if (!std::regex_match(value.get_ref<const std::string &>(), compiled(pattern)))
        {
            add(place, shorten(value), "a string that matches " + pattern);
        }
    }

    /** A pattern, which takes much longer to compile than to match. */
    const std::regex &compiled(const std::string &pattern)
    {
        auto found = patterns_.find(pattern);
        if (found == patterns_.end())
        {
            found = patterns_.emplace(pattern, std::regex(pattern)).first;
        }
        return found->second;
    }

    void check_object(const json &value, const json &schema, const json::json_pointer &place)
    {
        if (!value.is_object() || !schema.contains("properties"))
        {
            return;
        }
        const auto &properties = schema["properties"];
        for (const auto &name : schema.value("required", json::array()))
        {
            if (!value.contains(name.get<std::string>()))
            {
                add(place, "no " + name.dump(), "the member " + name.dump() + " is required here");
            }
        }
        for (const auto &[name, member] : value.items())
        {
            if (properties.contains(name))
            {
                check(member, properties[name], place / name);
                continue;
            }
            std::vector<std::string> names;
            for (const auto &[known, ignored] : properties.items())
            {
                names.push_back(known);
            }
            const auto nearest = nearest_word(name, names);
            add(place / name, "the member \"" + shortened(name) + "\"",
                "only " + (nearest.is_null() ? join(names, ", ") : std::string("the documented members")),
                nearest);
        }
    }

    /** Rejects the members of "then" if the member of "if" is present. */
    void check_condition(const json &value, const json &schema, const json::json_pointer &place)
    {
        if (!schema.contains("if") || !value.contains(schema["if"]["required"][0].get<std::string>()))
        {
            return;
        }
        for (const auto &[name, refused] : schema["then"]["properties"].items())
        {
            if (value.contains(name))
            {
                add(place / name, shorten(value[name]), schema["then"]["description"]);
            }
        }
    }

    void check_array(const json &value, const json &schema, const json::json_pointer &place)
    {
        if (!value.is_array() || !schema.contains("items"))
        {
            return;
        }
        const auto lowest = schema.value("minItems", size_t{0});
        const auto highest = schema.value("maxItems", std::numeric_limits<size_t>::max());
        if (value.size() < lowest)
        {
            add(place, "an empty list", "at least one element");
        }
        if (value.size() > highest)
        {
            add(place, std::to_string(value.size()) + " elements",
                "at most " + std::to_string(highest) + " elements", highest);
        }
        for (size_t i = 0; i < value.size(); ++i)
        {
            check(value[i], schema["items"], place / i);
        }
    }

    const json &root_;
    fault_list &found_;
    std::map<std::string, std::regex> patterns_; /**< those of the schema that were needed so far */
};

} // namespace

void check_schema(const json &document, const json &schema, fault_list &found)
{
    checker(schema, found).check(document, schema, json::json_pointer());
}

} // namespace vantor
