/** @file
 * Tests of the configurations that are chosen for a wish.
 */
#include "vantor/wish.h"

#include <algorithm>
#include <cmath>
#include <random>

#include <gmock/gmock.h>

#include "vantor/configuration_check.h"
#include "vantor/plan.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using testing::IsEmpty;
using testing::SizeIs;

/** The "config" of the first item. */
json config_of(const choice &chosen)
{
    return json(chosen.configuration)["groups"][0][0]["config"];
}

/** The only part of a wish that cannot be met. */
shortfall shortfall_of(const wish &wanted)
{
    const auto parts = choose_configuration(wanted).shortfalls;
    EXPECT_THAT(parts, SizeIs(1));
    return parts.empty() ? shortfall{} : parts.front();
}

/** Why a member of a configuration was chosen. */
std::string reason_of(const wish &wanted, const std::string &member)
{
    for (const auto &each : choose_configuration(wanted).decisions)
    {
        if (each.member == member)
        {
            return each.reason;
        }
    }
    return "";
}

TEST(wish, chooses_the_pulse_by_resolution)
{
    // 1.3 pulse widths are 0.589, 0.368, 0.257, 0.147 and 0.0736 m.
    for (const auto &[resolution, profile] :
         {std::pair(1.0, 5), std::pair(0.59, 5), std::pair(0.453, 4), std::pair(0.3, 3), std::pair(0.2, 2),
          std::pair(0.15, 2), std::pair(0.1, 1), std::pair(0.074, 1)})
    {
        const auto chosen = choose_configuration({.farthest_m = 3.0, .resolution_m = resolution});
        EXPECT_EQ(config_of(chosen)["profile"], profile) << resolution;
        EXPECT_THAT(chosen.shortfalls, IsEmpty());
    }
    const auto part = shortfall_of({.farthest_m = 3.0, .resolution_m = 0.01});
    EXPECT_EQ(part.wish, "resolution");
    EXPECT_EQ(part.asked, 0.01);
    EXPECT_NEAR(part.nearest, 0.07358, 1e-9);
    EXPECT_EQ(part.reason, "the shortest pulse is 0.0566 m wide");
}

TEST(wish, chooses_the_pulse_repetition_frequency_by_distance)
{
    for (const auto &[distance, prf] :
         {std::pair(5.0, "19_5_MHz"), std::pair(7.685, "19_5_MHz"), std::pair(7.69, "15_6_MHz"),
          std::pair(20.0, "6_5_MHz"), std::pair(28.825, "5_2_MHz")})
    {
        const auto chosen = choose_configuration({.farthest_m = distance});
        EXPECT_EQ(config_of(chosen)["prf"], prf) << distance;
        EXPECT_THAT(chosen.shortfalls, IsEmpty());
    }
    const auto part = shortfall_of({.farthest_m = 40.0});
    EXPECT_EQ(part.wish, "distance");
    EXPECT_NEAR(part.nearest, 28.825, 1e-9);
}

TEST(wish, chooses_sweeps_by_velocity)
{
    const auto coarse = config_of(choose_configuration({.farthest_m = 3.0, .greatest_velocity = 2.0}));
    EXPECT_EQ(coarse["sweep_rate"], 2000);
    EXPECT_EQ(coarse["sweeps_per_frame"], 32);
    const auto fine = config_of(choose_configuration(
        {.farthest_m = 1.0, .frame_rate = 5.0, .greatest_velocity = 2.0, .smallest_velocity = 0.05}));
    EXPECT_EQ(fine["sweeps_per_frame"], 100);
    EXPECT_FALSE(config_of(choose_configuration({.farthest_m = 3.0})).contains("sweep_rate"));
    const auto part = shortfall_of({.farthest_m = 20.0, .greatest_velocity = 100.0});
    EXPECT_EQ(part.wish, "greatest velocity");
    EXPECT_LT(part.nearest, 100.0);
    EXPECT_EQ(shortfall_of({.farthest_m = 3.0, .greatest_velocity = 2.0, .smallest_velocity = 0.001}).wish,
              "smallest velocity");
}

TEST(wish, has_a_velocity_that_is_not_at_the_ambiguous_bound)
{
    const auto chosen =
        choose_configuration({.farthest_m = 5.0, .frame_rate = 20.0, .greatest_velocity = 0.8});
    const auto item = plan(json(chosen.configuration)).items.at(0);
    EXPECT_NEAR(item.greatest_velocity().value(), 1.25 * 0.8, 1e-9);
    EXPECT_EQ(reason_of({.farthest_m = 5.0, .greatest_velocity = 0.8}, "sweep_rate"),
              "unambiguous up to a quarter more than the greatest velocity");
    const auto part = shortfall_of({.farthest_m = 20.0, .greatest_velocity = 100.0});
    const auto nearest = choose_configuration({.farthest_m = 20.0, .greatest_velocity = part.nearest});
    EXPECT_THAT(nearest.shortfalls, IsEmpty());
}

