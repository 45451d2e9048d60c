/** @file
 * The rules between the members of a configuration document.
 */
#include "configuration/check/configuration_rules.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "configuration/sensor_knowledge.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using pointer = json::json_pointer;

/** Formats a number without unnecessary digits. */
std::string to_text(double value)
{
    std::ostringstream text;
    text.precision(10);
    text << value;
    return text.str();
}

/** A rule, applied to one object of a document. */
class placed_rule
{
public:
    /**
     * @param rule    the rule, one of those in docs/k330.json
     * @param object  the object that the rule checks
     * @param parent  used for members that the object does not have
     */
    placed_rule(const json &rule, const json &object, const json &parent)
        : rule_(rule), object_(object), parent_(parent)
    {
    }

    /** Whether the object follows the rule, or the rule does not apply. */
    [[nodiscard]] bool is_kept() const
    {
        const auto conditions = rule_.value("when", json::array());
        return is_satisfied() || !std::all_of(conditions.begin(), conditions.end(),
                                              [&](const json &name) { return is_set(name); });
    }

    /** Describes the fault if the object at a place breaks the rule. */
    [[nodiscard]] configuration_fault fault(const pointer &place) const
    {
        const bool has_member = rule_.contains("at");
        const auto where = has_member ? place / rule_["at"].get<std::string>() : place;
        const auto got = has_member ? member(rule_["at"]).dump() : fill(rule_["got"]);
        return {where.to_string(), got, fill(rule_["allowed"]),
                rule_.contains("lower") ? lower() : nlohmann::ordered_json::parse(fill(rule_["nearest"])),
                members(place)};
    }

private:
    /** The members that the rule names, as pointers. */
    [[nodiscard]] std::vector<std::string> members(const pointer &place) const
    {
        std::set<std::string> found;
        for (const char *part : {"when", "at", "value", "bound"})
        {
            collect(rule_.value(part, json()), place, found);
        }
        return {found.begin(), found.end()};
    }

    /** Collects the members that a part of the rule names. */
    void collect(const json &part, const pointer &place, std::set<std::string> &found) const
    {
        for (const auto &each : part.is_array() ? part : json::array())
        {
            collect(each, place, found);
        }
        if (part.is_string())
        {
            collect_member(part, place, found);
        }
    }

    /** Collects a member, of each sub-sweep if it is one of theirs. Operations and figures are not members.
     */
    void collect_member(const std::string &name, const pointer &place, std::set<std::string> &found) const
    {
        const auto &schema = configuration_schema();
        const auto &shared = schema["properties"];
        const auto &inner = schema["$defs"];
        const auto subsweeps = object_.value("subsweeps", json::array());
        if (!subsweeps.empty() && inner["subsweep"]["properties"].contains(name))
        {
            for (size_t i = 0; i < subsweeps.size(); ++i)
            {
                found.insert((place / "subsweeps" / i / name).to_string());
            }
        }
        else if (shared.contains(name) || inner.contains(name) || object_.contains(name))
        {
            found.insert(((shared.contains(name) ? pointer() : place) / name).to_string());
        }
    }

    /** A member, or its default; null if it has neither. */
    [[nodiscard]] const json &member(const std::string &name) const
    {
        return member_or_default(object_.contains(name) ? object_ : parent_, name);
    }

    /** Whether a member is present, and neither false nor 0. */
    [[nodiscard]] bool is_set(const std::string &name) const
    {
        const auto &value = member(name);
        return !value.is_null() && value != false && value != 0;
    }

    /** A member as a number: for a word its index in the schema, for a list its length. */
    [[nodiscard]] double number(const std::string &name) const
    {
        const auto &value = member(name);
        if (value.is_string())
        {
            const auto &words = member_schema(name)["enum"];
            return static_cast<double>(std::find(words.begin(), words.end(), value) - words.begin());
        }
        return value.is_array() ? static_cast<double>(value.size()) : value.get<double>();
    }

    /** The sum of a member over all sub-sweeps. */
    [[nodiscard]] double sum(const std::string &name) const
    {
        double total = 0.0;
        for (const auto &subsweep : object_.value("subsweeps", json::array({object_})))
        {
            total += placed_rule(rule_, subsweep, json::object()).number(name);
        }
        return total;
    }

