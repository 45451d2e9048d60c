/** @file
 * Tests of the faults that `vantor validate` finds, with their place and the nearest allowed value.
 */
#include "vantor/configuration_check.h"

#include <ctime>
#include <functional>
#include <set>

#include <gmock/gmock.h>

#include "configuration/check/schema_check.h"
#include "configuration/sensor_knowledge.h"
#include "fake_server.h"
#include "item_document.h"
#include "vantor/configuration.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using test::document_with;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/** The only fault of a document. */
configuration_fault fault_of(const json &document)
{
    const auto faults = check_configuration(document);
    EXPECT_THAT(faults, SizeIs(1)) << document;
    return faults.empty() ? configuration_fault{} : faults.front();
}

TEST(configuration_check, finds_nothing_in_the_examples)
{
    for (const char *name : {"single_sensor.json", "two_sensors.json"})
    {
        EXPECT_THAT(check_configuration(load_configuration(std::filesystem::path(VANTOR_EXAMPLES) / name)),
                    IsEmpty());
    }
    EXPECT_THAT(check_configuration(test::example_session().configuration), IsEmpty());
    EXPECT_THAT(check_configuration(json::object()), IsEmpty());
    EXPECT_THAT(check_configuration(document_with(json::object())), IsEmpty());
}

TEST(configuration_check, reports_place_bounds_and_nearest_value)
{
    const auto fault = fault_of(document_with({{"hwaas", 600}}));
    EXPECT_EQ(fault.pointer, "/groups/0/0/config/hwaas");
    EXPECT_EQ(fault.got, "600");
    EXPECT_EQ(fault.allowed, "a whole number, from 1 to 511");
    EXPECT_EQ(fault.nearest, 511);
}

TEST(configuration_check, finds_each_kind_of_fault)
{
    const std::vector<std::tuple<json, const char *, json>> cases = {
        {{{"num_points", 0}}, "/groups/0/0/config/num_points", 1},
        {{{"num_points", 2.6}}, "/groups/0/0/config/num_points", 3},
        {{{"num_points", 4095.5}}, "/groups/0/0/config/num_points", 4095},
        {{{"num_points", "many"}}, "/groups/0/0/config/num_points", nullptr},
        {{{"enable_tx", 1}}, "/groups/0/0/config/enable_tx", nullptr},
        {{{"prf", "13.0_MHz"}}, "/groups/0/0/config/prf", "13_0_MHz"},
        {{{"prf", "20_MHz"}}, "/groups/0/0/config/prf", "19_5_MHz"},
        {{{"prf", "5_MHz"}}, "/groups/0/0/config/prf", "5_2_MHz"},
        {{{"prf", "9 MHz"}}, "/groups/0/0/config/prf", "8_7_MHz"},
        {{{"prof", 2}}, "/groups/0/0/config/prof", "profile"},
        {{{"inter_frame_idle_state", "Ready"}}, "/groups/0/0/config/inter_frame_idle_state", "ready"},
        {{{"frame_rate", -1}}, "/groups/0/0/config/frame_rate", 0},
        {{{"frame_rate", 0.009}}, "/groups/0/0/config/frame_rate", 0.01},
        {{{"frame_rate", 1e300}}, "/groups/0/0/config/frame_rate", 1000000},
        {{{"sweep_rate", 2e6}}, "/groups/0/0/config/sweep_rate", 1000000},
        {{{"step_lenght", 2}}, "/groups/0/0/config/step_lenght", "step_length"},
        {{{"zzzzzzzzzzzzzzzz", 2}}, "/groups/0/0/config/zzzzzzzzzzzzzzzz", nullptr},
        {{{"subsweeps", json::array()}}, "/groups/0/0/config/subsweeps", nullptr},
        {{{"subsweeps", {{{"profile", 9}}}}}, "/groups/0/0/config/subsweeps/0/profile", 5},
        {{{"subsweeps", json::array({json::object()})}, {"profile", 2}},
         "/groups/0/0/config/profile",
         nullptr},
        {{{"num_points", 4000}, {"sweeps_per_frame", 5}, {"prf", "5_2_MHz"}},
         "/groups/0/0/config",
         {{"sweeps_per_frame", 4}}},
        {{{"start_point", 3800}}, "/groups/0/0/config", {{"num_points", 44}}},
        {{{"start_point", 20000}}, "/groups/0/0/config", {{"num_points", 1}, {"start_point", 3843}}},
        {{{"inter_frame_idle_state", "ready"}, {"inter_sweep_idle_state", "sleep"}},
         "/groups/0/0/config/inter_sweep_idle_state",
         "ready"},
        {{{"continuous_sweep_mode", true}}, "/groups/0/0/config/continuous_sweep_mode", false},
        {{{"continuous_sweep_mode", true}, {"frame_rate", 10}, {"sweeps_per_frame", 4}, {"sweep_rate", 50}},
         "/groups/0/0/config/sweep_rate",
         40},
    };
    for (const auto &[config, pointer, nearest] : cases)
    {
        const auto fault = fault_of(document_with(config));
        EXPECT_EQ(fault.pointer, pointer) << config;
        EXPECT_EQ(json(fault.nearest), nearest) << config;
        EXPECT_FALSE(fault.allowed.empty()) << config;
    }
}

