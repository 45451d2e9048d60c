/** @file
 * Tests of finding the first difference between two configurations.
 */
#include "replay/configuration_difference.h"

#include <gmock/gmock.h>

#include "item_document.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using test::document_with;

/** The difference as text; empty if there is none. */
std::string difference(const json &recorded, const json &requested)
{
    const auto found = first_difference(recorded, requested);
    return found ? difference_text(*found) : std::string();
}

TEST(configuration_difference, is_none_for_equal_measurements)
{
    const auto recorded = document_with({{"start_point", 80}, {"frame_rate", 50}});
    EXPECT_EQ(difference(recorded, recorded), "");
    EXPECT_EQ(difference(recorded, document_with({{"frame_rate", 50.0}})), "");
    EXPECT_EQ(difference(recorded,
                         document_with({{"frame_rate", 50}, {"subsweeps", json::array({json::object()})}})),
              "");
    EXPECT_EQ(difference(document_with({{"subsweeps", {{{"hwaas", 9}}}}}), document_with({{"hwaas", 9}})),
              "");
    EXPECT_EQ(difference(recorded, document_with({{"frame_rate", 50}}, {{"cca_enable", false}})), "");
}

TEST(configuration_difference, leaves_out_what_does_not_change_the_measurement)
{
    const auto recorded = document_with(json::object());
    auto requested = document_with(json::object(), {{"comment", "behind the door"}});
    requested.update({{"enable_log", "DEBUG"},
                      {"enable_diagnostics", true},
                      {"calibration_info", {{{"sensor_id", 1}, {"data", std::string(480, '0')}}}},
                      {"$schema", "x"},
                      {"comment", "garage"},
                      {"update_rate", 0}});
    EXPECT_EQ(difference(recorded, requested), "");
    EXPECT_EQ(difference(requested, recorded), "");
}

TEST(configuration_difference, is_found_in_every_part)
{
    const auto recorded = document_with({{"start_point", 480}});
    EXPECT_EQ(difference(recorded, document_with(json::object())),
              "/groups/0/0/config/start_point is 80, but in the recording it is 480.");
    EXPECT_EQ(difference(recorded, document_with({{"subsweeps", {{{"start_point", 480}, {"profile", 1}}}}})),
              "/groups/0/0/config/subsweeps/0/profile is 1, but in the recording it is 3.");
    EXPECT_EQ(difference(recorded, document_with({{"start_point", 480}, {"sweeps_per_frame", 16}})),
              "/groups/0/0/config/sweeps_per_frame is 16, but in the recording it is 1.");
    EXPECT_EQ(difference(recorded, document_with({{"start_point", 480}}, {{"cca_enable", true}})),
              "/groups/0/0/cca_enable is true, but in the recording it is false.");
    EXPECT_EQ(difference(recorded,
                         document_with({{"start_point", 480}}, {{"cpd_overrides", {{"rx_duration", 5}}}})),
              "/groups/0/0/cpd_overrides is an object, but in the recording it is missing.");
    EXPECT_EQ(difference(recorded, document_with({{"start_point", 480}, {"a/b", 1}})),
              "/groups/0/0/config/a~1b is 1, but in the recording it is missing.");
}

TEST(configuration_difference, is_found_in_lists_of_different_lengths)
{
    const auto one = document_with(json::object());
    auto two_items = one;
    two_items["groups"][0].push_back(one["groups"][0][0]);
    auto two_groups = one;
    two_groups["groups"].push_back(one["groups"][0]);
    const auto two_subsweeps = document_with({{"subsweeps", {json::object(), json::object()}}});
    EXPECT_EQ(difference(one, two_items), "/groups/0/1 is an object, but in the recording it is missing.");
    EXPECT_EQ(difference(two_items, one), "/groups/0/1 is missing, but in the recording it is an object.");
    EXPECT_EQ(difference(two_groups, one), "/groups/1 is missing, but in the recording it is a list.");
    EXPECT_EQ(difference(two_subsweeps, one),
              "/groups/0/0/config/subsweeps/1 is missing, but in the recording it is an object.");
}

TEST(configuration_difference, is_found_in_the_update_rate_and_its_alias)
{
    auto recorded = document_with(json::object());
    recorded["max_update_rate"] = 50;
    auto requested = document_with(json::object());
    EXPECT_EQ(difference(recorded, requested), "/max_update_rate is missing, but in the recording it is 50.");
    requested["update_rate"] = 50;
    EXPECT_EQ(difference(recorded, requested), "");
    requested["max_update_rate"] = 20;
    EXPECT_EQ(difference(recorded, requested), "/max_update_rate is 20, but in the recording it is 50.");
}

TEST(configuration_difference, is_found_in_documents_of_any_shape)
{
    const auto recorded = document_with(json::object());
    EXPECT_EQ(difference(recorded, json::array()),
              "The configuration is a list, but in the recording it is an object.");
    EXPECT_EQ(difference(recorded, {{"groups", 7}}), "/groups is 7, but in the recording it is a list.");
    EXPECT_EQ(difference(recorded, {{"groups", {7}}}), "/groups/0 is 7, but in the recording it is a list.");
    EXPECT_EQ(difference(recorded, {{"groups", {{7}}}}),
              "/groups/0/0 is 7, but in the recording it is an object.");
    EXPECT_EQ(difference(recorded, {{"groups", {{{{"sensor_id", 1}, {"config", "x"}}}}}}),
              "/groups/0/0/config is \"x\", but in the recording it is an object.");
}

} // namespace
} // namespace vantor
