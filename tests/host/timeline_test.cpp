/** @file
 * Tests of the axis of time of pictures.
 */
#include "plot/timeline.h"

#include <gmock/gmock.h>

#include "temporary_directory.h"
#include "written_recordings.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using testing::ElementsAre;

/** A recording without echoes, and its axis of time. */
class timeline_test : public testing::Test
{
protected:
    /** Records frames. */
    timeline record(const test::written_item &item, int frames, const test::header_change &change = {})
    {
        test::write_item(
            directory / "out", item, frames, [](int, size_t, size_t) { return 1.0; }, change);
        recording.emplace(directory / "out");
        return {*recording, 0};
    }

    /** The numbers of the frames after a gap. */
    std::vector<uint64_t> gaps(const timeline &times)
    {
        std::vector<uint64_t> numbers;
        frame_rows rows(*recording, 0, times);
        for (uint64_t number = 0; number < recording->frames(); ++number)
        {
            rows.advance();
            if (rows.after_gap())
            {
                numbers.push_back(number);
            }
        }
        return numbers;
    }

    /** When a frame began and ended. */
    std::pair<double, double> time_of(const timeline &times, uint64_t number)
    {
        frame_rows rows(*recording, 0, times);
        for (uint64_t i = 0; i <= number; ++i)
        {
            rows.advance();
        }
        return {rows.begin(), rows.end()};
    }

    test::temporary_directory directory;
    std::optional<recording_reader> recording;
};

TEST_F(timeline_test, has_the_nominal_rate_beside_a_gap)
{
    const auto times = record({.config = json::object(), .missing = {{20, 500}}}, 60);
    EXPECT_DOUBLE_EQ(times.axis().rate, 50.0);
    EXPECT_TRUE(times.axis().in_seconds);
    EXPECT_DOUBLE_EQ(times.axis().end, 559 * 0.02);
    EXPECT_EQ(times.gaps(), 1U);
    EXPECT_EQ(times.longest_run(), 40U);
    EXPECT_THAT(gaps(times), ElementsAre(20U));
    // The last frame before the gap is as long as the others.
    EXPECT_DOUBLE_EQ(time_of(times, 18).second, 19 * 0.02);
    EXPECT_DOUBLE_EQ(time_of(times, 19).second, 20 * 0.02);
    EXPECT_DOUBLE_EQ(time_of(times, 20).first, 520 * 0.02);
    EXPECT_DOUBLE_EQ(time_of(times, 59).second, 560 * 0.02);
    EXPECT_EQ(find_gaps(*recording).missing, 500U);
}

TEST_F(timeline_test, finds_gaps_of_a_recording_that_was_never_finished)
{
    const auto times = record({.config = json::object(), .finished = false, .missing = {{20, 500}}}, 60);
    EXPECT_FALSE(recording->finished());
    EXPECT_DOUBLE_EQ(times.axis().rate, 50.0);
    EXPECT_THAT(gaps(times), ElementsAre(20U));
    EXPECT_EQ(find_gaps(*recording).missing, 500U);
}

TEST_F(timeline_test, counts_the_gaps_before_a_cut_that_are_not_listed)
{
    test::write_many_gaps(directory / "out");
    EXPECT_EQ(find_gaps(recording_reader(directory / "out")).missing, test::frames_between_gaps - 1U);
    const auto samples = directory / "out/group-1-item-1.sigmf-data";
    std::filesystem::resize_file(samples, std::filesystem::file_size(samples) - 1);
    EXPECT_EQ(find_gaps(recording_reader(directory / "out")).missing, test::frames_between_gaps - 2U);
}

TEST_F(timeline_test, has_gaps_at_breaks)
{
    const auto times = record({.config = json::object(), .breaks = {{10, 3.0}}}, 30);
    EXPECT_DOUBLE_EQ(times.axis().rate, 50.0);
    EXPECT_THAT(gaps(times), ElementsAre(10U));
    EXPECT_DOUBLE_EQ(time_of(times, 10).first, 9 * 0.02 + 3.0);
    EXPECT_DOUBLE_EQ(time_of(times, 9).second, 10 * 0.02);
}

TEST_F(timeline_test, is_interrupted_by_frames_that_are_not_valid)
{
    const auto times = record({.config = json::object()}, 30,
                              [](int frame, json &info) { info["data_valid"] = frame != 12; });
    EXPECT_EQ(times.longest_run(), 17U);
    EXPECT_EQ(times.not_valid(), 1U);
    EXPECT_EQ(times.gaps(), 0U);
}

TEST_F(timeline_test, takes_frames_that_are_always_left_out_for_a_lower_rate)
{
    std::map<int, uint64_t> missing;
    for (int number = 1; number < 60; ++number)
    {
        missing[number] = number == 30 ? 5 : 1;
    }
    const auto times = record({.config = json::object(), .missing = missing}, 60);
    EXPECT_DOUBLE_EQ(times.axis().rate, 25.0);
    EXPECT_THAT(gaps(times), ElementsAre(30U));
}

TEST_F(timeline_test, uses_the_configured_rate_without_a_clock)
{
    const auto times = record(
        {.config = {{"frame_rate", 40}}, .has_clock = false, .missing = {{20, 4}}, .breaks = {{10, 3.0}}},
        60);
    EXPECT_DOUBLE_EQ(times.axis().rate, 40.0);
    EXPECT_TRUE(times.axis().in_seconds);
    EXPECT_THAT(gaps(times), ElementsAre(10U, 20U));
    EXPECT_DOUBLE_EQ(time_of(times, 9).first, 9 / 40.0);
    EXPECT_DOUBLE_EQ(time_of(times, 10).first, 9 / 40.0 + 3.0);
    EXPECT_DOUBLE_EQ(times.axis().end, 62 / 40.0 + 3.0);
}

TEST_F(timeline_test, counts_frames_without_clock_and_rate)
{
    const auto times = record({.config = json::object(), .has_clock = false, .missing = {{20, 4}}}, 60);
    EXPECT_EQ(times.axis().rate, 0.0);
    EXPECT_FALSE(times.axis().in_seconds);
    EXPECT_EQ(times.axis().period, 1.0);
    EXPECT_EQ(times.axis().end, 63.0);
}

TEST_F(timeline_test, measures_the_rate_of_frames_that_are_not_paced)
{
    const auto late = [](int frame, json &info) {
        // Every third frame is a little later; frame 30 and those after it are much later.
        info["tick"] = frame * 20000 + (frame % 3 == 0 ? 3000 : 0) + (frame < 30 ? 0 : 900'000);
    };
    const auto times = record({.config = json::object(), .paced = false}, 60, late);
    EXPECT_NEAR(times.axis().rate, 50.0, 10.0);
    EXPECT_THAT(gaps(times), ElementsAre(30U));
}

} // namespace
} // namespace vantor
