/** @file
 * Tests of the figures that follow from a configuration document. plan_agreement_test.cpp compares them with
 * a server.
 */
#include "vantor/plan.h"

#include <limits>

#include <gmock/gmock.h>

#include "item_document.h"
#include "vantor/configuration.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using test::document_with;
using testing::IsEmpty;
using testing::SizeIs;

TEST(plan, has_the_figures_of_the_defaults)
{
    const auto session = plan(document_with(json::object()));
    ASSERT_THAT(session.items, SizeIs(1));
    const auto &item = session.items[0];
    ASSERT_THAT(item.subsweeps, SizeIs(1));
    const auto &subsweep = item.subsweeps[0];
    EXPECT_NEAR(subsweep.first_m, 0.2, 1e-12);
    EXPECT_NEAR(subsweep.last_m, 0.5975, 1e-12);
    EXPECT_NEAR(subsweep.step_m, 0.0025, 1e-12);
    EXPECT_NEAR(subsweep.pulse_width_m, 0.198, 1e-12);
    EXPECT_NEAR(subsweep.points_per_pulse(), 79.2, 1e-9);
    EXPECT_NEAR(subsweep.unambiguous_m, 9.6075, 1e-12);
    EXPECT_TRUE(item.high_speed_mode);
    // 2 µs to set up, and 160 points of 9 pulses at 15.6 MHz; 1 µs or 300 µs to wake.
    EXPECT_NEAR(item.sweep_s * 1e6, 94.3077, 1e-3);
    EXPECT_NEAR(item.max_sweep_rate, 1e6 / 95.3077, 0.01);
    EXPECT_NEAR(item.frame_s * 1e6, 394.3077, 1e-3);
    EXPECT_EQ(item.greatest_velocity(), std::nullopt);
    EXPECT_EQ(session.frame_rate, 0.0);
    EXPECT_NEAR(session.max_frame_rate, 1e6 / 394.3077, 0.01);
    EXPECT_EQ(session.payload_bytes, 640U);
    EXPECT_EQ(session.memory_bytes, 488U + 168U + 640U);
    EXPECT_TRUE(session.sensors_assumed);
    EXPECT_TRUE(session.memory_assumed);
}

TEST(plan, has_velocities_with_several_sweeps)
{
    const auto session = plan(document_with({{"sweeps_per_frame", 32}, {"sweep_rate", 1600}}));
    EXPECT_NEAR(session.items[0].greatest_velocity().value(), 2.0, 1e-12);
    EXPECT_NEAR(session.items[0].smallest_velocity().value(), 0.125, 1e-12);
    // 300 µs to wake, 31 sweep periods, one sweep.
    EXPECT_NEAR(session.items[0].frame_s * 1e6, 300 + 31 * 625 + 94.3077, 1e-3);
}

TEST(plan, expects_the_configured_rate_or_the_highest_one)
{
    auto document = document_with(json::object());
    const auto expected = [&] { return plan(document).expected_frame_rate(); };
    const double highest = expected();
    EXPECT_NEAR(highest, 2536.09, 0.01);
    document["update_rate"] = 30;
    EXPECT_EQ(expected(), 30.0);
    document["max_update_rate"] = 20;
    EXPECT_EQ(expected(), 20.0);
    document["max_update_rate"] = -1;
    EXPECT_EQ(expected(), highest);
    document["max_update_rate"] = 1e5;
    EXPECT_EQ(expected(), 1e5 / 40) << "39 of 40 frames are left out";
    document["max_update_rate"] = 2536;
    EXPECT_EQ(expected(), 2536.0);
    document["max_update_rate"] = 2537;
    EXPECT_EQ(expected(), 2537.0 / 2);
    EXPECT_EQ(plan(document_with({{"frame_rate", 12.5}})).expected_frame_rate(), 12.5);
    EXPECT_EQ(plan(json::object()).expected_frame_rate(), 0.0);
}

TEST(plan, doubts_rates_that_are_too_high)
{
    auto document = document_with(json::object());
    document["max_update_rate"] = 2028;
    EXPECT_THAT(plan(document).doubts, IsEmpty());
    document["max_update_rate"] = 2029;
    const auto doubts = plan(document).doubts;
    ASSERT_THAT(doubts, SizeIs(1));
    EXPECT_EQ(doubts[0].pointer, "/max_update_rate");
    EXPECT_EQ(doubts[0].got, "2029");
    EXPECT_EQ(doubts[0].allowed,
              "at most 2028.87: a frame that is not measured, read out and sent within the "
              "period makes the server leave out the next one");
    EXPECT_EQ(doubts[0].nearest, 2028.87);
}

TEST(plan, doubts_a_document_without_items)
{
    for (const char *text : {R"({})", R"({"groups": []})"})
    {
        const auto doubts = plan(json::parse(text)).doubts;
        ASSERT_THAT(doubts, SizeIs(1)) << text;
        EXPECT_EQ(doubts[0].pointer, "/groups");
    }
}

TEST(plan, has_the_time_of_groups_one_after_the_other)
{
    const json item = {{"sensor_id", 1}, {"config", json::object()}};
    auto other = item;
    other["sensor_id"] = 2;
    const auto rate = [](const json &groups) { return plan({{"groups", groups}}).max_frame_rate; };
    const double one = rate(json::array({json::array({item})}));
    EXPECT_EQ(rate(json::array({json::array({item, other})})), one);
    EXPECT_EQ(rate(json::array({json::array({item}), json::array({other})})), one / 2);
    EXPECT_EQ(rate(json::array({json::array({item, item})})), one / 2);
}

TEST(plan, has_the_frame_rate_of_a_link)
{
    const auto session = plan(document_with(json::object()));
    EXPECT_NEAR(link_frame_rate(session, 115200), 11520.0 / static_cast<double>(session.frame_bytes()), 1e-9);
}

TEST(plan, accepts_every_sensor_number)
{
    auto document = document_with(json::object());
    document["groups"][0][0]["sensor_id"] = 1e300;
    EXPECT_EQ(plan(document).items[0].sensor_id, std::numeric_limits<unsigned>::max());
}

TEST(plan, fits_every_example)
{
    for (const char *name : {"single_sensor.json", "two_sensors.json"})
    {
        const auto document = load_configuration(std::filesystem::path(VANTOR_EXAMPLES) / name);
        const auto session = plan(document);
        EXPECT_EQ(session.items.size(), list_items(document).size()) << name;
        EXPECT_THAT(session.doubts, IsEmpty()) << name;
    }
}

} // namespace
} // namespace vantor
