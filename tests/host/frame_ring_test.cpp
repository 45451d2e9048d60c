/** @file
 * Tests of keeping the last frames of a stream, and of recording them.
 */
#include "hub/frame_ring.h"

#include <gmock/gmock.h>

#include "example_recording.h"
#include "hub/keep_frames.h"
#include "manual_clock.h"
#include "recording/recording_check.h"
#include "temporary_directory.h"
#include "vantor/recording_error.h"
#include "vantor/recording_reader.h"

namespace vantor
{
namespace
{

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

/** A ring of ten seconds. */
class frame_ring_of_ten_seconds : public testing::Test
{
protected:
    /** Adds a frame one second after the last one. */
    void add(uint32_t number, uint64_t missing = 0)
    {
        clock_.advance(milliseconds(1000));
        auto received = test::example_frame(number);
        received.set_missing(missing);
        ring_.add(std::make_shared<const frame>(std::move(received)));
    }

    /** The ticks of the frames of the last seconds. */
    [[nodiscard]] std::vector<uint32_t> ticks(double seconds) const
    {
        std::vector<uint32_t> all;
        for (const auto &kept : ring_.last(seconds))
        {
            all.push_back(kept.what->items()[0].tick);
        }
        return all;
    }

    /** The tick of a frame. */
    static uint32_t tick_of(uint32_t number)
    {
        return test::example_frame(number).items()[0].tick;
    }

    test::manual_clock clock_;
    test::manual_loop loop_{clock_};
    size_t size_ = queued_size(test::example_frame(0));
    frame_ring ring_{10.0, 20 * size_, loop_};
    test::temporary_directory directory_;
};

TEST_F(frame_ring_of_ten_seconds, returns_the_frames_of_the_last_seconds)
{
    EXPECT_TRUE(ring_.last(10.0).empty());
    for (uint32_t number = 0; number < 5; ++number)
    {
        add(number);
    }
    EXPECT_THAT(ticks(2.0), ElementsAre(tick_of(2), tick_of(3), tick_of(4)));
    EXPECT_THAT(ticks(0.5), ElementsAre(tick_of(4)));
    EXPECT_EQ(ticks(10.0).size(), 5U);
    clock_.advance(milliseconds(2000));
    EXPECT_THAT(ticks(2.0), ElementsAre(tick_of(4)));
}

TEST_F(frame_ring_of_ten_seconds, forgets_older_frames)
{
    for (uint32_t number = 0; number < 50; ++number)
    {
        add(number);
    }
    EXPECT_EQ(ring_.last(1000.0).size(), 11U);
    EXPECT_EQ(ring_.bytes(), 11 * size_);
    ring_.clear();
    EXPECT_TRUE(ring_.last(1000.0).empty());
    EXPECT_EQ(ring_.bytes(), 0U);
}

TEST_F(frame_ring_of_ten_seconds, never_has_more_than_its_bytes)
{
    frame_ring small(10.0, 3 * size_ - 1, loop_);
    for (uint32_t number = 0; number < 5; ++number)
    {
        small.add(std::make_shared<const frame>(test::example_frame(number)));
        EXPECT_LT(small.bytes(), 3 * size_);
    }
    EXPECT_EQ(small.last(10.0).size(), 2U);
    frame_ring smaller(10.0, 1, loop_);
    smaller.add(std::make_shared<const frame>(test::example_frame(0)));
    EXPECT_EQ(smaller.last(10.0).size(), 1U);
}

TEST_F(frame_ring_of_ten_seconds, is_recorded_without_what_was_missing_before)
{
    add(0);
    add(3, 2);
    add(4, 2);
    add(6, 3);
    const auto written = keep_frames(ring_.last(2.5), test::example_description(), directory_ / "kept");
    EXPECT_EQ(written.frames, 3U);
    EXPECT_EQ(written.missing, 1U);
    const auto check = check_recording(directory_ / "kept");
    EXPECT_THAT(check.faults, ElementsAre());
    EXPECT_TRUE(check.finished);
    EXPECT_EQ(check.frames, 3U);
    EXPECT_EQ(check.missing, 1U);
    const recording_reader recording(directory_ / "kept");
    EXPECT_THAT(recording.captures(), testing::SizeIs(2));
    EXPECT_EQ(recording.captures()[1].first_frame, 2U);
}

TEST_F(frame_ring_of_ten_seconds, is_recorded_with_the_samples_that_arrived)
{
    for (uint32_t number = 0; number < 3; ++number)
    {
        add(number);
    }
    keep_frames(ring_.last(1.5), test::example_description(), directory_ / "kept");
    recording_reader recording(directory_ / "kept");
    ASSERT_EQ(recording.frames(), 2U);
    for (size_t item = 0; item < recording.items().size(); ++item)
    {
        std::vector<sample> samples;
        recording.read_frame(item, 0, samples);
        const auto expected = test::example_frame(1);
        EXPECT_TRUE(std::ranges::equal(samples, expected.items()[item].samples));
        EXPECT_EQ(recording.open_table(item).require().seconds, 0.0);
    }
}

TEST_F(frame_ring_of_ten_seconds, is_recorded_with_its_segments)
{
    ring_.begin(
        {.number = 1, .reason = "calibrated again", .gap = 0.5, .calibration_temperatures = {20, 21, 22}});
    add(0);
    add(1);
    ring_.begin(
        {.number = 2, .reason = "connected again", .gap = 2.5, .calibration_temperatures = {23, 24, 25}});
    add(0);
    const auto written = keep_frames(ring_.last(10.0), test::example_description(), directory_ / "kept");
    EXPECT_EQ(written.frames, 3U);
    const recording_reader recording(directory_ / "kept");
    const auto captures = recording.captures();
    ASSERT_EQ(captures.size(), 2U);
    EXPECT_FALSE(captures[0].begins);
    EXPECT_EQ(captures[1].begins->reason, "connected again");
    EXPECT_THAT(check_recording(directory_ / "kept").faults, ElementsAre());
}

TEST_F(frame_ring_of_ten_seconds, is_recorded_with_the_calibrations_of_its_first_frame)
{
    add(0);
    auto later = test::example_description();
    const auto calibrations = later.metadata.calibrations;
    later.metadata.calibrations.clear();
    later.metadata.document["calibration_info"] = nlohmann::json::array();
    keep_frames(ring_.last(10.0), later, directory_ / "kept");
    const recording_reader recording(directory_ / "kept");
    ASSERT_FALSE(calibrations.empty());
    EXPECT_EQ(recording.session().metadata.calibrations.size(), calibrations.size());
}

TEST_F(frame_ring_of_ten_seconds, is_not_recorded_without_frames)
{
    EXPECT_THAT([&] { keep_frames({}, test::example_description(), directory_ / "kept"); },
                ThrowsMessage<recording_error>(HasSubstr("no frames to keep")));
    EXPECT_FALSE(std::filesystem::exists(directory_ / "kept"));
}

} // namespace
} // namespace vantor
