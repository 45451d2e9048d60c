/** @file
 * Generates scenes, and plants faults in them, for tests.
 */
#include "scene_maker.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <variant>

namespace
{

using json = nlohmann::ordered_json;

/** The first character of strings that are written without quotation marks, and of keys that are a second
 * one. */
constexpr char raw = '\x01';

/** Writes a document in an unusual but correct layout, and notes where a value and its key are. */
class document_writer
{
public:
    document_writer(std::mt19937 &random, document_path wanted) : random_(random), wanted_(std::move(wanted))
    {
    }

    /** The document as text. */
    std::string write(const json &document)
    {
        space();
        write_value(document, {});
        space();
        return text_;
    }

    /** Line and column of the wanted value as in a message. */
    [[nodiscard]] std::string place_of_value() const
    {
        return value_;
    }

    /** Line and column of the key of the wanted value as in a message. */
    [[nodiscard]] std::string place_of_key() const
    {
        return key_;
    }

private:
    /** Adds text that is not broken into lines. */
    void add(const std::string &text)
    {
        text_ += text;
        column_ += static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
            return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
        }));
    }

    void space()
    {
        static const char *const spaces[] = {"", "", " ", "\t ", "\n", "\r\n  "};
        const std::string chosen = spaces[random_() % std::size(spaces)];
        add(chosen);
        if (const size_t line_end = chosen.find('\n'); line_end != std::string::npos)
        {
            ++line_;
            column_ = chosen.size() - line_end;
        }
    }

    [[nodiscard]] std::string here() const
    {
        return " (line " + std::to_string(line_) + ", column " + std::to_string(column_) + ")";
    }

    /** A string, now and then with escapes that mean the same. */
    std::string quoted(const std::string &string)
    {
        std::string text = json(string).dump();
        const size_t at = 1 + random_() % text.size();
        const bool can_escape = at + 1 < text.size() &&
                                std::isalnum(static_cast<unsigned char>(text[at])) != 0 &&
                                text.find('\\') == std::string::npos;
        if (can_escape && random_() % 8 == 0)
        {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(text[at]));
            text.replace(at, 1, escape);
        }
        return text;
    }

    void write_value(const json &value, const document_path &path)
    {
        if (path == wanted_)
        {
            value_ = here();
        }
        if (value.is_string() && value.get<std::string>().starts_with(raw))
        {
            add(value.get<std::string>().substr(1));
        }
        else if (value.is_structured())
        {
            write_list(value, path);
        }
        else
        {
            add(value.is_string() ? quoted(value.get<std::string>()) : value.dump());
        }
    }

    void write_list(const json &list, const document_path &path)
    {
        add(list.is_object() ? "{" : "[");
        size_t index = 0;
        for (const auto &each : list.items())
        {
            auto inner = path;
            add(index > 0 ? "," : "");
            space();
            if (list.is_object())
            {
                inner.emplace_back(each.key());
                write_key(each.key(), inner);
            }
            else
            {
                inner.emplace_back(index);
            }
            write_value(each.value(), inner);
            space();
            ++index;
        }
        add(list.is_object() ? "}" : "]");
    }

    void write_key(const std::string &key, const document_path &path)
    {
        if (path == wanted_)
        {
            key_ = here();
        }
        add(quoted(key.starts_with(raw) ? key.substr(1) : key));
        space();
        add(":");
        space();
    }

    std::mt19937 &random_;
    document_path wanted_;
    std::string text_;
    size_t line_ = 1;
    size_t column_ = 1;
    std::string value_;
    std::string key_;
};

/** The schema of scenes. */
const json &scene_schema()
{
    static const json schema = json::parse(std::ifstream(DOCUMENTS "/scene.schema.json"));
    return schema;
}

/** The place as a message names it: targets[1].track[2].time_s. */
std::string name_of(const document_path &path)
{
    std::string name;
    for (const auto &part : path)
    {
        if (std::holds_alternative<size_t>(part))
        {
            name += "[" + std::to_string(std::get<size_t>(part)) + "]";
        }
        else
        {
            name += (name.empty() ? "" : ".") + std::get<std::string>(part);
        }
    }
    return name.empty() ? "the scene" : name;
}

/** The value at a path. */
json &value_at(json &document, const document_path &path)
{
    json *found = &document;
    for (const auto &part : path)
    {
        found = std::holds_alternative<size_t>(part) ? &(*found)[std::get<size_t>(part)]
                                                     : &(*found)[std::get<std::string>(part)];
    }
    return *found;
}

