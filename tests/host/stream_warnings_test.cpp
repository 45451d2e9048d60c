/** @file
 * Tests of the warnings about the frames of a stream.
 */
#include "commands/stream_warnings.h"

#include <gmock/gmock.h>

#include "example_recording.h"
#include "recording/stream_facts.h"

namespace vantor
{
namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

TEST(stream_warnings, are_empty_if_all_is_well)
{
    EXPECT_THAT(describe_warnings({.frames = 100,
                                   .nominal_rate = 50.0,
                                   .breaks = {},
                                   .items = {{.group = 1, .item = 1, .counts = {}}}}),
                IsEmpty());
    EXPECT_EQ(short_warnings({}, 20.0), "");
}

TEST(stream_warnings, name_missing_frames_and_a_rate_that_is_not_reached)
{
    stream_facts facts;
    facts.frames = 75;
    facts.missing = 25;
    facts.damaged = 1;
    facts.nominal_rate = 200.0;
    EXPECT_THAT(describe_warnings(facts),
                ElementsAre("missing: 25 frames; the host, the link, the server or a sensor was too slow, or "
                            "data were damaged",
                            "rate not reached: 150.0 of 200.0 frames/s, by the clock of the server",
                            "damaged: 1 message"));
}

TEST(stream_warnings, name_a_rate_that_the_server_has_not_accepted)
{
    stream_facts facts;
    facts.frames = 10;
    facts.nominal_rate = 5.0;
    facts.refused_rate = 50.0;
    EXPECT_THAT(describe_warnings(facts),
                ElementsAre("rate not as requested: the server measures 5.00 frames/s, "
                            "the configuration requests 50.0"));
}

TEST(stream_warnings, say_that_the_server_did_not_answer_at_the_end)
{
    stream_facts facts;
    facts.frames = 10;
    facts.nominal_rate = 5.0;
    facts.end_known = false;
    EXPECT_THAT(describe_warnings(facts), ElementsAre("the server did not answer at the end: how many frames "
                                                      "were due then is not known"));
}

TEST(stream_warnings, do_not_call_one_missing_frame_a_rate_that_is_not_reached)
{
    stream_facts facts;
    facts.frames = 1000;
    facts.missing = 1;
    facts.nominal_rate = 200.0;
    EXPECT_THAT(describe_warnings(facts), ElementsAre("missing: 1 frame; the host, the link, the server or a "
                                                      "sensor was too slow, or data were damaged"));
}

TEST(stream_warnings, name_the_flags_of_each_item)
{
    stream_facts facts;
    facts.frames = 100;
    facts.items = {{.group = 1,
                    .item = 2,
                    .counts = {.saturated = 3, .invalid = 4, .delayed = 5, .calibration_needed = 6}}};
    EXPECT_THAT(
        describe_warnings(facts),
        ElementsAre("saturated: 3 of 100 frames of group 1, item 2; use a lower receiver_gain",
                    "invalid: 4 of 100 frames of group 1, item 2; the channel was busy or the transmitter "
                    "off; their samples are not used",
                    "delayed: 5 of 100 frames of group 1, item 2; use a lower frame_rate or a faster link",
                    "calibration needed: 6 of 100 frames of group 1, item 2; calibrate again, or record with "
                    "--recalibrate"));
}

TEST(stream_warnings, leave_out_the_first_frame_of_each_session_which_is_never_valid)
{
    stream_facts facts;
    facts.frames = 100;
    facts.breaks = {{.number = 1, .reason = "calibrated again", .gap = 2.04, .calibration_temperatures = {}}};
    facts.items = {{.group = 1, .item = 1, .counts = {.invalid = 2}}};
    EXPECT_THAT(describe_warnings(facts), ElementsAre("break of 2.0 s: calibrated again"));
}

TEST(stream_warnings, do_not_advise_to_calibrate_what_was_calibrated_again)
{
    stream_facts facts;
    facts.frames = 100;
    facts.breaks = {{.number = 1, .reason = "calibrated again", .gap = 2.0, .calibration_temperatures = {}}};
    facts.items = {{.group = 1, .item = 1, .counts = {.calibration_needed = 2}}};
    EXPECT_THAT(describe_warnings(facts),
                ElementsAre("break of 2.0 s: calibrated again",
                            "calibration needed: 2 of 100 frames of group 1, item 1; measured before the new "
                            "calibration"));
}

TEST(stream_warnings, name_a_rate_that_is_not_reached_without_a_clock)
{
    stream_facts facts;
    facts.frames = 100;
    facts.nominal_rate = 20.0;
    facts.measured_rate = 15.0;
    EXPECT_THAT(describe_warnings(facts),
                ElementsAre("rate not reached: 15.0 of 20.0 frames/s, by the clock of this computer"));
    // Measured by nothing but the damaged messages.
    facts.measured_rate = 0.0;
    facts.has_clock = false;
    facts.missing = 25;
    EXPECT_THAT(describe_warnings(facts), testing::Contains("rate not reached: 16.0 of 20.0 frames/s"));
}

TEST(stream_warnings, have_three_significant_digits_of_low_rates)
{
    stream_facts facts;
    facts.frames = 9;
    facts.missing = 1;
    facts.nominal_rate = 0.05;
    facts.refused_rate = 0.0125;
    EXPECT_THAT(
        describe_warnings(facts),
        testing::IsSupersetOf(
            {"rate not as requested: the server measures 0.0500 frames/s, the configuration requests 0.0125",
             "rate not reached: 0.0450 of 0.0500 frames/s, by the clock of the server"}));
}

TEST(stream_warnings, have_room_for_long_times)
{
    stream_facts facts;
    facts.frames = 1;
    facts.silence = 1e40;
    EXPECT_THAT(describe_warnings(facts),
                ElementsAre("no frame in the last 10000000000000000303786028427003666890752.0 s"));
}

TEST(stream_warnings, count_breaks_that_are_not_listed)
{
    stream_facts facts;
    facts.frames = 1;
    facts.unlisted_breaks = 2;
    EXPECT_THAT(describe_warnings(facts), ElementsAre("2 further breaks, not listed"));
}

TEST(stream_warnings, name_a_silence_at_the_end)
{
    stream_facts facts;
    EXPECT_THAT(describe_warnings(facts), ElementsAre("no frame was recorded"));
    facts.frames = 30;
    facts.silence = 5.1;
    EXPECT_THAT(describe_warnings(facts), ElementsAre("no frame in the last 5.1 s"));
    facts.nominal_rate = 0.5;
    EXPECT_THAT(describe_warnings(facts), IsEmpty());
}

/** Adds frames of the example session, of which every second one is missing. */
void add_frames(frame_tally &tally, uint32_t frames, const nlohmann::json &flags)
{
    for (uint32_t number = 0; number < frames; ++number)
    {
        auto received = test::example_frame(2 * number, flags);
        received.set_missing(number);
        tally.add(std::make_shared<const frame>(std::move(received)));
    }
}

TEST(stream_warnings, are_short_while_frames_arrive)
{
    frame_tally tally;
    add_frames(tally, 3,
               {{"data_saturated", true},
                {"frame_delayed", true},
                {"data_valid", false},
                {"calibration_needed", true}});
    EXPECT_EQ(short_warnings(tally, 20.0),
              ", rate not reached, 2 missing, 3 saturated, 3 invalid, 3 delayed, 3 need calibration");
    EXPECT_EQ(short_warnings(tally, 0.0),
              ", 2 missing, 3 saturated, 3 invalid, 3 delayed, 3 need calibration");
    tally.begin({.number = 1, .reason = "connected again", .gap = 1.0, .calibration_temperatures = {}});
    EXPECT_TRUE(short_warnings(tally, 0.0).ends_with(", 1 break"));
}

TEST(stream_warnings, leave_out_the_first_invalid_frame_while_frames_arrive)
{
    frame_tally tally;
    add_frames(tally, 1, {{"data_valid", false}});
    EXPECT_EQ(short_warnings(tally, 20.0), "");
}

} // namespace
} // namespace vantor
