/** @file
 * docs/scene.schema.json: that it says the same about scenes as the simulator.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include "json_schema.h"
#include "scene/bodies/bodies.h"
#include "scene/scene_fields.h"
#include "scene_maker.h"
#include "scene_text.h"

namespace
{

using json = nlohmann::ordered_json;
using zet_simulator::field_type;
using zet_simulator::scene_field;
using zet_simulator::scene_section;

const json &schema()
{
    static const json document = json::parse(std::ifstream(DOCUMENTS "/scene.schema.json"));
    return document;
}

const json &definition(const std::string &name)
{
    return schema()["$defs"][name];
}

/** The words that a field can have. */
json words_of(const scene_field &field)
{
    return field.type == field_type::fault ? json(zet_simulator::scene_fault_words)
                                           : json(zet_simulator::scene_fluctuation_words);
}

/** Checks the schema of a field. @p value  its default, or nothing if it has none */
void expect_field(const json &found, const scene_field &field, const json &value)
{
    SCOPED_TRACE(field.name);
    if (field.type == field_type::fault || field.type == field_type::fluctuation)
    {
        EXPECT_EQ(found.at("enum"), words_of(field));
        return;
    }
    EXPECT_EQ(found.at("type"), field.type == field_type::whole ? "integer" : "number");
    EXPECT_EQ(found.at("minimum").get<float>(), field.lowest);
    EXPECT_EQ(found.at("maximum").get<float>(), field.highest);
    EXPECT_EQ(found.contains("default"), !value.is_null());
    if (found.contains("default") && !value.is_null())
    {
        EXPECT_EQ(found["default"].get<float>(), value.get<float>());
    }
    EXPECT_FALSE(found.at("title").get<std::string>().empty());
    EXPECT_FALSE(found.at("description").get<std::string>().empty());
}

/** Fields that need not be given although they must not have the value 0 that they then have. */
const std::set<std::string> without_default = {"nearest_m", "farthest_m"};

/** The default of a field with the value of an entry for which nothing is given; null if it has none. */
json default_of(const scene_field &field, const unsigned char *record, const std::set<std::string> &none)
{
    const auto value = static_cast<float>(scene_field_get(record, field));
    const bool has_default =
        !field.required && value >= field.lowest && value <= field.highest && !none.contains(field.name);
    return has_default ? json(value) : json();
}

/** Checks the schema of the entries of a list. */
void expect_entry(const std::string &name, const scene_section &section, const unsigned char *record,
                  const std::set<std::string> &others = {}, const std::set<std::string> &none = {})
{
    SCOPED_TRACE(name);
    const json &found = definition(name);
    std::set<std::string> required;
    std::set<std::string> names = others;
    for (uint32_t i = 0; i < section.field_count; ++i)
    {
        const scene_field &field = section.fields[i];
        names.insert(field.name);
        if (field.required)
        {
            required.insert(field.name);
        }
        ASSERT_TRUE(found["properties"].contains(field.name)) << field.name;
        const json &property = found["properties"][field.name];
        if (field.type != field_type::body)
        {
            expect_field(property.contains("$ref") ? definition("sensor_number") : property, field,
                         default_of(field, record, none));
        }
    }
    std::set<std::string> found_names;
    for (const auto &each : found["properties"].items())
    {
        found_names.insert(each.key());
    }
    EXPECT_EQ(found_names, names);
    const json found_required = found.value("required", json::array());
    EXPECT_EQ(std::set<std::string>(found_required.begin(), found_required.end()), required);
    EXPECT_EQ(found["additionalProperties"], false);
}