/** A path with one more part. */
template <typename part_t> document_path operator/(document_path path, const part_t &part)
{
    path.emplace_back(part);
    return path;
}

/** Adds the paths of all values in a document for which a condition is true. */
template <typename condition_t>
void find_paths(const json &value, const document_path &path, const condition_t &condition,
                std::vector<document_path> &found)
{
    if (condition(value, path))
    {
        found.push_back(path);
    }
    size_t index = 0;
    for (const auto &each : value.items())
    {
        if (value.is_object())
        {
            find_paths(each.value(), path / each.key(), condition, found);
        }
        else if (value.is_array())
        {
            find_paths(each.value(), path / index, condition, found);
        }
        ++index;
    }
}

/** The last part of a path, which is a key. */
std::string key_of(const document_path &path)
{
    return !path.empty() && std::holds_alternative<std::string>(path.back())
               ? std::get<std::string>(path.back())
               : "";
}

/** The list of the scene that a path goes through. */
std::string list_of(const document_path &path)
{
    return path.empty() ? "" : std::get<std::string>(path.front());
}

/** The schema of an entry of a list. */
const json &schema_of_entry(const json &schema, const json &scene, const document_path &entry)
{
    static const std::map<std::string, std::string> names = {
        {"targets", "target"},           {"sensors", "sensor"}, {"interferers", "interferer"},
        {"temperatures", "temperature"}, {"faults", "fault"},   {"hardware", "hardware"}};
    const std::string list = list_of(entry);
    std::string name = list == "bodies" ? "" : names.at(list);
    if (list == "bodies")
    {
        name = scene["bodies"][std::get<size_t>(entry[1])]["kind"].get<std::string>();
    }
    else if (entry.size() > 2)
    {
        name = std::get<std::string>(entry[2]) == "track" ? "keyframe" : "oscillation";
    }
    return schema["$defs"][name];
}

/** A number as in a message. */
std::string number_text(const json &number)
{
    const double value = number.get<double>();
    std::string text = std::to_string(value);
    text.erase(text.find_last_not_of('0') + 1);
    return text.ends_with('.') ? text.substr(0, text.size() - 1) : text;
}

} // namespace

scene_maker::scene_maker(unsigned seed) : random_(seed), schema_(scene_schema())
{
}

bool scene_maker::chance(int times)
{
    return random_() % static_cast<unsigned>(times) == 0U;
}

size_t scene_maker::below(size_t count)
{
    return random_() % count;
}

/** A number in a range with at most three decimals, now and then one of its ends. */
double scene_maker::number(double lowest, double highest)
{
    if (chance(6))
    {
        return chance(2) ? lowest : highest;
    }
    const double value = std::uniform_real_distribution<>(lowest, highest)(random_);
    return std::clamp(std::round(value * 1000.0) / 1000.0, lowest, highest);
}

/** A valid value. */
json scene_maker::value_of(const json &schema)
{
    if (schema.contains("$ref"))
    {
        return below(6);
    }
    if (schema.contains("enum"))
    {
        return schema["enum"][below(schema["enum"].size())];
    }
    const double value = number(schema["minimum"].get<double>(), schema["maximum"].get<double>());
    return schema["type"] == "integer" ? json(static_cast<int64_t>(value)) : json(value);
}

/** An entry with some of the keys, and all required ones. */
json scene_maker::entry(const std::string &name, const std::vector<std::string> &keys)
{
    const json &schema = schema_["$defs"][name];
    json result = json::object();
    for (const auto &key : keys)
    {
        const json required = schema.value("required", json::array());
        if (chance(2) || std::find(required.begin(), required.end(), key) != required.end())
        {
            result[key] = value_of(schema["properties"][key]);
        }
    }
    return result;
}

json scene_maker::some(maker make, size_t least, size_t most)
{
    json list = json::array();
    for (size_t i = least + below(most + 1 - least); i > 0; --i)
    {
        list.push_back((this->*make)());
    }
    return list;
}

json scene_maker::keyframe_list(bool in_space)
{
    json list = json::array();
    double time_s = 0.0;
    for (size_t i = 1 + below(5); i > 0; --i)
    {
        json keyframe = {{"time_s", time_s}};
        for (const char *key : {"x_m", "y_m"})
        {
            keyframe[in_space ? key : "distance_m"] = number(-1000.0, 1000.0);
        }
        if (in_space && chance(2))
        {
            keyframe["z_m"] = number(-1000.0, 1000.0);
        }
        list.push_back(keyframe);
        time_s += 0.5 + number(0.0, 9.0);
    }
    return list;
}