TEST(wish, lowers_the_rate_to_what_sensor_and_link_allow)
{
    const auto fast = shortfall_of({.farthest_m = 20.0, .frame_rate = 1e5});
    EXPECT_EQ(fast.wish, "rate");
    EXPECT_LT(fast.nearest, 1e5);
    EXPECT_EQ(shortfall_of({.farthest_m = 20.0, .frame_rate = 1e300}).nearest, fast.nearest);
    const auto part = shortfall_of({.farthest_m = 5.0, .frame_rate = 50.0, .baudrate = 115200.0});
    EXPECT_EQ(part.wish, "rate");
    EXPECT_EQ(part.reason, "a frame is measured, and then sent over the link, which takes longer");
    const auto chosen = choose_configuration({.farthest_m = 5.0, .baudrate = 9600.0});
    EXPECT_THAT(chosen.shortfalls, IsEmpty());
    const double rate = chosen.configuration["max_update_rate"];
    EXPECT_LE(rate, link_frame_rate(plan(json(chosen.configuration)), 9600.0));
    EXPECT_GT(rate, 0.5);
}

TEST(wish, averages_as_many_pulses_as_the_rate_allows)
{
    const int slow = config_of(choose_configuration({.farthest_m = 5.0, .frame_rate = 20.0}))["hwaas"];
    const int fast = config_of(choose_configuration({.farthest_m = 5.0, .frame_rate = 400.0}))["hwaas"];
    EXPECT_GT(slow, fast);
    EXPECT_GT(fast, 1);
}

TEST(wish, has_an_item_for_each_sensor)
{
    const auto chosen = choose_configuration({.farthest_m = 5.0, .sensors = {2, 5}});
    ASSERT_THAT(chosen.configuration["groups"][0], SizeIs(2));
    EXPECT_EQ(chosen.configuration["groups"][0][1]["sensor_id"], 5);
}

TEST(wish, leaves_time_for_reading_out_and_sending)
{
    for (const wish &wanted :
         {wish{.farthest_m = 2.0, .frame_rate = 20.0, .greatest_velocity = 2.0, .smallest_velocity = 0.051},
          wish{.nearest_m = 0.0,
          .farthest_m = 3.0,
          .resolution_m = 0.1,
          .frame_rate = 50.0,
          .greatest_velocity = 1.0},
          wish{.farthest_m = 5.0, .greatest_velocity = 1.0, .baudrate = 921600.0}})
    {
        const auto session = plan(json(choose_configuration(wanted).configuration));
        const double sending =
            wanted.baudrate ? static_cast<double>(session.frame_bytes()) * 10.0 / *wanted.baudrate : 0.0;
        EXPECT_LE(1.25 / session.max_frame_rate + sending, 1.0 / session.frame_rate * 1.000001)
            << session.frame_rate;
    }
}

TEST(wish, has_enough_sweeps_for_a_spectrum)
{
    const auto chosen =
        choose_configuration({.farthest_m = 5.0, .frame_rate = 50.0, .greatest_velocity = 1.0});
    EXPECT_THAT(chosen.shortfalls, IsEmpty());
    EXPECT_GE(config_of(chosen)["sweeps_per_frame"], 16);
    EXPECT_LE(config_of(chosen)["sweep_rate"], 2000);
    const auto slow = choose_configuration({.farthest_m = 5.0, .greatest_velocity = 0.01});
    EXPECT_EQ(config_of(slow)["sweep_rate"], 10);
    EXPECT_EQ(config_of(slow)["sweeps_per_frame"], 16);
    EXPECT_THAT(slow.shortfalls, IsEmpty());
    EXPECT_EQ(shortfall_of({.farthest_m = 5.0, .frame_rate = 10.0, .greatest_velocity = 0.01}).wish, "rate");
    EXPECT_EQ(
        shortfall_of({.farthest_m = 28.8, .resolution_m = 0.08, .frame_rate = 1.0, .greatest_velocity = 0.1})
            .wish,
        "velocity spectrum");
}

