/** @file
 * Tests of the collection of frames in batches, in virtual time.
 */
#include "bridge/batcher.h"

#include <set>

#include <gmock/gmock.h>

#include "example_batch.h"
#include "example_recording.h"
#include "recording/utc_text.h"
#include "scripted_server.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using test::example_messages;
using test::example_session;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

/** A batcher of the example session, and the batches that it has made. */
class batcher_test : public testing::Test
{
protected:
    batcher_test()
    {
        info.server_version = "0.1.0";
        info.sensor = "k330";
        info.sensor_count = 5;
        info.connected_sensors = {1, 2};
        info.ticks_per_second = 1e6;
    }

    /** Creates the batcher with limits. */
    void begin(const batch_limits &limits)
    {
        collecting.emplace("hall", "door", info, source, limits, loop,
                           [this](const std::string &bytes, uint64_t frames) {
                               encoded.push_back(bytes);
                               batches.push_back(decode_batch(encoded.back()));
                               EXPECT_EQ(batches.back().header.frames, frames);
                           });
    }

    /** Adds frames of the example session, each some time after the one before. */
    void add(uint32_t count, std::chrono::milliseconds period = 0ms, uint64_t missing = 0)
    {
        for (uint32_t i = 0; i < count; ++i)
        {
            clock.advance(period);
            auto received = test::example_frame(number++);
            received.set_missing(missing);
            collecting->check();
            collecting->add(std::make_shared<const frame>(std::move(received)));
        }
    }

    /** The numbers of frames in the batches so far. */
    [[nodiscard]] std::vector<uint64_t> frames() const
    {
        std::vector<uint64_t> counts;
        for (const auto &made : batches)
        {
            counts.push_back(made.header.frames);
        }
        return counts;
    }

    test::manual_clock clock;
    test::manual_loop loop{clock};
    test::scripted_server server{clock};
    client connected{server.links(), {}, std::make_shared<event_loop>(clock.source())};
    session_source source{connected, example_session().configuration, {}, loop};
    server_info info;
    std::deque<std::string> encoded;
    std::vector<batch> batches;
    uint32_t number = 0;
    std::optional<batcher> collecting;
};

/** The size of a frame of the example session, encoded. */
size_t frame_size(uint32_t number)
{
    return example_messages(1, number).size();
}

TEST_F(batcher_test, completes_a_batch_that_has_its_size)
{
    begin({.bytes = frame_size(0) + frame_size(1)});
    add(1);
    EXPECT_THAT(batches, IsEmpty());
    add(1);
    ASSERT_THAT(batches, SizeIs(1));
    EXPECT_THAT(batches[0].messages, ElementsAre(example_messages(1, 0), example_messages(1, 1)));
}

TEST_F(batcher_test, leaves_a_frame_that_does_not_fit_to_the_next_batch)
{
    begin({.bytes = frame_size(0) + frame_size(1) + frame_size(2) - 1});
    add(3);
    EXPECT_THAT(frames(), ElementsAre(2));
    collecting->end("stopped");
    ASSERT_THAT(frames(), ElementsAre(2, 1));
    EXPECT_THAT(batches[1].messages, ElementsAre(example_messages(1, 2)));
}

TEST_F(batcher_test, makes_a_batch_of_a_frame_that_is_larger_than_the_limit)
{
    begin({.bytes = 10});
    add(3);
    EXPECT_THAT(frames(), ElementsAre(1, 1, 1));
}

TEST_F(batcher_test, completes_a_batch_whose_time_is_over)
{
    begin({.time = 100ms});
    clock.advance(1h);
    add(1);
    clock.advance(50ms);
    add(1);
    clock.advance(49ms);
    collecting->check();
    EXPECT_THAT(batches, IsEmpty());
    clock.advance(1ms);
    collecting->check();
    EXPECT_THAT(frames(), ElementsAre(2));
}

TEST_F(batcher_test, measures_the_time_from_the_first_frame_of_each_batch)
{
    begin({.time = 100ms});
    add(1);
    clock.advance(150ms);
    collecting->check();
    clock.advance(30ms);
    add(1);
    clock.advance(99ms);
    collecting->check();
    EXPECT_THAT(frames(), ElementsAre(1));
    clock.advance(1ms);
    collecting->check();
    EXPECT_THAT(frames(), ElementsAre(1, 1));
}

TEST_F(batcher_test, makes_no_batch_without_frames)
{
    begin({});
    for (int i = 0; i < 100; ++i)
    {
        clock.advance(1s);
        collecting->check();
    }
    EXPECT_THAT(batches, IsEmpty());
}

TEST_F(batcher_test, says_where_the_frames_come_from)
{
    begin({});
    add(1);
    collecting->end("");
    ASSERT_THAT(batches, SizeIs(1));
    EXPECT_EQ(batches[0].header.site, "hall");
    EXPECT_EQ(batches[0].header.board, "door");
}