json scene_maker::oscillation_list(bool in_space)
{
    json list = json::array();
    for (size_t i = below(3); i > 0; --i)
    {
        std::vector<std::string> keys = {"amplitude_m", "frequency_hz", "phase_turns", "wander_turns",
                                         "wander_frequency_hz"};
        if (in_space)
        {
            keys.insert(keys.end(), {"amplitude_x_m", "amplitude_y_m", "amplitude_z_m"});
        }
        list.push_back(entry("oscillation", keys));
    }
    return list;
}

json scene_maker::target()
{
    const bool in_space = chance(3);
    const bool has_track = chance(2);
    std::vector<std::string> keys = {
        "sensor", "oscillation_amplitude_m", "oscillation_frequency_hz", "enter_s", "fluctuation", "body"};
    if (in_space)
    {
        keys.insert(keys.end(), {"x_velocity_m_s", "y_velocity_m_s", "z_velocity_m_s"});
    }
    else
    {
        keys.emplace_back("velocity_m_s");
    }
    json result = entry("target", keys);
    result[chance(4) ? "reflectivity" : "strength_m2"] = number(0.1, 1.0);
    if (in_space)
    {
        result["y_m"] = number(-1000.0, 1000.0);
    }
    else
    {
        result["distance_m"] = number(0.01, 1000.0);
    }
    if (!in_space && chance(2))
    {
        result["nearest_m"] = 0;
        result["farthest_m"] = 1000;
    }
    if (result.value("enter_s", 0.0) < 900000.0 && chance(2))
    {
        result["leave_s"] = result.value("enter_s", 0.0) + number(1.0, 1000.0);
    }
    if (has_track)
    {
        result["track"] = keyframe_list(in_space);
    }
    result["oscillations"] = oscillation_list(in_space);
    return result;
}

json scene_maker::body()
{
    static const json bodies = {
        {{"kind", "breathing"}, {"distance_m", 2}, {"rate_per_min", 20}, {"variability", 0.1}},
        {{"kind", "walker"}, {"y_m", 2}, {"to_y_m", 5.5}, {"x_m", -1}, {"height_m", 1.7}, {"legs", 1}},
        {{"kind", "surface"},
         {"distance_m", 3},
         {"reflectivity", 0.4},
         {"stirrer_m2", 0.1},
         {"stirrer_radius_m", 0.2}},
        {{"kind", "fan"}, {"distance_m", 3}, {"radius_m", 0.3}, {"points", 3}},
        {{"kind", "curtain"}, {"distance_m", 3}, {"amplitude_m", 0.01}, {"points", 4}},
        {{"kind", "clutter"}, {"nearest_m", 1}, {"farthest_m", 4}, {"points", 5}, {"seed", 7}},
    };
    json result = bodies[below(bodies.size())];
    result["enter_s"] = number(0.0, 100.0);
    if (result["kind"] != "walker")
    {
        result["leave_s"] = result["enter_s"].get<double>() + number(1.0, 100.0);
    }
    result["sensor"] = below(6);
    return result;
}

json scene_maker::sensor()
{
    json result = entry("sensor", {"sensor", "x_m", "y_m", "z_m", "direction_x", "direction_z", "beam_deg"});
    result["direction_y"] = 0.5;
    return result;
}

json scene_maker::interferer()
{
    json result = entry("interferer", {"sensor", "strength", "start_s"});
    result["duration_s"] = number(1.0, 100.0);
    if (chance(2))
    {
        result["period_s"] = result["duration_s"].get<double>() + number(0.0, 100.0);
    }
    return result;
}

json scene_maker::temperature()
{
    return entry("temperature", {"sensor", "celsius", "drift_celsius_per_s"});
}

json scene_maker::fault()
{
    json result = entry("fault", {"sensor", "kind", "skip", "count"});
    if (result["kind"] == "slow_link")
    {
        result["bytes_per_second"] = 1 + below(100000000);
    }
    return result;
}

json scene_maker::hardware()
{
    json result =
        entry("hardware", {"sensor", "phase_noise_rad_per_m", "sidelobe_level", "gain_drift_per_k"});
    result["bursts_per_s"] = 2;
    result["burst_s"] = number(0.001, 0.5);
    return result;
}