TEST(wish, has_reasons_that_are_true)
{
    EXPECT_EQ(reason_of({.farthest_m = 1.0, .frame_rate = 1.0}, "hwaas"),
              "the most pulses for each point, for the least noise");
    EXPECT_EQ(reason_of({.farthest_m = 5.0, .frame_rate = 400.0}, "hwaas"),
              "as many pulses for each point as fit in half of the frame period, for the least noise");
    EXPECT_EQ(reason_of({.farthest_m = 5.0, .frame_rate = 20.0, .greatest_velocity = 2.0}, "hwaas"),
              "as many pulses for each point as sweep rate and frame rate allow, for the least noise");
    EXPECT_EQ(reason_of({.farthest_m = 20.0}, "prf"),
              "the highest one with unambiguous echoes from the farthest distance");
    EXPECT_EQ(reason_of({.farthest_m = 5000.0}, "prf"), "the lowest one: it reaches farthest");
    EXPECT_EQ(reason_of({.farthest_m = 5.0, .baudrate = 9600.0}, "max_update_rate"),
              "a frame is measured, and then sent over the link, which takes longer");
    EXPECT_EQ(reason_of({.farthest_m = 5.0, .frame_rate = 20.0}, "max_update_rate"), "the frame rate");
    EXPECT_EQ(reason_of({.farthest_m = 5.0}, "start_point"),
              "from 0.2 m; choose another distance with --distance 0..5");
    EXPECT_EQ(reason_of({.nearest_m = 0.3, .farthest_m = 5.0}, "start_point"), "the nearest distance");
}

/** A random wish; the same seed gives the same wish. */
wish random_wish(unsigned seed)
{
    std::mt19937 random(seed);
    const auto pick = [&](double lowest, double highest) {
        return std::exp(std::uniform_real_distribution<>(std::log(lowest), std::log(highest))(random));
    };
    const auto maybe = [&](double lowest, double highest) {
        const double value = pick(lowest, highest);
        return pick(1.0, 4.0) > 2.0 ? std::optional(value) : std::nullopt;
    };
    wish wanted{.nearest_m = pick(0.01, 2.0)};
    wanted.farthest_m = *wanted.nearest_m + pick(0.001, 40.0);
    wanted.resolution_m = maybe(0.01, 1.0);
    wanted.frame_rate = maybe(0.01, 1e5);
    wanted.greatest_velocity = maybe(1e-6, 1e3);
    if (wanted.greatest_velocity)
    {
        wanted.smallest_velocity = maybe(*wanted.greatest_velocity / 1e4, *wanted.greatest_velocity);
    }
    wanted.baudrate = maybe(1200, 1e7);
    return wanted;
}

/** Whether a part of a wish is met within the accuracy of the numbers, or reported. */
bool is_met(const choice &chosen, const char *what, bool met)
{
    return met != std::any_of(chosen.shortfalls.begin(), chosen.shortfalls.end(),
                              [what](const shortfall &part) { return part.wish == what; });
}

TEST(wish, is_met_or_reported)
{
    constexpr double accuracy = 1.00001;
    for (unsigned seed = 0; seed < 300; ++seed)
    {
        const auto wanted = random_wish(seed);
        const auto chosen = choose_configuration(wanted);
        const json document = chosen.configuration;
        SCOPED_TRACE(std::to_string(seed) + " " + document.dump());
        EXPECT_THAT(check_configuration(document), IsEmpty());
        const auto session = plan(document);
        EXPECT_THAT(session.doubts, IsEmpty());
        const auto &item = session.items.at(0);
        const auto &subsweep = item.subsweeps.at(0);
        EXPECT_LE(subsweep.first_m, *wanted.nearest_m + 1e-6);
        EXPECT_TRUE(is_met(chosen, "distance", subsweep.last_m >= wanted.farthest_m - 1e-6));
        EXPECT_GE(subsweep.points_per_pulse(), 2.0);
        EXPECT_TRUE(is_met(chosen, "resolution",
                           subsweep.pulse_width_m * 1.3 <= wanted.resolution_m.value_or(1.0) * accuracy));
        EXPECT_TRUE(is_met(chosen, "velocity spectrum", !wanted.greatest_velocity || item.sweeps >= 16));
        EXPECT_LE(session.frame_rate, 0.8 * session.max_frame_rate * accuracy);
        EXPECT_TRUE(is_met(chosen, "rate", session.frame_rate * accuracy >= wanted.frame_rate.value_or(0.0)));
        EXPECT_TRUE(is_met(chosen, "greatest velocity",
                           item.greatest_velocity().value_or(0.0) * accuracy >=
                               1.25 * wanted.greatest_velocity.value_or(0.0)));
        EXPECT_TRUE(is_met(chosen, "smallest velocity",
                           !wanted.smallest_velocity ||
                               *item.smallest_velocity() <= *wanted.smallest_velocity * accuracy));
        if (wanted.baudrate)
        {
            EXPECT_LE(session.frame_rate, link_frame_rate(session, *wanted.baudrate));
        }
    }
}

} // namespace
} // namespace vantor
