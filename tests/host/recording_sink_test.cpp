/** @file
 * Tests of the sink that records on a separate thread.
 */
#include "vantor/recording_sink.h"

#include <algorithm>
#include <csignal>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "example_recording.h"
#include "file_size_limit.h"
#include "temporary_directory.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using test::read_file;

constexpr auto never = event_loop::time_point::max();

/** A frame for a sink. */
std::shared_ptr<const frame> shared_frame(uint32_t number,
                                          const nlohmann::json &flags = nlohmann::json::object())
{
    return std::make_shared<const frame>(test::example_frame(number, flags));
}

/** A recording in a directory of its own. */
class recording_sink_test : public testing::Test
{
protected:
    /** Adds frames, as a hub does. */
    void add(recording_sink &sink, uint32_t frames)
    {
        for (uint32_t number = 0; number < frames; ++number)
        {
            ASSERT_TRUE(loop.run_until([&] { return sink.ready(); }, never));
            sink.add(shared_frame(number));
        }
    }

    event_loop loop;
    test::temporary_directory directory;
    recording_writer writer{directory / "out", test::example_description()};
    session_metadata metadata = test::example_description().metadata;
};

TEST_F(recording_sink_test, writes_every_frame_before_it_is_closed)
{
    recording_sink sink(writer, metadata, default_queue_size, loop);
    add(sink, 500);
    EXPECT_EQ(sink.close(), nullptr);
    EXPECT_EQ(writer.frames(), 500U);
    EXPECT_EQ(read_file(directory / "out/group-1-item-1.sigmf-data").size(), 500U * 160U);
}

TEST_F(recording_sink_test, counts_what_is_written_while_it_runs)
{
    recording_sink sink(writer, metadata, default_queue_size, loop);
    EXPECT_EQ(sink.frames_written(), 0U);
    EXPECT_EQ(sink.missing_written(), 0U);
    EXPECT_EQ(sink.bytes_written(), 0U);
    uint64_t last = 0;
    for (uint32_t number = 0; number < 300; ++number)
    {
        auto added = test::example_frame(2 * number);
        added.set_missing(number);
        sink.add(std::make_shared<const frame>(std::move(added)));
        const auto written = sink.written();
        EXPECT_GE(written.frames, last);
        EXPECT_LE(written.frames, number + 1);
        EXPECT_EQ(written.bytes, written.frames * 380);
        EXPECT_EQ(written.missing, std::max<uint64_t>(written.frames, 1) - 1);
        last = written.frames;
    }
    // The sink is not closed: the thread shows what it has written.
    while (sink.frames_written() < 300)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(sink.missing_written(), 299U);
    EXPECT_EQ(sink.bytes_written(), 300U * 380U);
}

TEST_F(recording_sink_test, counts_what_is_written_when_the_disk_is_full)
{
    recording_sink sink(writer, metadata, 1, loop);
    const auto fill = [&] { add(sink, 100000); };
    const test::file_size_limit limit(20000);
    EXPECT_THROW(fill(), recording_error);
    EXPECT_NE(sink.close(), nullptr);
    EXPECT_EQ(sink.frames_written(), writer.frames());
    EXPECT_EQ(sink.bytes_written(), writer.frames() * 380);
    EXPECT_GT(sink.frames_written(), 0U);
}

TEST_F(recording_sink_test, loses_nothing_when_its_queue_is_full)
{
    // Each frame fills the queue, so that almost every one waits for the thread.
    recording_sink sink(writer, metadata, 1, loop);
    add(sink, 500);
    EXPECT_EQ(sink.close(), nullptr);
    EXPECT_EQ(writer.frames(), 500U);
}

TEST_F(recording_sink_test, is_not_ready_while_its_queue_is_full)
{
    const auto added = shared_frame(0);
    recording_sink sink(writer, metadata, 10 * queued_size(*added), loop);
    // More than can be written in the time in which they are added.
    for (int number = 0; number < 20000; ++number)
    {
        sink.add(added);
    }
    EXPECT_FALSE(sink.ready());
    EXPECT_TRUE(loop.run_until([&] { return sink.ready(); }, never));
}

// A server that asks for a calibration again and again makes breaks faster than documents can be written.
TEST_F(recording_sink_test, is_not_ready_while_many_breaks_wait)
{
    recording_sink sink(writer, metadata, default_queue_size, loop);
    uint32_t breaks = 0;
    while (sink.ready() && breaks < 10000)
    {
        ++breaks;
        sink.begin({.number = breaks,
                    .reason = "calibrated again",
                    .gap = 0.1,
                    .calibration_temperatures = {25, 25, 25}});
        sink.add(shared_frame(breaks));
    }
    EXPECT_LT(breaks, 10000U);
    EXPECT_TRUE(loop.run_until([&] { return sink.ready(); }, never));
}

TEST_F(recording_sink_test, counts_all_the_memory_of_a_frame)
{
    const auto queued = shared_frame(0);
    const size_t samples = queued->samples().size_bytes();
    EXPECT_EQ(samples, 95U * 4U);
    EXPECT_GE(queued_size(*queued), samples + sizeof(frame) + 3 * sizeof(frame_item));
}