json scene_maker::scene()
{
    json result = {{"description", "größer"}};
    result["targets"] = some(&scene_maker::target, 1, 4);
    result["bodies"] = some(&scene_maker::body, 1, 3);
    result["sensors"] = some(&scene_maker::sensor, 1, 2);
    result["interferers"] = some(&scene_maker::interferer, 1, 3);
    result["temperatures"] = some(&scene_maker::temperature, 1, 3);
    result["faults"] = some(&scene_maker::fault, 1, 3);
    result["hardware"] = some(&scene_maker::hardware, 1, 2);
    return result;
}

/** The path of a value of an entry; not one by which others are judged. */
document_path scene_maker::scalar_in(const json &scene, bool only_numbers)
{
    std::vector<document_path> found;
    find_paths(
        scene, {},
        [&](const json &value, const document_path &path) {
            return path.size() > 2 && !key_of(path).empty() &&
                   (value.is_number() || (value.is_string() && !only_numbers)) && key_of(path) != "kind";
        },
        found);
    return found[below(found.size())];
}

/** Completes a fault at a value, or at its key. */
static planted_fault finish(std::mt19937 &random, const char *kind, const json &scene,
                            const document_path &path, std::vector<std::string> expected, bool at_key = false)
{
    document_writer writer(random, path);
    const std::string text = writer.write(scene);
    expected.push_back(at_key ? writer.place_of_key() : writer.place_of_value());
    return {kind, text, std::move(expected)};
}

planted_fault scene_maker::wrong_type(json scene)
{
    static const std::vector<std::pair<json, std::string>> values = {{nullptr, "null"},
                                                                     {true, "true"},
                                                                     {false, "false"},
                                                                     {"12", "\"12\""},
                                                                     {json::array({1}), "an array"},
                                                                     {json::object(), "an object"}};
    const auto path = scalar_in(scene, false);
    const auto &[value, text] = values[below(values.size())];
    value_at(scene, path) = value;
    return finish(random_, "wrong type", scene, path, {name_of(path) + " is " + text + ", but must be "});
}

planted_fault scene_maker::out_of_range(json scene)
{
    const auto path = scalar_in(scene, true);
    const document_path entry(path.begin(), path.end() - 1);
    json field = schema_of_entry(schema_, scene, entry)["properties"][key_of(path)];
    field = field.contains("$ref") ? schema_["$defs"]["sensor_number"] : field;
    const auto lowest = field["minimum"].get<double>();
    const auto highest = field["maximum"].get<double>();
    const double little = 1.0e-5 * std::max(1.0, std::fabs(highest));
    const json values[] = {highest + (field["type"] == "integer" ? 1.0 : little),
                           highest * 2.0 + 10.0,
                           1.0e30,
                           lowest - (field["type"] == "integer" ? 1.0 : 1.0e-3),
                           -1.0e30,
                           std::string(1, raw) + "1e999",
                           std::string(1, raw) + "-1e999"};
    value_at(scene, path) = values[below(std::size(values))];
    return finish(random_, "out of range", scene, path,
                  {name_of(path) + " is ", ", but must be a ",
                   "number from " + number_text(field["minimum"]) + " to " + number_text(field["maximum"])});
}

planted_fault scene_maker::missing_key(json scene)
{
    std::vector<document_path> found;
    find_paths(
        scene, {},
        [&](const json & /*value*/, const document_path &path) {
            if (path.size() < 3 || key_of(path).empty())
            {
                return false;
            }
            const json required = schema_of_entry(schema_, scene, {path.begin(), path.end() - 1})
                                      .value("required", json::array());
            return std::find(required.begin(), required.end(), key_of(path)) != required.end();
        },
        found);
    const auto path = found[below(found.size())];
    const document_path entry(path.begin(), path.end() - 1);
    value_at(scene, entry).erase(key_of(path));
    return finish(random_, "missing key", scene, entry,
                  {name_of(entry) + " has no key \"" + key_of(path) + "\", but must have it: "});
}

planted_fault scene_maker::unknown_key(json scene)
{
    std::vector<document_path> found;
    find_paths(
        scene, {}, [](const json &value, const document_path &) { return value.is_object(); }, found);
    const auto path = found[below(found.size())];
    static const std::string names[] = {"distance", "Distance_m", "", "über", "time_s ", "targets_", "\n"};
    const std::string name = names[below(std::size(names))];
    value_at(scene, path)[name] = 1;
    const std::string shown = name == "\n" ? "?" : name;
    return finish(random_, "unknown key", scene, path / name,
                  {name_of(path) + " has the unknown key \"" + shown + "\"; the keys are "}, true);
}