TEST(configuration_check, shortens_long_values_between_characters)
{
    for (const char *start : {"", "x"})
    {
        std::string word = start;
        for (int i = 0; i < 40; ++i)
        {
            word += "ä";
        }
        const auto got = fault_of(document_with({{"prf", word}})).got;
        EXPECT_LT(got.size(), 45U);
        EXPECT_NO_THROW(json(got).dump()) << got;
    }
}

TEST(configuration_check, finds_faults_outside_of_configurations)
{
    const auto with = [](const std::function<void(json &)> &spoil) {
        auto document = document_with({{"frame_rate", 10}});
        spoil(document);
        return fault_of(document).pointer;
    };
    EXPECT_EQ(with([](json &d) { d["enable_log"] = "LOUD"; }), "/enable_log");
    EXPECT_EQ(with([](json &d) { d["groups"] = 1; }), "/groups");
    EXPECT_EQ(with([](json &d) { d["groups"][0] = json::array(); }), "/groups/0");
    EXPECT_EQ(with([](json &d) { d["groups"][0][0].erase("config"); }), "/groups/0/0");
    EXPECT_EQ(with([](json &d) { d["groups"][0][0]["sensor_id"] = 0; }), "/groups/0/0/sensor_id");
    EXPECT_EQ(with([](json &d) {
                  d["groups"][0][0]["cpd_overrides"] = {{"gain", 1}};
              }),
              "/groups/0/0/cpd_overrides/gain");
    EXPECT_EQ(with([](json &d) { d["calibration_info"] = json::array(); }), "/calibration_info");
    EXPECT_EQ(with([](json &d) {
                  d["calibration_info"] = {{{"sensor_id", 1}, {"data", "12"}}};
              }),
              "/calibration_info/0/data");
    EXPECT_EQ(with([](json &d) {
                  d["groups"] = json::array();
                  d["max_update_rate"] = 1e39;
              }),
              "/max_update_rate");
    EXPECT_EQ(with([](json &d) { d["max_update_rate"] = 10; }), "/groups/0/0/config/frame_rate");
    EXPECT_EQ(with([](json &d) { d["update_rate"] = 10; }), "/groups/0/0/config/frame_rate");
    EXPECT_EQ(with([](json &d) {
                  d["groups"].push_back(json::array({{{"sensor_id", 2}, {"config", json::object()}}}));
              }),
              "/groups/0/0/config/frame_rate");
    EXPECT_EQ(with([](json &d) { d["groups"] = json(11, d["groups"][0]); }), "/groups");
}

