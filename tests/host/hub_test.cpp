/** @file
 * Tests of the hub with sources and sinks of the test, in virtual time.
 */
#include "vantor/hub.h"

#include <deque>
#include <utility>

#include <gmock/gmock.h>

#include "example_recording.h"
#include "manual_clock.h"
#include "vantor/errors.h"
#include "vantor/frame_tally.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;

/** A source with a frame of the example session every 20 ms, while nobody holds it back. */
class periodic_source : public frame_source
{
public:
    explicit periodic_source(test::manual_clock &clock) : clock_(clock)
    {
    }

    void start() override
    {
        started = true;
    }

    std::optional<frame> receive(std::chrono::milliseconds timeout) override
    {
        ++calls;
        if (number == frames)
        {
            clock_.advance(timeout);
            return std::nullopt;
        }
        clock_.advance(20ms);
        if (number == break_before)
        {
            segment_ = {.number = 1, .reason = "test", .gap = 0.5, .calibration_temperatures = {}};
        }
        return test::example_frame(number++);
    }

    void end() override
    {
        ended = true;
    }

    void end_promptly() override
    {
        ended_promptly = true;
    }

    [[nodiscard]] const segment &current_segment() const noexcept override
    {
        return segment_;
    }

    uint32_t frames = 1000;      /**< how many there are */
    uint32_t break_before = 999; /**< the first frame of the second segment */
    uint32_t number = 0;
    int calls = 0;
    bool started = false;
    bool ended = false;
    bool ended_promptly = false;

private:
    test::manual_clock &clock_;
    segment segment_;
};

/** A sink that keeps the ticks of the frames. */
class keeping_sink : public frame_sink
{
public:
    [[nodiscard]] bool ready() const override
    {
        return space > ticks.size();
    }

    void check() override
    {
        if (late_failure)
        {
            throw error("removed");
        }
    }

    void begin(const segment &next) override
    {
        ticks.push_back(1000 + static_cast<uint32_t>(next.number));
    }

    void add(const std::shared_ptr<const frame> &received) override
    {
        if (failure)
        {
            throw error("full");
        }
        ticks.push_back(received->items()[0].tick);
    }

    std::vector<uint32_t> ticks;
    size_t space = 1000;
    bool failure = false;
    bool late_failure = false; /**< after the last frame */
};

/** A hub with two sinks. */
class hub_test : public testing::Test
{
protected:
    test::manual_clock clock;
    test::manual_loop loop{clock};
    periodic_source source{clock};
    keeping_sink first;
    keeping_sink second;
    hub tested{source, {&first, &second}, loop};
};

TEST_F(hub_test, passes_each_frame_to_every_sink)
{
    int asked = 0;
    tested.run({.frames = 3, .seconds = 0.0, .stop = [&] { return ++asked > 100; }});
    EXPECT_THAT(first.ticks, ElementsAre(0, 20000, 40000));
    EXPECT_EQ(first.ticks, second.ticks);
    EXPECT_EQ(tested.frames(), 3U);
    EXPECT_EQ(asked, 3);
    EXPECT_TRUE(source.started);
    EXPECT_TRUE(source.ended);
    EXPECT_FALSE(tested.interrupted());
}

TEST_F(hub_test, measures_the_rate_from_the_first_to_the_last_frame)
{
    tested.run({.frames = 11, .seconds = 0.0, .stop = {}});
    EXPECT_NEAR(tested.seconds(), 0.22, 1e-9);
    EXPECT_NEAR(tested.measured_rate(), 50.0, 1e-9);
}

TEST_F(hub_test, ends_promptly_when_waiting_is_cancelled)
{
    first.space = 2;
    loop.cancel();
    tested.run({.frames = 0, .seconds = 0.0, .stop = {}});
    EXPECT_TRUE(tested.interrupted());
    EXPECT_TRUE(source.ended_promptly);
    EXPECT_FALSE(source.ended);
    EXPECT_THAT(first.ticks, ElementsAre(0, 20000));
    EXPECT_EQ(clock.now(), 40ms);
}

TEST_F(hub_test, announces_a_segment_before_its_first_frame)
{
    source.break_before = 1;
    tested.run({.frames = 3, .seconds = 0.0, .stop = {}});
    EXPECT_THAT(first.ticks, ElementsAre(0, 1001, 20000, 40000));
}

TEST_F(hub_test, holds_the_source_back_while_a_sink_is_not_ready)
{
    second.space = 2;
    tested.run({.frames = 0, .seconds = 10.0, .stop = {}});
    EXPECT_EQ(source.calls, 2);
    EXPECT_EQ(first.ticks.size(), 2U);
    EXPECT_EQ(clock.now(), 10s);
}

TEST_F(hub_test, can_be_stopped_while_it_holds_the_source_back)
{
    second.space = 0;
    tested.run({.frames = 0, .seconds = 0.0, .stop = [this] { return clock.now() >= 2s; }});
    EXPECT_TRUE(tested.interrupted());
    EXPECT_EQ(clock.now(), 2s);
}

TEST_F(hub_test, goes_on_as_soon_as_a_sink_is_ready_again)
{
    second.space = 1;
    loop.post([this] { second.space = 5; });
    tested.run({.frames = 4, .seconds = 0.0, .stop = {}});
    EXPECT_EQ(second.ticks.size(), 4U);
    EXPECT_EQ(clock.now(), 80ms);
}

TEST_F(hub_test, ends_with_the_failure_of_a_sink)
{
    second.failure = true;
    EXPECT_THROW(tested.run({.frames = 4, .seconds = 0.0, .stop = {}}), error);
    EXPECT_EQ(first.ticks.size(), 1U);
    EXPECT_TRUE(source.ended_promptly);
}

TEST_F(hub_test, ends_with_the_failure_of_a_sink_between_two_frames)
{
    source.frames = 5;
    const auto stop = [&] {
        second.late_failure = clock.now() >= 1s;
        return false;
    };
    EXPECT_THROW(tested.run({.frames = 0, .seconds = 60.0, .stop = stop}), error);
    EXPECT_LE(clock.now(), 1100ms);
    EXPECT_TRUE(source.ended_promptly);
}

TEST_F(hub_test, knows_for_how_long_no_frame_arrived_at_the_end)
{
    source.frames = 5;
    tested.run({.frames = 0, .seconds = 2.0, .stop = {}});
    EXPECT_DOUBLE_EQ(tested.seconds(), 0.1);
    EXPECT_DOUBLE_EQ(tested.silence(), 1.9);
}

/** A frame with flags in its first item. */
std::shared_ptr<const frame> flagged(uint32_t number, bool saturated, uint64_t missing)
{
    auto received =
        test::example_frame(number, {{"data_saturated", saturated}, {"frame_delayed", saturated}});
    received.set_missing(missing);
    return std::make_shared<const frame>(std::move(received));
}

TEST(frame_tally, counts_flags_of_each_item_and_missing_frames)
{
    frame_tally tally;
    tally.add(flagged(0, false, 0));
    tally.add(flagged(1, true, 0));
    tally.add(flagged(5, true, 3));
    EXPECT_EQ(tally.items()[0].saturated, 2U);
    EXPECT_EQ(tally.items()[0].delayed, 2U);
    EXPECT_EQ(tally.items()[1].saturated, 0U);
    EXPECT_EQ(tally.total().saturated, 2U);
    EXPECT_EQ(tally.missing(), 3U);
    EXPECT_DOUBLE_EQ(tally.share(), 0.5);
}

} // namespace
} // namespace vantor
