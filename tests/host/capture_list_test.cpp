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

/** A capture that begins at a gap. */
capture part_from(uint64_t first_frame, uint64_t missing)
{
    return {.first_frame = first_frame, .frames_missing = missing, .datetime = {}};
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
    for (const uint64_t missing : {0U, 1U, 0U, 0U})
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

TEST(capture_list, has_no_break_before_the_first_frame)
{
    capture_list list;
    list.begin(some_break());
    EXPECT_TRUE(list.add(0));
    EXPECT_FALSE(list.add(0));
    EXPECT_THAT(places(list), ElementsAre(Pair(0, 0)));
    EXPECT_FALSE(list.captures()[0].begins);
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

TEST(capture_list, limits_and_counts_breaks)
{
    capture_list list;
    for (size_t number = 0; number < most_captures_with_breaks + 100; ++number)
    {
        list.begin(some_break());
        list.add(number);
    }
    EXPECT_EQ(list.captures().size(), most_captures_with_breaks);
    EXPECT_EQ(list.unlisted_breaks(), 100U);
    EXPECT_EQ(list.missing(), most_captures_with_breaks + 99);
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

TEST(gap_finder, keeps_the_losses_that_only_the_documents_know)
{
    // A damaged message before frame 2, and one before the first frame after the break.
    const std::vector<capture> known = {
        {.datetime = "first"},
        {.first_frame = 2, .frames_missing = 1, .datetime = "second"},
        {.first_frame = 4, .frames_missing = 2, .datetime = "third", .begins = some_break()}};
    for (const double period : {0.0, 100.0})
    {
        gap_finder finder(known, period);
        for (const uint32_t tick : {0U, 100U, 200U, 300U, 70U, 170U})
        {
            finder.add(tick, false);
        }
        EXPECT_THAT(places(finder.found()), ElementsAre(Pair(0, 0), Pair(2, 1), Pair(4, 2))) << period;
        EXPECT_EQ(finder.found().captures()[0].datetime, "first");
        EXPECT_EQ(finder.found().captures()[1].datetime, "second");
        EXPECT_EQ(finder.found().missing(), 2U);
    }
}

TEST(gap_finder, keeps_the_time_of_a_capture_if_the_next_one_does_not_begin)
{
    gap_finder finder({capture{.datetime = "first"}, {.first_frame = 1, .datetime = "no gap"}}, 0.0);
    finder.add(0, false);
    finder.add(100, false);
    EXPECT_THAT(places(finder.found()), ElementsAre(Pair(0, 0)));
    EXPECT_EQ(finder.found().captures()[0].datetime, "first");
}

TEST(gap_finder, goes_on_from_the_listed_count_after_the_last_listed_capture)
{
    // The documents also count a message that was damaged before the first frame.
    gap_finder finder({part_from(0, 1), part_from(2, 2)}, 100.0);
    for (const uint32_t tick : {0U, 100U, 300U, 400U, 600U})
    {
        finder.add(tick, false);
    }
    EXPECT_EQ(finder.found().missing(), 3U);
}

TEST(gap_finder, takes_a_gap_back_that_was_listed_without_it)
{
    // Frame 1 was late by nearly a period, as frame 2 shows; a gap follows.
    gap_finder finder({part_from(0, 0), part_from(1, 2)}, 100.0);
    for (const uint32_t tick : {0U, 390U, 410U, 500U, 700U})
    {
        finder.add(tick, false);
    }
    EXPECT_EQ(finder.found().missing(), 3U);
}

} // namespace
} // namespace vantor