TEST(configuration_check, reports_what_breaks_a_rule_between_members)
{
    const std::string in_prf = " with this \"prf\": lower \"prf\", or use fewer points";
    const std::vector<std::tuple<json, configuration_fault>> cases = {
        {{{"start_point", 3800}},
         {"", "a last point of 3959", "at most 3843" + in_prf, {{"num_points", 44}}}},
        {{{"subsweeps", {json::object(), {{"start_point", 3600}, {"step_length", 2}, {"prf", "19_5_MHz"}}}}},
         {"/subsweeps/1",
          "a last point of 3918",
          "at most 3074" + in_prf,
          {{"num_points", 1}, {"start_point", 3074}}}},
        {{{"subsweeps", {{{"num_points", 3000}}, {{"num_points", 2000}}}}, {"sweeps_per_frame", 200}},
         {"",
          "1000000 samples",
          "at most 16383 samples (points times sweeps) in a frame",
          {{"sweeps_per_frame", 3}}}},
        {{{"inter_frame_idle_state", "ready"}, {"inter_sweep_idle_state", "sleep"}},
         {"/inter_sweep_idle_state", "\"sleep\"",
          "not deeper than \"inter_frame_idle_state\", which is \"ready\"", "ready"}},
        {{{"continuous_sweep_mode", true}, {"sweep_rate", 5}},
         {"/continuous_sweep_mode", "true", "only with a \"frame_rate\" above 0", false}},
        {{{"continuous_sweep_mode", true}, {"frame_rate", 0.1}, {"sweeps_per_frame", 3}},
         {"/sweep_rate", "0",
          "\"frame_rate\" times \"sweeps_per_frame\", because of \"continuous_sweep_mode\"", 0.3}},
    };
    for (const auto &[config, expected] : cases)
    {
        const auto fault = fault_of(document_with(config));
        EXPECT_EQ(fault.pointer, "/groups/0/0/config" + expected.pointer);
        EXPECT_EQ(fault.got, expected.got);
        EXPECT_EQ(fault.allowed, expected.allowed);
        EXPECT_EQ(json(fault.nearest), json(expected.nearest));
    }
}

TEST(configuration_check, names_all_members_of_a_broken_rule)
{
    const std::vector<std::pair<json, std::vector<std::string>>> cases = {
        {{{"start_point", 3800}}, {"/num_points", "/prf", "/start_point", "/step_length"}},
        {{{"subsweeps", {json::object(), {{"start_point", 3600}, {"step_length", 2}, {"prf", "19_5_MHz"}}}}},
         {"/subsweeps/1/num_points", "/subsweeps/1/prf", "/subsweeps/1/start_point",
          "/subsweeps/1/step_length"}},
        {{{"subsweeps", {{{"num_points", 3000}}, {{"num_points", 2000}}}}, {"sweeps_per_frame", 200}},
         {"/subsweeps/0/num_points", "/subsweeps/1/num_points", "/sweeps_per_frame"}},
        {{{"inter_frame_idle_state", "ready"}, {"inter_sweep_idle_state", "sleep"}},
         {"/inter_frame_idle_state", "/inter_sweep_idle_state"}},
        {{{"continuous_sweep_mode", true}, {"frame_rate", 0.1}, {"sweeps_per_frame", 3}},
         {"/continuous_sweep_mode", "/frame_rate", "/sweep_rate", "/sweeps_per_frame"}},
    };
    for (const auto &[config, expected] : cases)
    {
        std::vector<std::string> members;
        for (const auto &name : expected)
        {
            members.push_back("/groups/0/0/config" + name);
        }
        EXPECT_EQ(fault_of(document_with(config)).members, members) << config;
    }
    auto paced = document_with({{"frame_rate", 10}});
    paced["max_update_rate"] = 10;
    EXPECT_THAT(fault_of(paced).members, ElementsAre("/groups/0/0/config/frame_rate", "/max_update_rate"));
    EXPECT_THAT(fault_of(document_with({{"hwaas", 0}})).members, IsEmpty());
}

TEST(configuration_check, refuses_rates_that_the_sensor_cannot_reach)
{
    EXPECT_THAT(check_configuration(document_with({{"frame_rate", 2530}, {"sweep_rate", 10492}})), IsEmpty());
    const auto sweep = fault_of(document_with({{"sweep_rate", 100000}}));
    EXPECT_EQ(sweep.pointer, "/groups/0/0/config/sweep_rate");
    EXPECT_EQ(sweep.got, "100000");
    EXPECT_EQ(sweep.allowed, "at most 10492.3: a sweep takes longer with these points");
    EXPECT_EQ(sweep.nearest, 10492.3);
    const auto frame = fault_of(document_with({{"frame_rate", 2540}}));
    EXPECT_EQ(frame.pointer, "/groups/0/0/config/frame_rate");
    EXPECT_EQ(frame.allowed, "at most 2535.84: a frame takes longer with these points and sweeps");
}

