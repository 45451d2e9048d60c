/** @file
 * Tests of the captures of a recording.
 */
#include "recording/capture_list.h"

#include <gmock/gmock.h>

namespace vantor
{
namespace
{

using testing::ElementsAre;
using testing::Pair;

/** The first frame of each capture, and the frames missing before it. */
std::vector<std::pair<uint64_t, uint64_t>> places(const capture_list &list)
{
    std::vector<std::pair<uint64_t, uint64_t>> found;
    for (const auto &part : list.captures())
    {
        found.emplace_back(part.first_frame, part.frames_missing);
    }
    return found;
}

segment some_break()
{
    return {.number = 1, .reason = "connected again", .gap = 2.0, .calibration_temperatures = {20}};
}

TEST(capture_list, begins_a_capture_at_each_gap)
{
    capture_list list;
    EXPECT_TRUE(list.add(0));
    EXPECT_FALSE(list.add(0));
    EXPECT_TRUE(list.add(3));
    EXPECT_FALSE(list.add(3));
    EXPECT_TRUE(list.add(4));
    EXPECT_THAT(places(list), ElementsAre(Pair(0, 0), Pair(2, 3), Pair(4, 4)));
    EXPECT_EQ(list.missing(), 4U);
}

TEST(capture_list, removes_a_gap_that_was_none)
{
    capture_list list;
    for (const uint64_t missing : {0, 1, 0, 0})
    {
        list.add(missing);
    }
    EXPECT_THAT(places(list), ElementsAre(Pair(0, 0)));
}

TEST(capture_list, keeps_a_break_without_missing_frames)
{
    capture_list list;
    list.add(0);
    list.begin(some_break());
    EXPECT_TRUE(list.add(0));
    list.add(0);
    EXPECT_THAT(places(list), ElementsAre(Pair(0, 0), Pair(1, 0)));
    EXPECT_EQ(list.captures()[1].begins->reason, "connected again");
}

TEST(capture_list, counts_gaps_that_it_does_not_list)
{
    capture_list list;
    for (uint64_t missing = 0; missing < most_captures + 100; ++missing)
    {
        list.add(missing);
    }
    EXPECT_EQ(list.captures().size(), most_captures);
    EXPECT_EQ(list.captures().back().frames_missing, most_captures - 1);
    EXPECT_EQ(list.missing(), most_captures + 99);
}

TEST(gap_finder, finds_gaps_in_ticks_on_both_sides_of_a_break)
{
    capture known{.first_frame = 3, .frames_missing = 2, .datetime = "later", .begins = some_break()};
    gap_finder finder({capture{.datetime = "first"}, known}, 100.0);
    for (const uint32_t tick : {0U, 100U, 400U, 70U, 170U, 370U})
    {
        finder.add(tick, false);
    }
    EXPECT_THAT(places(finder.found()), ElementsAre(Pair(0, 0), Pair(2, 2), Pair(3, 2), Pair(5, 3)));
    const auto &captures = finder.found().captures();
    EXPECT_EQ(captures[0].datetime, "first");
    EXPECT_EQ(captures[2].datetime, "later");
    EXPECT_TRUE(captures[2].begins);
}

} // namespace
} // namespace vantor
