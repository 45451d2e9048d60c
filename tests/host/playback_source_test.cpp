/** @file
 * Tests of playing a recording as a source of the hub, in virtual time.
 */
#include "hub/playback_source.h"

#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <utility>

#include <gmock/gmock.h>

#include "example_recording.h"
#include "manual_clock.h"
#include "temporary_directory.h"
#include "vantor/hub.h"
#include "vantor/recording_error.h"
#include "vantor/recording_sink.h"
#include "vantor/recording_writer.h"
#include "written_recordings.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;

/** The whole content of a file. */
std::string content(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** What a sink was given, in one text for each frame: time in milliseconds, tick, frames missing; and each
 * segment. */
class noting_sink : public frame_sink
{
public:
    explicit noting_sink(const test::manual_clock &clock) : clock_(clock)
    {
    }

    void begin(const segment &next) override
    {
        notes.push_back("segment " + std::to_string(next.number) + ": " + next.reason);
    }

    void add(const std::shared_ptr<const frame> &received) override
    {
        const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(clock_.now());
        const auto &item = received->items().front();
        EXPECT_GE(item.seconds, last_seconds);
        last_seconds = item.seconds;
        notes.push_back(std::to_string(now.count()) + " ms: " + std::to_string(item.tick) + ", missing " +
                        std::to_string(received->missing()));
    }

    std::vector<std::string> notes;
    double last_seconds = 0.0; /**< the time of the last frame */

private:
    const test::manual_clock &clock_;
};

/** A recording, and a hub that plays it. */
class playback : public testing::Test
{
protected:
    /** A frame of the example session, of which this many are missing. */
    static frame frame_after(uint32_t number, uint64_t missing)
    {
        auto made = test::example_frame(number);
        made.set_missing(missing);
        return made;
    }

    /** Plays the recording; returns what a sink was given. */
    std::vector<std::string> play(playback_options options, uint64_t frames = 0)
    {
        recording_reader recording(place);
        playback_source source(recording, options, loop);
        noting_sink sink(clock);
        hub tested(source, {&sink}, loop);
        tested.run({.frames = frames, .seconds = 0.0, .stop = {}});
        last_seconds = sink.last_seconds;
        return sink.notes;
    }

    test::manual_clock clock;
    test::manual_loop loop{clock};
    test::temporary_directory directory;
    std::filesystem::path place = directory / "out";
    double last_seconds = 0.0; /**< the time of the last frame played */
};

TEST_F(playback, ends_after_the_last_frame)
{
    test::write_example_recording(place, 3);
    EXPECT_THAT(play({}),
                ElementsAre("0 ms: 0, missing 0", "20 ms: 20000, missing 0", "40 ms: 40000, missing 0"));
}

TEST_F(playback, is_as_fast_as_asked_for)
{
    test::write_example_recording(place, 3);
    EXPECT_THAT(play({.speed = 4.0}),
                ElementsAre("0 ms: 0, missing 0", "5 ms: 20000, missing 0", "10 ms: 40000, missing 0"));
}

TEST_F(playback, waits_for_nothing_at_infinite_speed)
{
    test::write_example_recording(place, 2);
    EXPECT_THAT(play({.speed = std::numeric_limits<double>::infinity()}),
                ElementsAre("0 ms: 0, missing 0", "0 ms: 20000, missing 0"));
}

TEST_F(playback, knows_the_gaps_and_segments_of_the_recording)
{
    recording_writer writer(place, test::example_description());
    writer.add(frame_after(0, 0));
    writer.add(frame_after(3, 2));
    writer.begin_segment(
        {.number = 1, .reason = "connected again", .gap = 0.5, .calibration_temperatures = {1, 2, 3}});
    writer.add(frame_after(9, 2));
    writer.add(frame_after(11, 3));
    writer.finish();
    EXPECT_THAT(play({}),
                ElementsAre("0 ms: 0, missing 0", "60 ms: 60000, missing 2", "segment 1: connected again",
                            "560 ms: 180000, missing 2", "600 ms: 220000, missing 3"));
    EXPECT_DOUBLE_EQ(last_seconds, 0.6);
}

TEST_F(playback, counts_the_gaps_of_an_unfinished_recording)
{
    recording_writer writer(place, test::example_description());
    writer.add(frame_after(0, 0));
    writer.add(frame_after(3, 2));
    EXPECT_THAT(play({}), ElementsAre("0 ms: 0, missing 0", "60 ms: 60000, missing 2"));
}

TEST_F(playback, counts_the_gaps_that_are_not_listed)
{
    test::write_many_gaps(place);
    recording_reader recording(place);
    playback_source source(recording, {}, loop);
    for (uint64_t number = 0; number < test::frames_between_gaps; ++number)
    {
        ASSERT_EQ(source.next().missing(), number);
    }
}

TEST_F(playback, starts_again_after_one_period_even_if_frames_are_missing)
{
    recording_writer writer(place, test::example_description());
    writer.add(frame_after(0, 0));
    writer.add(frame_after(3, 2));
    writer.finish();
    EXPECT_THAT(play({.endless = true}, 5),
                ElementsAre("0 ms: 0, missing 0", "60 ms: 60000, missing 2", "80 ms: 80000, missing 2",
                            "140 ms: 140000, missing 4", "160 ms: 160000, missing 4"));
    EXPECT_DOUBLE_EQ(last_seconds, 0.16);
}

TEST_F(playback, leaves_out_breaks_in_an_endless_segment)
{
    recording_writer writer(place, test::example_description());
    writer.add(frame_after(0, 0));
    writer.add(frame_after(3, 2));
    // The board has started again.
    writer.begin_segment(
        {.number = 1, .reason = "connected again", .gap = 0.5, .calibration_temperatures = {1, 2, 3}});
    writer.add(frame_after(1, 2));
    writer.finish();
    EXPECT_THAT(play({.endless = true}, 5),
                ElementsAre("0 ms: 0, missing 0", "60 ms: 60000, missing 2", "80 ms: 80000, missing 2",
                            "100 ms: 100000, missing 2", "160 ms: 160000, missing 4"));
}

TEST_F(playback, gives_the_recorder_the_same_frames)
{
    test::write_example_recording(place, 7);
    recording_reader recording(place);
    playback_source source(recording, {}, loop);
    recording_writer writer(directory / "copy", recording.session());
    recording_sink sink(writer, recording.session().metadata, default_queue_size, loop);
    hub(source, {&sink}, loop).run({});
    EXPECT_EQ(sink.close(), nullptr);
    writer.finish();
    for (const auto *name :
         {"group-1-item-1.sigmf-data", "group-1-item-2.sigmf-data", "group-2-item-1.sigmf-data",
          "group-1-item-1.frames.csv", "group-2-item-1.frames.csv"})
    {
        EXPECT_FALSE(content(place / name).empty());
        EXPECT_EQ(content(place / name), content(directory / "copy" / name)) << name;
    }
}

TEST_F(playback, gives_frames_the_time_in_utc_until_they_are_repeated)
{
    const utc_time utc{.moment = std::chrono::sys_time<std::chrono::seconds>(1795455600s), .bound = 2ms};
    {
        recording_writer writer(place, test::example_description());
        writer.add(test::example_frame_at(0, utc));
        writer.finish();
    }
    recording_reader recording(place);
    const auto played = playback_source(recording, {}, loop).next();
    ASSERT_TRUE(played.items()[0].utc);
    EXPECT_EQ(played.items()[0].utc->moment, utc.moment);
    EXPECT_EQ(played.items()[0].utc->bound, utc.bound);
    EXPECT_FALSE(played.items()[1].utc);
    playback_source endless(recording, {.endless = true}, loop);
    EXPECT_TRUE(endless.next().items()[0].utc);
    EXPECT_FALSE(endless.next().items()[0].utc);
    endless.rewind();
    EXPECT_TRUE(endless.next().items()[0].utc);
}

TEST_F(playback, continues_where_it_was_ended)
{
    test::write_example_recording(place, 4);
    recording_reader recording(place);
    playback_source source(recording, {}, loop);
    source.start();
    EXPECT_EQ(source.receive(0ms)->items()[0].tick, 0U);
    EXPECT_FALSE(source.receive(19ms));
    source.end();
    clock.advance(1h);
    source.start();
    EXPECT_EQ(source.receive(0ms)->items()[0].tick, 20000U);
    EXPECT_FALSE(source.receive(0ms));
    source.rewind();
    EXPECT_EQ(source.next().items()[0].tick, 0U);
    EXPECT_EQ(source.next().items()[0].tick, 20000U);
    EXPECT_EQ(source.next().items()[0].tick, 40000U);
    EXPECT_EQ(source.next().items()[0].tick, 60000U);
    EXPECT_TRUE(source.exhausted());
    EXPECT_FALSE(source.receive(1s));
    EXPECT_THROW(source.next(), bad_recording);
}

/** What is known of a frame that was played. */
std::string described(const frame &played, const playback_source &source)
{
    const auto &item = played.items().front();
    const auto &point = item.samples.front();
    return std::to_string(item.tick) + " at " + std::to_string(item.seconds) + ", missing " +
           std::to_string(played.missing()) + ", segment " + std::to_string(source.current_segment().number) +
           " " + source.current_segment().reason + ", first sample " + std::to_string(point.i) + " " +
           std::to_string(point.q);
}

/** Compares each frame after seeking to it with the same frame of a recording played from its start. */
void expect_same_frames(recording_reader &recording, event_loop &loop, uint64_t step)
{
    playback_source whole(recording, {}, loop);
    std::vector<std::string> expected;
    while (!whole.exhausted())
    {
        const auto played = whole.next();
        expected.push_back(described(played, whole));
    }
    playback_source source(recording, {}, loop);
    ASSERT_GT(expected.size(), step);
    for (uint64_t i = 0; i < expected.size(); ++i)
    {
        // To all frames, forwards and backwards.
        const uint64_t number = i * step % expected.size();
        source.seek(number);
        ASSERT_EQ(source.position(), number);
        const auto played = source.next();
        ASSERT_EQ(described(played, source), expected[number]) << number;
    }
}

/** Records two segments with gaps, and finishes the recording or not. */
void write_segments(const std::filesystem::path &place, bool finished)
{
    recording_writer writer(place, test::example_description());
    uint64_t missing = 0;
    uint32_t number = 0;
    for (int count = 0; count < 40; ++count, ++number)
    {
        if (count == 15 || count == 30)
        {
            number = 3;
            writer.begin_segment({.number = 1,
                                  .reason = "break " + std::to_string(count),
                                  .gap = 0.5,
                                  .calibration_temperatures = {1, 2, 3}});
        }
        if (count % 7 == 6)
        {
            number += 2;
            missing += 2;
        }
        auto added = test::example_frame(number);
        added.set_missing(missing);
        writer.add(added);
    }
    if (finished)
    {
        writer.finish();
    }
}

TEST_F(playback, plays_the_same_frames_after_seeking)
{
    for (const bool finished : {true, false})
    {
        const auto recorded = directory / (finished ? "finished" : "unfinished");
        write_segments(recorded, finished);
        recording_reader recording(recorded);
        ASSERT_EQ(recording.frames(), 40U);
        expect_same_frames(recording, loop, 11);
    }
}

// The table is too long to be read for each frame, and the gaps are counted from its ticks.
TEST_F(playback, plays_the_same_frames_after_seeking_in_a_long_recording)
{
    test::write_many_gaps(place);
    recording_reader recording(place);
    expect_same_frames(recording, loop, 4999);
}

TEST_F(playback, goes_to_the_last_frame_if_there_are_fewer)
{
    test::write_example_recording(place, 4);
    recording_reader recording(place);
    playback_source source(recording, {}, loop);
    source.seek(std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(source.position(), 3U);
    EXPECT_FALSE(source.exhausted());
    EXPECT_EQ(source.next().items()[0].tick, 60000U);
    EXPECT_EQ(source.position(), 4U);
    EXPECT_TRUE(source.exhausted());
    source.set_paused(true);
    EXPECT_TRUE(source.exhausted());
    source.seek(1);
    EXPECT_FALSE(source.exhausted());
}

TEST_F(playback, continues_at_its_pace_after_seeking)
{
    test::write_example_recording(place, 50);
    recording_reader recording(place);
    playback_source source(recording, {}, loop);
    source.start();
    source.next();
    clock.advance(1h);
    source.seek(20);
    EXPECT_DOUBLE_EQ(source.seconds(), 0.38);
    EXPECT_EQ(source.receive(0ms)->items()[0].tick, 400000U);
    EXPECT_DOUBLE_EQ(source.seconds(), 0.4);
    EXPECT_FALSE(source.receive(19ms));
    EXPECT_EQ(source.receive(1ms)->items()[0].tick, 420000U);
    source.seek(0);
    EXPECT_DOUBLE_EQ(source.seconds(), 0.0);
    EXPECT_EQ(source.receive(0ms)->items()[0].tick, 0U);
}

TEST_F(playback, seeks_in_an_endless_segment)
{
    test::write_example_recording(place, 3);
    recording_reader recording(place);
    playback_source source(recording, {.endless = true}, loop);
    for (int count = 0; count < 5; ++count)
    {
        source.next();
    }
    source.seek(1);
    std::vector<uint32_t> ticks;
    for (int count = 0; count < 4; ++count)
    {
        ticks.push_back(source.next().items()[0].tick);
    }
    EXPECT_THAT(ticks, ElementsAre(20000, 40000, 60000, 80000));
    EXPECT_DOUBLE_EQ(source.seconds(), 0.08);
}

TEST_F(playback, lets_no_time_pass_while_it_is_paused)
{
    test::write_example_recording(place, 4);
    recording_reader recording(place);
    playback_source source(recording, {}, loop);
    source.start();
    EXPECT_TRUE(source.receive(0ms));
    EXPECT_FALSE(source.receive(5ms));
    source.set_paused(true);
    EXPECT_TRUE(source.paused());
    const auto before = clock.now();
    EXPECT_FALSE(source.receive(1h));
    EXPECT_EQ(clock.now() - before, 1h);
    source.set_paused(false);
    EXPECT_FALSE(source.paused());
    EXPECT_FALSE(source.receive(14ms));
    EXPECT_TRUE(source.receive(1ms));
    EXPECT_FALSE(source.receive(19ms));
    EXPECT_TRUE(source.receive(1ms));
}

TEST_F(playback, changes_its_speed_without_a_jump)
{
    test::write_example_recording(place, 10);
    recording_reader recording(place);
    playback_source source(recording, {}, loop);
    source.start();
    EXPECT_TRUE(source.receive(0ms));
    EXPECT_FALSE(source.receive(10ms));
    source.set_speed(2.0);
    EXPECT_EQ(source.time_until_due(), 5ms);
    EXPECT_TRUE(source.receive(5ms));
    EXPECT_EQ(source.time_until_due(), 10ms);
    source.set_speed(0.5);
    EXPECT_EQ(source.time_until_due(), 40ms);
    clock.advance(20ms);
    source.set_speed(std::numeric_limits<double>::infinity());
    EXPECT_TRUE(source.receive(0ms));
    EXPECT_TRUE(source.receive(0ms));
    source.set_speed(1.0);
    EXPECT_EQ(source.receive(0ms)->items()[0].tick, 80000U);
    EXPECT_EQ(source.time_until_due(), 20ms);
}

TEST_F(playback, does_not_make_up_for_late_frames_at_another_speed)
{
    test::write_example_recording(place, 10);
    recording_reader recording(place);
    playback_source source(recording, {}, loop);
    source.start();
    source.next();
    clock.advance(100ms);
    source.set_speed(2.0);
    EXPECT_EQ(source.time_until_due(), 0ms);
    source.next();
    EXPECT_EQ(source.time_until_due(), 10ms);
}

TEST_F(playback, knows_when_a_frame_is_due_at_any_speed)
{
    test::write_example_recording(place, 2);
    recording_reader recording(place);
    playback_source source(recording, {}, loop);
    source.start();
    source.next();
    for (const double speed : {std::numeric_limits<double>::denorm_min(), 1e-300, 1e-12})
    {
        source.set_speed(speed);
        EXPECT_GT(source.time_until_due(), 24h) << speed;
        EXPECT_FALSE(source.receive(1s)) << speed;
    }
    source.set_speed(std::numeric_limits<double>::max());
    EXPECT_EQ(source.time_until_due(), 0ms);
    EXPECT_TRUE(source.receive(0ms));
}

TEST(playback_pace, has_a_time_for_the_most_distant_frames)
{
    const event_loop::time_point now(1h);
    playback_pace pace(std::numeric_limits<double>::denorm_min());
    pace.start(1e22, now);
    EXPECT_EQ(pace.due(0.0), now - 1000000000s);
    EXPECT_EQ(pace.due(1e22), now);
    EXPECT_EQ(pace.due(2e22), now + 1000000000s);
    pace.set_paused(true, 1e22, now);
    EXPECT_EQ(pace.due(0.0), now + 1000000000s);
}

TEST_F(playback, follows_work_of_the_loop_while_it_waits)
{
    test::write_example_recording(place, 5);
    recording_reader recording(place);
    playback_source source(recording, {.speed = 1e-6}, loop);
    source.start();
    source.next();
    const auto before = clock.now();
    loop.post([&] { source.seek(3); });
    EXPECT_EQ(source.receive(1h).value().items()[0].tick, 60000U);
    EXPECT_EQ(clock.now(), before);
    source.set_paused(true);
    source.set_speed(1.0);
    loop.post([&] { source.set_paused(false); });
    EXPECT_EQ(source.receive(1h).value().items()[0].tick, 80000U);
    EXPECT_EQ(clock.now() - before, 20ms);
}

TEST_F(playback, ends_if_the_table_loses_rows_before_it_seeks)
{
    test::write_many_gaps(place);
    recording_reader recording(place);
    playback_source source(recording, {}, loop);
    const auto table = place / "group-1-item-1.frames.csv";
    std::filesystem::resize_file(table, std::filesystem::file_size(table) / 2);
    EXPECT_THROW(source.seek(11999), bad_recording);
}

TEST_F(playback, can_be_cancelled)
{
    test::write_example_recording(place, 2);
    recording_reader recording(place);
    playback_source source(recording, {.speed = 1e-6}, loop);
    source.start();
    source.next();
    loop.cancel();
    EXPECT_THROW(source.receive(1h), cancelled);
}

} // namespace
} // namespace vantor