TEST_F(recording_sink_test, reports_a_failure_at_the_next_frame_and_at_the_end)
{
    recording_sink sink(writer, metadata, 1, loop);
    const auto fill = [&] { add(sink, 100000); };
    {
        const test::file_size_limit limit(20000);
        EXPECT_THROW(fill(), recording_error);
        EXPECT_NE(sink.close(), nullptr);
    }
    EXPECT_GT(writer.frames(), 0U);
    EXPECT_EQ(read_file(directory / "out/group-1-item-1.sigmf-data").size(), writer.frames() * 160U);
}

TEST_F(recording_sink_test, leaves_invalid_frames_out_of_the_statistics)
{
    recording_sink sink(writer, metadata, default_queue_size, loop);
    sink.add(shared_frame(0, {{"data_valid", false}}));
    EXPECT_EQ(sink.close(), nullptr);
    EXPECT_EQ(sink.statistics()[0].mean_level(), std::nullopt);
    EXPECT_GT(sink.statistics()[1].mean_level().value(), 0.0);
}

TEST_F(recording_sink_test, notes_when_a_frame_arrived_not_when_it_was_written)
{
    using std::chrono::milliseconds;
    using std::chrono::system_clock;
    system_clock::time_point now(milliseconds(1'700'000'000'250));
    std::vector<std::thread::id> threads;
    {
        recording_sink sink(writer, metadata, default_queue_size, loop, [&] {
            threads.push_back(std::this_thread::get_id());
            return now;
        });
        sink.add(shared_frame(0));
        now += milliseconds(1500);
        auto late = test::example_frame(5);
        late.set_missing(4);
        sink.add(std::make_shared<const frame>(std::move(late)));
        now += std::chrono::hours(1);
        EXPECT_EQ(sink.close(), nullptr);
    }
    // Frames arrive on the thread of the hub, and are written on another one.
    EXPECT_EQ(threads, std::vector(2, std::this_thread::get_id()));
    writer.finish();
    const auto captures =
        nlohmann::json::parse(read_file(directory / "out/group-1-item-1.sigmf-meta"))["captures"];
    ASSERT_EQ(captures.size(), 2U);
    EXPECT_EQ(captures[0]["core:datetime"], "2023-11-14T22:13:20.250Z");
    EXPECT_EQ(captures[1]["core:datetime"], "2023-11-14T22:13:21.750Z");
}

TEST_F(recording_sink_test, begins_segments_in_the_order_of_the_frames)
{
    recording_sink sink(writer, metadata, default_queue_size, loop);
    sink.add(shared_frame(0));
    sink.begin(
        {.number = 1, .reason = "connected again", .gap = 2.5, .calibration_temperatures = {20, 21, 22}});
    sink.add(shared_frame(7));
    sink.add(shared_frame(8));
    EXPECT_EQ(sink.close(), nullptr);
    writer.finish();
    const auto document = nlohmann::json::parse(read_file(directory / "out/group-1-item-2.sigmf-meta"));
    ASSERT_EQ(document["captures"].size(), 2U);
    const auto &second = document["captures"][1];
    EXPECT_EQ(second["core:sample_start"], 25);
    EXPECT_EQ(second["vantor:break"], "connected again");
    EXPECT_EQ(second["vantor:break_s"], 2.5);
    EXPECT_EQ(second["vantor:calibration_temperature"], 21);
    EXPECT_FALSE(document["captures"][0].contains("vantor:break"));
    // Time goes on after the break, whatever the ticks are.
    EXPECT_THAT(
        read_file(directory / "out/group-1-item-1.frames.csv"),
        testing::AllOf(testing::HasSubstr("\n1,2.5,140000,"), testing::HasSubstr("\n2,2.52,160000,")));
}

TEST_F(recording_sink_test, leaves_the_break_visible_in_a_recording_that_is_never_finished)
{
    {
        recording_sink sink(writer, metadata, default_queue_size, loop);
        sink.add(shared_frame(0));
        sink.begin(
            {.number = 1, .reason = "connected again", .gap = 2.5, .calibration_temperatures = {20, 21, 22}});
        sink.add(shared_frame(7));
    }
    const auto document = nlohmann::json::parse(read_file(directory / "out/group-1-item-1.sigmf-meta"));
    EXPECT_FALSE(document["global"].contains("core:sha512"));
    EXPECT_EQ(document["captures"].size(), 2U);
}

TEST_F(recording_sink_test, compares_no_samples_across_gaps)
{
    recording_sink sink(writer, metadata, default_queue_size, loop);
    uint64_t missing = 0;
    for (const uint32_t number : {1U, 1U, 9U, 9U, 5U, 5U})
    {
        auto received = test::example_frame(number);
        if (number == 5 && missing == 3)
        {
            sink.begin({.number = 1,
                        .reason = "connected again",
                        .gap = 2.5,
                        .calibration_temperatures = {20, 21, 22}});
        }
        missing = number == 1 ? 0 : 3;
        received.set_missing(missing);
        sink.add(std::make_shared<const frame>(std::move(received)));
    }
    EXPECT_EQ(sink.close(), nullptr);
    EXPECT_EQ(sink.statistics()[1].background_of(0).noise, 0.0);
}

} // namespace
} // namespace vantor