TEST_F(batcher_test, counts_batches_frames_and_what_is_missing)
{
    begin({.time = 100ms});
    add(2, 0ms, 0);
    add(1, 0ms, 2);
    add(1, 100ms, 2);
    add(2, 100ms, 5);
    collecting->end("stopped");
    ASSERT_THAT(frames(), ElementsAre(3, 1, 1, 1));
    std::vector<uint64_t> numbers;
    std::vector<uint64_t> firsts;
    std::vector<uint64_t> missing;
    for (const auto &made : batches)
    {
        numbers.push_back(made.header.number);
        firsts.push_back(made.header.first);
        missing.push_back(made.header.missing);
    }
    EXPECT_THAT(numbers, ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(firsts, ElementsAre(0, 3, 4, 5));
    EXPECT_THAT(missing, ElementsAre(2, 2, 5, 5));
}

TEST_F(batcher_test, describes_the_session_in_its_first_batch)
{
    info.board = {
        .name = "Ceiling", .id = "A17", .reset_cause = {}, .last_fault = {}, .sensors = "simulated"};
    begin({.bytes = 1});
    add(2);
    ASSERT_THAT(batches, SizeIs(2));
    const auto &content = batches[0].header.content;
    ASSERT_NE(content, nullptr);
    EXPECT_EQ(json(content->server),
              json::parse(R"({"server_version": "0.1.0", "sensor": "k330", "sensor_count": 5,
        "connected_sensors": [1, 2], "ticks_per_second": 1000000.0,
        "board": {"name": "Ceiling", "id": "A17", "sensors": "simulated"}})"));
    EXPECT_EQ(content->configuration, example_session().configuration);
    EXPECT_EQ(content->metadata, example_session().metadata);
    EXPECT_EQ(batches[1].header.content, nullptr);
}

TEST_F(batcher_test, repeats_the_description_in_time)
{
    begin({.bytes = 1, .description = 10s});
    std::vector<bool> described;
    for (const auto pause : {0ms, 9'999ms, 1ms, 1ms, 9'998ms, 1ms, 30'000ms, 0ms})
    {
        add(1, pause);
        described.push_back(batches.back().header.content != nullptr);
    }
    EXPECT_THAT(described, ElementsAre(true, false, true, false, false, true, true, false));
}

TEST_F(batcher_test, gives_the_time_of_the_first_frame)
{
    const utc_time first{.moment = std::chrono::sys_seconds(1795435217s), .bound = 100us};
    const utc_time second{.moment = std::chrono::sys_seconds(1795435218s), .bound = 200us};
    begin({.time = 100ms});
    collecting->add(std::make_shared<const frame>(test::example_frame_at(0, first)));
    collecting->add(std::make_shared<const frame>(test::example_frame_at(1, second)));
    clock.advance(100ms);
    collecting->check();
    add(1);
    collecting->end("stopped");
    ASSERT_THAT(frames(), ElementsAre(2, 1));
    ASSERT_TRUE(batches[0].header.utc.has_value());
    EXPECT_EQ(batches[0].header.utc->moment, first.moment);
    EXPECT_EQ(batches[0].header.utc->bound, first.bound);
    EXPECT_FALSE(batches[1].header.utc.has_value());
}

TEST_F(batcher_test, ends_a_session_with_its_reason)
{
    begin({});
    add(2);
    collecting->end("the link was lost");
    ASSERT_THAT(frames(), ElementsAre(2));
    EXPECT_EQ(batches[0].header.end, "the link was lost");
}

TEST_F(batcher_test, ends_a_session_whose_frames_are_all_passed_on)
{
    begin({.bytes = 1});
    add(1);
    collecting->end("the link was lost");
    ASSERT_THAT(frames(), ElementsAre(1, 0));
    EXPECT_FALSE(batches[0].header.end.has_value());
    EXPECT_EQ(batches[1].header.end, "the link was lost");
    EXPECT_EQ(batches[1].header.number, 1U);
    EXPECT_EQ(batches[1].header.first, 1U);
    EXPECT_FALSE(batches[1].header.utc.has_value());
}

TEST_F(batcher_test, begins_a_session_with_each_segment)
{
    begin({});
    add(2, 0ms, 4);
    collecting->begin(
        {.number = 1, .reason = "calibrated again", .gap = 0.5, .calibration_temperatures = {}});
    add(3, 0ms, 5);
    collecting->end("stopped");
    ASSERT_THAT(frames(), ElementsAre(2, 3));
    const auto &before = batches[0].header;
    const auto &after = batches[1].header;
    EXPECT_EQ(before.end, "calibrated again");
    EXPECT_EQ(before.missing, 4U);
    EXPECT_NE(after.session, before.session);
    EXPECT_EQ(after.number, 0U);
    EXPECT_EQ(after.first, 0U);
    EXPECT_EQ(after.missing, 1U);
    EXPECT_NE(after.content, nullptr);
    EXPECT_EQ(after.end, "stopped");
}

TEST_F(batcher_test, names_sessions_by_their_time_and_at_random)
{
    std::set<std::string> names;
    for (int i = 0; i < 20; ++i)
    {
        begin({});
        add(1);
        collecting->end("stopped");
        names.insert(batches.back().header.session);
    }
    EXPECT_THAT(names, SizeIs(20));
    const auto begin_of_name = utc_text(loop.utc(loop.now())) + "-";
    for (const auto &name : names)
    {
        EXPECT_THAT(name, StartsWith(begin_of_name));
        EXPECT_THAT(name.substr(begin_of_name.size()), MatchesRegex("[0-9a-f]{8}"));
    }
}

} // namespace
} // namespace vantor