    /** Evaluates an expression: a number, a member, or an operation with its operands. */
    [[nodiscard]] double evaluate(const json &expression) const
    {
        if (!expression.is_array())
        {
            return expression.is_string() ? number(expression) : expression.get<double>();
        }
        const std::string operation = expression[0];
        if (operation == "sum")
        {
            return sum(expression[1]);
        }
        if (operation == "figure")
        {
            return expression.size() == 2 ? sensor_figure(expression[1])
                                          : sensor_figure(expression[1], member(expression[2]));
        }
        const double first = evaluate(expression[1]);
        const double second = evaluate(expression[2]);
        return operation == "+" ? first + second : operation == "-" ? first - second : first * second;
    }

    /** Whether value and bound are in the relation that the rule requires. */
    [[nodiscard]] bool is_satisfied() const
    {
        const std::string relation = rule_["relation"];
        if (relation == "absent")
        {
            return member(rule_["value"]).is_null();
        }
        const double value = evaluate(rule_["value"]);
        const double bound = evaluate(rule_["bound"]);
        return relation == "at most"    ? value <= bound
               : relation == "at least" ? value >= bound
               : relation == "above"    ? value > bound
                                     : std::fabs(value - bound) <= rule_["tolerance"].get<double>() * bound;
    }

    /** A text of the rule, in which values replace names in braces. */
    [[nodiscard]] std::string fill(std::string text) const
    {
        for (auto begin = text.find('{'); begin != std::string::npos; begin = text.find('{', begin))
        {
            const auto name = text.substr(begin + 1, text.find('}', begin) - begin - 1);
            const auto value = rule_.contains(name) ? to_text(evaluate(rule_[name])) : member(name).dump();
            text.replace(begin, name.size() + 2, value);
            begin += value.size();
        }
        return text;
    }

    /** Lowers a member of an object as little as possible; returns whether it can follow the rule. */
    [[nodiscard]] bool lower(json &changed, const std::string &name) const
    {
        const placed_rule changed_rule(rule_, changed, parent_);
        long good = member_schema(name)["minimum"];
        auto too_high = std::lround(changed_rule.number(name));
        changed[name] = good;
        if (!changed_rule.is_satisfied())
        {
            return false;
        }
        while (too_high - good > 1)
        {
            const long middle = good + (too_high - good) / 2;
            changed[name] = middle;
            (changed_rule.is_satisfied() ? good : too_high) = middle;
        }
        changed[name] = good;
        return true;
    }

    /** The members to lower, one after the other, with the largest values that follow the rule. */
    [[nodiscard]] nlohmann::ordered_json lower() const
    {
        json changed = object_;
        auto lowered = nlohmann::ordered_json::object();
        for (const std::string name : rule_["lower"])
        {
            const bool is_enough = lower(changed, name);
            lowered[name] = changed[name];
            if (is_enough)
            {
                return lowered;
            }
        }
        return nullptr;
    }

    const json &rule_;
    const json &object_;
    const json &parent_;
};

/** Applies a rule to one object. */
void check(const placed_rule &rule, const pointer &place, fault_list &found)
{
    if (!rule.is_kept())
    {
        found.add([&] { return rule.fault(place); });
    }
}

/** Checks the configuration of one item. */
void check_config(const json &document, const json &config, const pointer &place, fault_list &found)
{
    const json nothing = json::object();
    for (const auto &rule : sensor_knowledge()["rules"])
    {
        if (rule["scope"] == "item")
        {
            continue;
        }
        if (rule["scope"] == "config" || !config.contains("subsweeps"))
        {
            check({rule, config, document}, place, found);
            continue;
        }
        for (size_t i = 0; i < config["subsweeps"].size(); ++i)
        {
            check({rule, config["subsweeps"][i], nothing}, place / "subsweeps" / i, found);
        }
    }
}

/** Checks the items of a group beside each other. */
void check_group(const json &group, const pointer &place, fault_list &found)
{
    std::map<json, int> items;
    for (size_t item = 0; item < group.size(); ++item)
    {
        const json context = {{"earlier_items", items[group[item]["sensor_id"]]++}};
        for (const auto &rule : sensor_knowledge()["rules"])
        {
            if (rule["scope"] == "item")
            {
                check({rule, group[item], context}, place / item, found);
            }
        }
    }
}

} // namespace

void check_rules(const json &document, fault_list &found)
{
    const auto groups = document.value("groups", json::array());
    for (size_t group = 0; group < groups.size(); ++group)
    {
        check_group(groups[group], pointer("/groups") / group, found);
        for (size_t item = 0; item < groups[group].size(); ++item)
        {
            check_config(document, groups[group][item]["config"],
                         pointer("/groups") / group / item / "config", found);
        }
    }
}

} // namespace vantor
