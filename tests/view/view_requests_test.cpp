/** @file
 * Tests of the requests of viewers, and of the answers that need no server.
 */
#include "view/view_requests.h"

#include <fstream>
#include <limits>

#include <gmock/gmock.h>

#include "example_recording.h"
#include "temporary_directory.h"
#include "view/recording_name.h"
#include "view/view_messages.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using testing::HasSubstr;
using testing::ThrowsMessage;

/** A configuration of one item. */
json configuration_with(const json &config)
{
    const json item{{"sensor_id", 1}, {"config", config}};
    return {{"update_rate", 10}, {"groups", json::array({json::array({item})})}};
}

TEST(view_requests, need_a_type)
{
    EXPECT_EQ(request_type({{"type", "apply"}}), "apply");
    for (const auto *text : {"[]", "{}", "5", R"({"type": 5})"})
    {
        EXPECT_THROW(request_type(json::parse(text)), request_error) << text;
    }
}

TEST(view_requests, have_numbers_within_bounds)
{
    EXPECT_EQ(number_in({{"value", 1}}, "value", 1.0, 2.0), 1.0);
    EXPECT_EQ(number_in({{"value", 2.0}}, "value", 1.0, 2.0), 2.0);
    for (const auto &value : {json(0.99), json(2.01), json("1"), json(), json(1e300)})
    {
        EXPECT_THAT(
            [&] {
                number_in({{"value", value}}, "value", 1.0, 2.0);
            },
            ThrowsMessage<request_error>("\"value\" must be a number from 1.00 to 2.00."))
            << value;
    }
    EXPECT_THROW(number_in(json::object(), "value", 1.0, 2.0), request_error);
}

TEST(view_requests, have_objects_and_texts)
{
    EXPECT_EQ(object_in({{"configuration", {{"a", 1}}}}, "configuration"), json({{"a", 1}}));
    EXPECT_THROW(object_in({{"configuration", 5}}, "configuration"), request_error);
    EXPECT_THROW(object_in(json::object(), "configuration"), request_error);
    EXPECT_EQ(text_in({{"name", "walk"}}, "name"), "walk");
    EXPECT_EQ(text_in(json::object(), "name"), "");
    EXPECT_THROW(text_in({{"name", 5}}, "name"), request_error);
}

TEST(view_messages, show_each_fault_of_a_configuration_with_the_nearest_value)
{
    const auto answer =
        checked_message({{"id", 3}, {"configuration", configuration_with({{"hwaas", 100000}})}}, nullptr);
    EXPECT_EQ(answer["id"], 3);
    EXPECT_TRUE(answer["plan"].empty());
    ASSERT_EQ(answer["faults"].size(), 1U);
    EXPECT_EQ(answer["faults"][0]["pointer"], "/groups/0/0/config/hwaas");
    EXPECT_EQ(answer["faults"][0]["nearest"], 511);
    EXPECT_TRUE(answer["faults"][0]["members"].empty());
    EXPECT_THAT(answer["faults"][0]["message"].get<std::string>(), HasSubstr("got 100000; allowed: "));
}

TEST(view_messages, show_all_members_of_a_fault_between_them)
{
    const auto config = json{{"inter_frame_idle_state", "ready"}, {"inter_sweep_idle_state", "sleep"}};
    const auto answer = checked_message({{"id", 3}, {"configuration", configuration_with(config)}}, nullptr);
    ASSERT_EQ(answer["faults"].size(), 1U);
    EXPECT_EQ(answer["faults"][0]["members"].get<std::vector<std::string>>(),
              (std::vector<std::string>{"/groups/0/0/config/inter_frame_idle_state",
                                        "/groups/0/0/config/inter_sweep_idle_state"}));
}

