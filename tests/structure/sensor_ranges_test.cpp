/** @file
 * Tests that the headers of the sensor library state the same ranges and defaults as
 * docs/configuration.schema.json and docs/k330.json.
 */
#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "repository.h"

namespace structure_tests
{

namespace
{

using nlohmann::json;
using testing::HasSubstr;

json read(const char *name)
{
    return json::parse(text_of(std::filesystem::path(PROJECT_ROOT) / "docs" / name));
}

const json &schema()
{
    static const json document = read("configuration.schema.json");
    return document;
}

/** All headers of the sensor library, with each comment as one line. */
const std::string &headers()
{
    static const std::string text = [] {
        std::string all;
        for (const auto &header : headers_of("nox"))
        {
            all += text_of(header);
        }
        return std::regex_replace(all, std::regex("\n \\* ?"), " ");
    }();
    return text;
}

/** The comment of a function. */
std::string comment_of(const std::string &function)
{
    const auto declaration = headers().find("\nvoid " + function + "(");
    const auto begin = headers().rfind("/**", declaration);
    return declaration == std::string::npos ? std::string() : headers().substr(begin, declaration - begin);
}

/** The enumerator for a value in the schema: "PRF" and "15_6_MHz" give "ZET_CONFIG_PRF_15_6_MHZ". */
std::string enumerator(const std::string &type, const std::string &word)
{
    std::string name = "ZET_CONFIG_" + type + "_" + word;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    return name;
}

/** The enumeration of a member; empty if its values are not enumerators. */
std::string enumeration(const std::string &member)
{
    return member == "prf" ? "PRF" : member.ends_with("_idle_state") ? "IDLE_STATE" : std::string();
}

/** Range and default of a member in the wording of the comments. */
std::string range_and_default(const std::string &name, const json &member)
{
    if (member["type"] == "array")
    {
        return member["minItems"].dump() + " to " + member["maxItems"].dump() + "; 1 by default";
    }
    if (member["type"] == "string")
    {
        return enumerator(enumeration(name), member["default"]) + " by default";
    }
    const auto &range = member.contains("anyOf") ? member["anyOf"][1] : member;
    const auto bounds =
        range.contains("minimum") ? range["minimum"].dump() + " to " + range["maximum"].dump() + "; " : "";
    return (member.contains("anyOf") ? member["anyOf"][0]["const"].dump() + " or " : "") + bounds +
           member["default"].dump() + " by default";
}

TEST(sensor_ranges, in_the_headers_match_the_schema)
{
    const auto &definitions = schema()["$defs"];
    for (const auto &[name, reference] : definitions["config"]["properties"].items())
    {
        const bool of_subsweep = definitions["subsweep"]["properties"].contains(name);
        const auto setter = (of_subsweep ? "zet_config_subsweep_" : "zet_config_") +
                            (name == "subsweeps" ? "num_subsweeps" : name) + "_set";
        EXPECT_THAT(comment_of(setter), HasSubstr(", " + range_and_default(name, definitions[name])))
            << setter;
    }
}

TEST(sensor_ranges, include_all_enumerators_of_the_schema)
{
    for (const char *name : {"prf", "inter_frame_idle_state", "inter_sweep_idle_state"})
    {
        const auto &words = schema()["$defs"][name]["enum"];
        for (size_t i = 0; i < words.size(); ++i)
        {
            EXPECT_THAT(headers(),
                        HasSubstr(enumerator(enumeration(name), words[i]) + " = " + std::to_string(i)));
        }
    }
}

TEST(sensor_ranges, in_the_headers_match_the_figures)
{
    const json figures = read("k330.json")["figures"];
    EXPECT_THAT(comment_of("zet_config_sweeps_per_frame_set"),
                HasSubstr(" at most " + figures["most_samples"]["value"].dump() + " samples"));
    EXPECT_THAT(headers(), HasSubstr(" " + figures["calibration_bytes"]["value"].dump() + " opaque bytes"));
    for (const auto &[prf, point] : figures["farthest_point"]["value"].items())
    {
        EXPECT_THAT(comment_of("zet_config_subsweep_prf_set"),
                    HasSubstr(" " + point.dump() + " with " + enumerator("PRF", prf)));
    }
}

/** A number of bytes in a table of docs/footprint.md; the tables of all boards must agree. */
int heap_bytes(const std::string &row)
{
    const auto document = text_of(std::filesystem::path(PROJECT_ROOT) / "docs/footprint.md");
    const std::regex pattern("\\n\\| " + row + " \\| ([0-9,]+) \\|");
    std::set<int> found;
    for (std::sregex_iterator match(document.begin(), document.end(), pattern), end; match != end; ++match)
    {
        found.insert(std::stoi(std::regex_replace((*match)[1].str(), std::regex(","), "")));
    }
    EXPECT_EQ(found.size(), 1U) << row;
    return found.empty() ? -1 : *found.begin();
}

TEST(sensor_ranges, include_the_memory_of_the_footprint)
{
    const auto figures = read("k330.json")["figures"];
    EXPECT_EQ(figures["sensor_memory"]["value"], heap_bytes("session: each sensor in use"));
    EXPECT_EQ(figures["item_memory"]["value"].get<int>() + 100 * figures["sample_bytes"]["value"].get<int>(),
              heap_bytes("session: each item, with 100 points"));
}

} // namespace

} // namespace structure_tests
