/** @file
 * Tests of the names of streams and subjects.
 */
#include "bridge/nats_names.h"

#include <gmock/gmock.h>

namespace vantor
{
namespace
{

using testing::Eq;
using testing::Optional;

TEST(nats_names, are_those_of_the_documentation)
{
    const nats_names names("hall");
    EXPECT_EQ(names.frames_stream, "vantor-hall-frames");
    EXPECT_EQ(names.states_stream, "vantor-hall-states");
    EXPECT_EQ(names.frames_of("door"), "vantor.hall.door.frames");
    EXPECT_EQ(names.state_of("door"), "vantor.hall.door.state");
}

TEST(nats_names, tell_the_site_of_a_stream)
{
    EXPECT_THAT(site_of_states("vantor-hall-states"), Optional(Eq("hall")));
    EXPECT_THAT(site_of_states("vantor-vantor--states-states"), Optional(Eq("vantor--states")));
    for (const char *other :
         {"", "vantor-", "-states", "vantor-states", "vantor--states", "vantor-hall-frames",
          "other-hall-states", "vantor-a.b-states", "vantor-a b-states", "vantor-\x01-states"})
    {
        EXPECT_EQ(site_of_states(other), std::nullopt) << other;
    }
    EXPECT_EQ(site_of_states("vantor-" + std::string(65, 'a') + "-states"), std::nullopt);
}

TEST(nats_names, are_sorted_by_their_numbers)
{
    const std::vector<std::string> sorted = {"7",      "10",      "Gate-3",  "a",        "a-",
                                             "gate",   "gate0",   "gate1b2", "gate1b10", "gate-02",
                                             "gate-2", "gate-10", "gate-x",  "gate-x1"};
    for (size_t i = 0; i < sorted.size(); ++i)
    {
        for (size_t j = 0; j < sorted.size(); ++j)
        {
            EXPECT_EQ(comes_before(sorted[i], sorted[j]), i < j) << sorted[i] << " " << sorted[j];
        }
    }
}

TEST(nats_names, tell_the_number_behind_a_prefix)
{
    EXPECT_THAT(number_behind("inbox.", "inbox.17"), Optional(17U));
    EXPECT_THAT(number_behind("inbox.", "inbox.18446744073709551615"), Optional(UINT64_MAX));
    for (const char *other : {"", "in", "inbox.", "inbox.x", "inbox.-1", "inbox.+1", "inbox. 1", "inbox.1x",
                              "inbox.1.2", "other.17", "inbox.18446744073709551616"})
    {
        EXPECT_EQ(number_behind("inbox.", other), std::nullopt) << other;
    }
}

} // namespace
} // namespace vantor
