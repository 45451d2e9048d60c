/** @file
 * Tests of the warnings about the frames of a stream.
 */
#include "commands/stream_warnings.h"

#include <gmock/gmock.h>

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
    EXPECT_EQ(short_warnings({}), "");
}

TEST(stream_warnings, name_missing_frames_and_a_rate_that_is_not_reached)
{
    stream_facts facts;
    facts.frames = 75;
    facts.missing = 25;
    facts.damaged = 1;
    facts.nominal_rate = 200.0;
    EXPECT_THAT(describe_warnings(facts),
                ElementsAre("missing: 25 frames that server or sensor left out, or the link lost",
                            "rate not reached: 150.0 of 200.0 frames/s", "damaged: 1 message"));
}

TEST(stream_warnings, do_not_call_one_missing_frame_a_rate_that_is_not_reached)
{
    stream_facts facts;
    facts.frames = 1000;
    facts.missing = 1;
    facts.nominal_rate = 200.0;
    EXPECT_THAT(describe_warnings(facts),
                ElementsAre("missing: 1 frame that server or sensor left out, or the link lost"));
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
        ElementsAre(
            "saturated: 3 of 100 frames of group 1, item 2; use a lower receiver_gain",
            "invalid: 4 of 100 frames of group 1, item 2; the channel was busy; their samples are not used",
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

} // namespace
} // namespace vantor