planted_fault scene_maker::repeated_key(json scene)
{
    std::vector<document_path> found;
    find_paths(
        scene, {}, [](const json & /*value*/, const document_path &path) { return !key_of(path).empty(); },
        found);
    const auto path = found[below(found.size())];
    const document_path entry(path.begin(), path.end() - 1);
    const std::string second = raw + key_of(path);
    value_at(scene, entry)[second] = value_at(scene, path);
    auto fault =
        finish(random_, "repeated key", scene, entry / second,
               {name_of(entry) + " has the key \"" + key_of(path) + "\" twice, but must have it once"}, true);
    fault.schema_knows = false;
    return fault;
}

planted_fault scene_maker::text_that_is_not_json(json scene)
{
    static const std::string texts[] = {"NaN", "Infinity", "'1'",       "+1",
                                        ".5",  "#1",       "undefined", "\xEF\xBC\x91"};
    const auto path = scalar_in(scene, false);
    const std::string text = texts[below(std::size(texts))];
    value_at(scene, path) = raw + text;
    const size_t length = static_cast<unsigned char>(text[0]) >= 0x80U ? 3 : 1;
    auto fault = finish(
        random_, "not JSON", scene, path,
        {"the scene is not JSON: it has \"" + text.substr(0, length) + "\" where it must have a value"});
    fault.schema_knows = false;
    return fault;
}

planted_fault scene_maker::truncated(json scene)
{
    auto fault = finish(random_, "truncated", scene, {}, {});
    const size_t start = fault.text.find('{');
    const size_t end = fault.text.rfind('}');
    fault.text.resize(start + 1 + below(end - start));
    fault.expected = {"the scene is not JSON: it has ", " where it must have ", " (line ", ", column "};
    fault.schema_knows = false;
    return fault;
}

planted_fault scene_maker::wrong_utf_8(json scene)
{
    static const std::string texts[] = {"\xC3(",    "\xFF",         "\xE2\x82",
                                        "\xC0\xAF", "\xED\xA0\x80", "\xF5\x80\x80\x80"};
    const std::string text = texts[below(std::size(texts))];
    // The fault is within the string, behind its quotation mark.
    scene["description"] = std::string(1, raw) + "\"" + text + "\"";
    auto fault =
        finish(random_, "wrong UTF-8", scene, {"description"}, {"the scene is not JSON: it has the byte 0x"});
    std::string &place = fault.expected.back();
    const size_t column = place.rfind(' ') + 1;
    place = place.substr(0, column) + std::to_string(std::stoul(place.substr(column)) + 1) + ")";
    fault.expected.emplace_back("where it must have a character in UTF-8");
    fault.schema_knows = false;
    return fault;
}

planted_fault scene_maker::deep_nesting(json scene)
{
    const auto path = scalar_in(scene, false);
    const size_t levels = chance(2) ? 17 : 100000;
    value_at(scene, path) = raw + std::string(levels, '[');
    auto fault = finish(random_, "deep nesting", scene, path, {});
    fault.expected = {"the scene is not JSON: it has \"[\" where it must have at most 16 levels of nesting",
                      " (line "};
    fault.schema_knows = false;
    return fault;
}

planted_fault scene_maker::swapped_bounds(json scene)
{
    const std::string list = chance(2) ? "targets" : "bodies";
    const document_path entry = {list, size_t{0}};
    json &swapped = value_at(scene, entry);
    if (list == "bodies")
    {
        swapped = {{"kind", "clutter"}, {"nearest_m", 4}, {"farthest_m", 1.5}};
    }
    else
    {
        swapped = {{"distance_m", 2}, {"strength_m2", 1}, {"nearest_m", 4}, {"farthest_m", 1.5}};
    }
    auto fault = finish(random_, "swapped bounds", scene, entry / std::string("farthest_m"),
                        {name_of(entry) + ".farthest_m is 1.5, but must be more than nearest_m, which is 4"});
    fault.schema_knows = false;
    return fault;
}

planted_fault scene_maker::long_string(json scene)
{
    const auto path = scalar_in(scene, false);
    const std::string text(10000, 'x');
    value_at(scene, path) = text;
    return finish(random_, "long string", scene, path,
                  {name_of(path) + " is \"" + text.substr(0, 32) + "...\", but must be "});
}

