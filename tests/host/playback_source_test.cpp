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