TEST(scene_schema, has_the_fields_of_the_simulator)
{
    static const std::map<std::string, std::string> entries = {
        {"targets", "target"},           {"sensors", "sensor"}, {"interferers", "interferer"},
        {"temperatures", "temperature"}, {"faults", "fault"},   {"hardware", "hardware"}};
    const zet_simulator_scene_t nothing = {};
    const zet_simulator_hardware_t usual = zet_simulator_default_hardware();
    for (const scene_section &section : zet_simulator::scene_sections)
    {
        const json &list = schema()["properties"].at(section.name);
        const json &array = list.contains("oneOf") ? list["oneOf"][0] : list;
        EXPECT_EQ(array.at("items").at("$ref"), "#/$defs/" + entries.at(section.name));
        EXPECT_EQ(array.at("maxItems"), section.capacity) << section.name;
        const bool is_target = zet_simulator::is_target(section);
        const auto *record = reinterpret_cast<const unsigned char *>(&nothing);
        expect_entry(entries.at(section.name), section,
                     &section == &zet_simulator::scene_hardware
                         ? reinterpret_cast<const unsigned char *>(&usual)
                         : record,
                     is_target ? std::set<std::string>(std::begin(zet_simulator::scene_target_keys),
                                                       std::end(zet_simulator::scene_target_keys))
                               : std::set<std::string>(),
                     without_default);
    }
    const auto *record = reinterpret_cast<const unsigned char *>(&nothing);
    expect_entry("oscillation", zet_simulator::scene_oscillations, record);
    expect_entry("keyframe", zet_simulator::scene_keyframes, record, {}, {"distance_m", "x_m", "y_m"});
    std::set<std::string> names;
    for (const auto &each : schema()["properties"].items())
    {
        names.insert(each.key());
    }
    EXPECT_EQ(names, (std::set<std::string>{"$schema", "bodies", "description", "faults", "hardware",
                                            "interferers", "sensors", "targets", "temperatures"}));
    EXPECT_EQ(definition("target")["properties"]["track"]["maxItems"], ZET_SIMULATOR_MAX_KEYFRAMES);
    EXPECT_EQ(definition("target")["properties"]["oscillations"]["maxItems"], ZET_SIMULATOR_MAX_OSCILLATIONS);
}

TEST(scene_schema, has_the_bodies_of_the_simulator)
{
    const json &kinds = schema()["properties"]["bodies"]["items"]["oneOf"];
    ASSERT_EQ(kinds.size(), zet_simulator::body_kind_count);
    for (uint32_t i = 0; i < zet_simulator::body_kind_count; ++i)
    {
        const std::string name = zet_simulator::body_words[i];
        EXPECT_EQ(kinds[i]["$ref"], "#/$defs/" + name);
        EXPECT_EQ(definition(name)["properties"]["kind"]["const"], name);
        const auto usual = zet_simulator::body_with_defaults(static_cast<zet_simulator::body_kind>(i));
        expect_entry(name, zet_simulator::body_sections[i], reinterpret_cast<const unsigned char *>(&usual));
    }
}

TEST(scene_schema, accepts_the_examples)
{
    for (const auto &entry : std::filesystem::directory_iterator(EXAMPLE_SCENES))
    {
        const json scene = json::parse(std::ifstream(entry.path()));
        EXPECT_EQ(scene["$schema"], "../../docs/scene.schema.json");
        EXPECT_TRUE(fits_schema(scene, schema(), schema())) << entry.path();
    }
}

TEST(scene_schema, agrees_with_the_simulator_about_generated_scenes)
{
    size_t refused = 0;
    for (unsigned seed = 0; seed < 500; ++seed)
    {
        scene_maker maker(seed);
        const json scene = maker.scene();
        EXPECT_EQ(refusal_of(scene.dump(), 5), "") << seed << ": " << scene;
        EXPECT_TRUE(fits_schema(scene, schema(), schema())) << seed << ": " << scene;
        const planted_fault fault = maker.plant(scene);
        const json wrong = json::parse(fault.text, nullptr, false);
        // 1e999 is not a number for this parser.
        if (fault.schema_knows && !wrong.is_discarded())
        {
            EXPECT_FALSE(fits_schema(wrong, schema(), schema())) << fault.kind << ": " << fault.text;
            ++refused;
        }
    }
    EXPECT_GT(refused, 200U);
}

} // namespace