planted_fault scene_maker::long_list(json scene)
{
    static const std::map<std::string, size_t> lists = {{"targets", 64},    {"sensors", 64},
                                                        {"interferers", 8}, {"temperatures", 8},
                                                        {"faults", 16},     {"hardware", 64}};
    const auto &[list, most] = *std::next(lists.begin(), static_cast<long>(below(lists.size())));
    json first = scene[list][0];
    first.erase("track");
    first.erase("oscillations");
    const size_t count = most + 1 + below(200);
    scene[list] = json::array();
    scene[list].get_ref<json::array_t &>().assign(count, first);
    return finish(random_, "long list", scene, {list, most},
                  {list + "[" + std::to_string(most) + "] is one of " + std::to_string(count) +
                   " entries, but there must be at most " + std::to_string(most)});
}

planted_fault scene_maker::sensor_beyond_the_board(json scene)
{
    static const std::string lists[] = {"targets",      "bodies", "sensors", "interferers",
                                        "temperatures", "faults", "hardware"};
    const document_path path = {lists[below(std::size(lists))], size_t{0}, std::string("sensor")};
    value_at(scene, path) = 6;
    auto fault = finish(random_, "sensor beyond the board", scene, path,
                        {name_of(path) + " is 6, but the number of sensors on the board is 5"});
    fault.schema_knows = false;
    return fault;
}

planted_fault scene_maker::conflict(json scene)
{
    const document_path target = {std::string("targets"), size_t{0}};
    json &changed = value_at(scene, target);
    changed = {{"distance_m", 2}, {"strength_m2", 1}};
    switch (below(6))
    {
    case 0:
        changed["reflectivity"] = 0.5;
        return finish(random_, "point and surface", scene, target,
                      {"targets[0] has both of strength_m2 and reflectivity"});
    case 1:
        changed.erase("strength_m2");
        return finish(random_, "neither point nor surface", scene, target,
                      {"targets[0] has none of strength_m2 and"});
    case 2:
        changed.erase("distance_m");
        return finish(random_, "no position", scene, target, {"targets[0] has no position, but must have "});
    case 3:
        changed["nearest_m"] = 1;
        return finish(random_, "one bound", scene, target / std::string("nearest_m"),
                      {"targets[0].nearest_m is given without farthest_m"});
    case 4:
        changed["track"] = {{{"time_s", 1}, {"distance_m", 2}}, {{"time_s", 2}, {"x_m", 3}, {"y_m", 2}}};
        {
            auto fault =
                finish(random_, "different keyframes", scene, target / std::string("track") / size_t{1},
                       {"targets[0].track[1] has x_m and y_m, but must have distance_m, and no place"});
            fault.schema_knows = false;
            return fault;
        }
    default:
        scene["faults"][0] = {{"kind", "slow_link"}, {"bytes_per_second", 0}};
        return finish(random_, "slow link without rate", scene,
                      {std::string("faults"), size_t{0}, std::string("bytes_per_second")},
                      {"faults[0].bytes_per_second is 0, but must be 1 or more for slow_link"});
    }
}

planted_fault scene_maker::wrong_list(json scene)
{
    static const std::string lists[] = {"targets",      "bodies", "sensors", "interferers",
                                        "temperatures", "faults", "hardware"};
    const std::string list = lists[below(std::size(lists))];
    if (chance(2))
    {
        scene[list] = chance(2) ? json::object() : json(7);
        const std::string found = scene[list].is_object() ? "an object" : "7";
        return finish(random_, "wrong list", scene, {list},
                      {list + " is " + found + ", but must be an array, [{ ... }]"});
    }
    const size_t last = scene[list].size();
    scene[list].push_back(json::array());
    return finish(random_, "wrong entry", scene, {list, last},
                  {name_of({list, last}) + " is an array, but must be an object"});
}

planted_fault scene_maker::plant(const json &scene)
{
    static constexpr planted_fault (scene_maker::*planters[])(json) = {&scene_maker::wrong_type,
                                                                       &scene_maker::out_of_range,
                                                                       &scene_maker::missing_key,
                                                                       &scene_maker::unknown_key,
                                                                       &scene_maker::repeated_key,
                                                                       &scene_maker::text_that_is_not_json,
                                                                       &scene_maker::truncated,
                                                                       &scene_maker::wrong_utf_8,
                                                                       &scene_maker::deep_nesting,
                                                                       &scene_maker::swapped_bounds,
                                                                       &scene_maker::long_string,
                                                                       &scene_maker::long_list,
                                                                       &scene_maker::sensor_beyond_the_board,
                                                                       &scene_maker::conflict,
                                                                       &scene_maker::wrong_list};
    return (this->*planters[below(std::size(planters))])(scene);
}