TEST(configuration_check, refuses_the_same_sensor_twice_in_a_group)
{
    const json item = {{"sensor_id", 2}, {"config", json::object()}};
    auto other = item;
    other["sensor_id"] = 1;
    EXPECT_THAT(check_configuration({{"groups", {{item, other}, {item}}}}), IsEmpty());
    const auto fault = fault_of({{"groups", {{item, other, item}}}});
    EXPECT_EQ(fault.pointer, "/groups/0/2/sensor_id");
    EXPECT_THAT(fault.members, ElementsAre("/groups/0/2/sensor_id"));
    EXPECT_EQ(fault.got, "2");
    EXPECT_EQ(fault.allowed, "each sensor only once in a group; use another group to measure twice with it");
    EXPECT_EQ(json(fault.nearest), nullptr);
}

TEST(configuration_check, names_the_closest_member_or_all)
{
    EXPECT_EQ(fault_of(document_with({{"step_lenght", 2}})).allowed, "only the documented members");
    auto document = document_with(json::object());
    document["groups"][0][0]["zzzzzzzzzzzzzzzz"] = 1;
    EXPECT_EQ(fault_of(document).allowed, "only cca_debug, cca_enable, cca_threshold, config, cpd_overrides, "
                                          "sensor_id");
}

TEST(configuration_check, reports_every_fault_at_once)
{
    const auto faults = check_configuration(document_with({{"hwaas", 0}, {"profile", 0}, {"prf", "fast"}}));
    EXPECT_THAT(faults, SizeIs(3));
}

TEST(configuration_check, reports_a_limited_number_of_faults)
{
    EXPECT_THAT(check_configuration({{"groups", json(1000, 7)}}), SizeIs(most_faults));
    const auto faults = find_faults({{"groups", json(1000, 7)}}, 300);
    EXPECT_EQ(faults.first().size(), 300);
    EXPECT_EQ(faults.count(), 1001);
    EXPECT_EQ(faults.further(), 701);
    const json item = {{"sensor_id", 1}, {"config", {{"start_point", 20000}}}};
    EXPECT_THAT(check_configuration({{"groups", json::array({json(1000, item)})}}), SizeIs(most_faults));
}

/** Collects the keywords of a schema and of all schemas in it. */
void collect_keywords(const json &schema, std::set<std::string> &keywords)
{
    static const std::set<std::string> named = {"properties", "$defs"};
    static const std::set<std::string> nested = {"items", "if", "then"};
    for (const auto &[keyword, value] : schema.items())
    {
        keywords.insert(keyword);
        if (nested.contains(keyword))
        {
            collect_keywords(value, keywords);
        }
        if (!named.contains(keyword))
        {
            continue;
        }
        for (const auto &[name, member] : value.items())
        {
            if (member.is_object())
            {
                collect_keywords(member, keywords);
            }
        }
    }
}

/** The processor time for a document with many calibrations that have this as data. */
std::clock_t time_for_calibrations(const json &data)
{
    json calibrations = json::array();
    for (int i = 0; i < 20000; ++i)
    {
        calibrations.push_back({{"data", data}});
    }
    const json document{{"calibration_info", calibrations}};
    const auto begin = std::clock();
    EXPECT_EQ(find_faults(document).count(), 40000U);
    return std::clock() - begin;
}

TEST(configuration_check, compares_many_strings_with_a_pattern_as_quickly_as_with_a_type)
{
    EXPECT_LT(time_for_calibrations(""), 10 * time_for_calibrations(5));
}

TEST(configuration_check, supports_every_keyword_of_the_schema)
{
    std::set<std::string> keywords;
    collect_keywords(configuration_schema(), keywords);
    static const std::set<std::string> known = {
        "$schema", "$id",         "$defs",      "$ref",
        "title",   "description", "default",    "type",
        "enum",    "anyOf",       "minimum",    "maximum",
        "pattern", "required",    "properties", "additionalProperties",
        "items",   "minItems",    "maxItems",   "if",
        "then"};
    for (const auto &keyword : keywords)
    {
        EXPECT_TRUE(known.contains(keyword)) << keyword;
    }
}

TEST(configuration_check, has_a_description_and_a_default_for_every_member_of_a_configuration)
{
    const auto &schema = configuration_schema();
    for (const auto &[name, member] : schema["$defs"]["config"]["properties"].items())
    {
        const auto &definition = schema["$defs"][name];
        EXPECT_TRUE(definition.contains("description")) << name;
        EXPECT_TRUE(definition.contains("default") || name == "subsweeps") << name;
    }
}

} // namespace
} // namespace vantor