TEST(view_messages, show_only_figures_of_memory_that_are_numbers)
{
    const auto statistics = json::parse(R"({"memory": {"live": 1, "peak": 2, "size": 3, "failures": "x"}})");
    EXPECT_EQ(usage_in(statistics, "memory", {"live", "peak", "size"}).dump(),
              R"({"live":1,"peak":2,"size":3})");
    for (const char *wrong :
         {"null", "[]", "5", "{}", R"({"memory": null})", R"({"memory": "much"})",
          R"({"memory": {"peak": 2}})", R"({"memory": {"peak": "2", "size": 3}})",
          R"({"memory": {"peak": 2, "size": null}})", R"({"memory": {"peak": 2, "size": 1e308}})",
          R"({"memory": {"peak": -2, "size": 3}})", R"({"memory": [2, 3]})"})
    {
        EXPECT_TRUE(usage_in(json::parse(wrong), "memory", {"peak", "size"}).is_null()) << wrong;
    }
}

TEST(view_messages, show_usual_figures_if_the_server_does_not_know_them)
{
    const auto shown_with = [](double base_step, double sweep_rate) {
        auto session = test::example_description();
        session.metadata.items[0].base_step_length_m = base_step;
        session.metadata.items[0].max_sweep_rate = sweep_rate;
        return session_message(1, session)["items"][0];
    };
    // The length of a base step in docs/k330.json.
    constexpr double usual = 0.0025;
    const auto expected = shown_with(usual, 0.0);
    EXPECT_GT(expected["subsweeps"][0]["start_m"], 0.0);
    EXPECT_EQ(expected["sweep_rate"], 0.0);
    const double unknown = std::numeric_limits<double>::quiet_NaN();
    for (const auto &[step, rate] :
         {std::pair(unknown, unknown), std::pair(1e-300, 1e-300), std::pair(usual, 1e308)})
    {
        EXPECT_EQ(shown_with(step, rate), expected) << step << ", " << rate;
    }
    const auto other = shown_with(2 * usual, 3000.0);
    EXPECT_EQ(other["sweep_rate"], 3000.0);
    for (const char *length : {"start_m", "step_m"})
    {
        EXPECT_DOUBLE_EQ(other["subsweeps"][0][length], expected["subsweeps"][0][length].get<double>() * 2.0);
    }
}

TEST(view_messages, show_the_figures_of_a_configuration_without_faults)
{
    const auto config =
        json{{"start_point", 100}, {"num_points", 11}, {"step_length", 2}, {"sweeps_per_frame", 16}};
    const auto answer = checked_message({{"id", 4}, {"configuration", configuration_with(config)}}, nullptr);
    EXPECT_TRUE(answer["faults"].empty());
    std::map<std::string, std::string> figures;
    for (const auto &row : answer["plan"])
    {
        figures[row[0]] = row[1];
    }
    EXPECT_EQ(figures["distance"], "0.250 to 0.300 m, 11 points");
    EXPECT_EQ(figures["step"], "5.0 mm");
    EXPECT_EQ(figures["frame rate"], "10.0 /s");
    EXPECT_THAT(figures["velocity"], HasSubstr("m/s, in steps of "));
    EXPECT_THAT(figures["memory of the board"], HasSubstr("kB*"));
}

TEST(view_messages, show_where_simulated_targets_are)
{
    item_truth known;
    known.targets.push_back({.target = 1, .distance_m = 0.5, .velocity_m_s = -0.25, .snr_db = std::nullopt});
    EXPECT_EQ(truth_message({.items = {known, std::nullopt}}).dump(),
              R"({"type":"truth","items":[[{"target":1,"distance_m":0.5,"velocity_m_s":-0.25}],null]})");
}

TEST(view_messages, replace_bytes_that_are_not_text)
{
    EXPECT_EQ(message_text({{"text", "a\xff"}}), "{\"text\":\"a\xef\xbf\xbd\"}");
}

TEST(recording_name, is_a_new_directory_in_recordings)
{
    EXPECT_EQ(named_recording("walk 1"), "recordings/walk 1");
    EXPECT_EQ(named_recording("Küche"), "recordings/Küche");
    EXPECT_EQ(named_recording(std::string(100, 'x')).filename(), std::string(100, 'x'));
    for (const auto &name : {std::string(".."), std::string(".x"), std::string("a/b"), std::string("a\nb"),
                             std::string("a\0b", 3), std::string("a\x7f"), std::string("a\u202eb"),
                             std::string("a\u0085"), std::string("a\tb"), std::string(101, 'x')})
    {
        EXPECT_THROW(named_recording(name), request_error) << name;
    }
}

} // namespace
} // namespace vantor
