/** @file
 * Tests of what viewers see of a stream beside its frames.
 */
#include "view/stream_watch.h"

#include <gtest/gtest.h>

#include "example_recording.h"
#include "manual_clock.h"

namespace vantor
{
namespace
{

using std::chrono::milliseconds;

/** A watch of the example session, and its clock. */
class stream_watch_of_a_session : public testing::Test
{
protected:
    /** Adds frames of the session, one every period. */
    void add_frames(uint32_t count, milliseconds period,
                    const nlohmann::json &flags = nlohmann::json::object())
    {
        for (uint32_t i = 0; i < count; ++i)
        {
            clock_.advance(period);
            watch_.add(std::make_shared<const frame>(test::example_frame(number_++, flags)));
        }
    }

    /** What viewers see. */
    [[nodiscard]] nlohmann::ordered_json state() const
    {
        nlohmann::ordered_json state;
        watch_.add_to(state);
        return state;
    }

    test::manual_clock clock_;
    test::manual_loop loop_{clock_};
    stream_watch watch_{sensors_of(test::example_description().configuration), loop_};

private:
    uint32_t number_ = 0;
};

TEST_F(stream_watch_of_a_session, knows_nothing_before_the_first_frames)
{
    EXPECT_EQ(state()["frames"], 0);
    EXPECT_EQ(state()["rate"], 0.0);
    EXPECT_TRUE(state()["temperatures"].empty());
    add_frames(1, milliseconds(10));
    EXPECT_EQ(state()["frames"], 1);
    EXPECT_EQ(state()["rate"], 0.0);
}

TEST_F(stream_watch_of_a_session, measures_the_rate_of_the_last_two_seconds)
{
    add_frames(100, milliseconds(100));
    EXPECT_NEAR(watch_.rate(), 10.0, 1e-9);
    add_frames(300, milliseconds(10));
    EXPECT_NEAR(watch_.rate(), 100.0, 1e-9);
}

TEST_F(stream_watch_of_a_session, measures_slow_rates_from_two_frames)
{
    add_frames(5, milliseconds(20'000));
    EXPECT_NEAR(watch_.rate(), 0.05, 1e-9);
}

TEST_F(stream_watch_of_a_session, has_no_rate_after_a_long_silence)
{
    add_frames(50, milliseconds(100));
    clock_.advance(milliseconds(2000));
    EXPECT_NEAR(watch_.rate(), 10.0, 1e-9);
    clock_.advance(milliseconds(1));
    EXPECT_EQ(watch_.rate(), 0.0);
}

TEST_F(stream_watch_of_a_session, counts_flags_and_shows_the_last_temperatures)
{
    add_frames(3, milliseconds(10), {{"data_saturated", true}, {"temperature", 31}});
    add_frames(2, milliseconds(10),
               {{"frame_delayed", true}, {"temperature", 32}, {"calibration_needed", true}});
    EXPECT_EQ(state()["saturated"], 3);
    EXPECT_EQ(state()["delayed"], 2);
    EXPECT_EQ(state()["calibration_needed"], true);
    EXPECT_EQ(state()["temperatures"][0]["celsius"], 32);
    add_frames(1, milliseconds(10));
    EXPECT_EQ(state()["calibration_needed"], false);
}

} // namespace
} // namespace vantor
