/** @file
 * Tests of the progress line and of formatting numbers.
 */
#include "commands/progress.h"

#include <optional>
#include <sstream>
#include <utility>

#include <gmock/gmock.h>

#include "commands/reading_progress.h"
#include "commands/text_table.h"
#include "example_recording.h"
#include "manual_clock.h"
#include "recording/number_text.h"
#include "temporary_directory.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;

TEST(progress, shows_rate_and_time_left)
{
    EXPECT_EQ(progress_text(50, 5.0, 10.0, {.frames = 200, .seconds = 0.0}),
              "50 of 200 frames, 5.00 frames/s, 30 s left");
    EXPECT_EQ(progress_text(50, 5.0, 10.0, {.frames = 0, .seconds = 12.0}),
              "50 frames, 5.00 frames/s, 2 s left");
    EXPECT_EQ(progress_text(50, 5.0, 10.0, {.frames = 200, .seconds = 12.0}),
              "50 of 200 frames, 5.00 frames/s, 2 s left");
    EXPECT_EQ(progress_text(50, 5.0, 10.0, {}), "50 frames, 5.00 frames/s");
    EXPECT_EQ(progress_text(0, 0.0, 0.0, {.frames = 200, .seconds = 0.0}), "0 of 200 frames, 0.0 frames/s");
}

TEST(progress, shows_three_digits_of_low_rates)
{
    EXPECT_EQ(progress_text(3, 0.05, 60.0, {}), "3 frames, 0.0500 frames/s");
    EXPECT_EQ(progress_text(3, 1234.5, 60.0, {}), "3 frames, 1234.5 frames/s");
}

TEST(progress, hides_a_very_long_time_left)
{
    EXPECT_EQ(progress_text(10, 5.0, 2.0, {.frames = 0, .seconds = 1e308}), "10 frames, 5.00 frames/s");
}

/** A progress line in virtual time. */
class progress_line_test : public testing::Test
{
protected:
    /** Updates the line at a given time and returns what is written. */
    std::string written_at(std::chrono::nanoseconds moment, uint64_t frames)
    {
        clock.advance_to(moment);
        out.str("");
        line->update(frames);
        return out.str();
    }

    test::manual_clock clock;
    std::ostringstream out;
    std::optional<progress_line> line{std::in_place, out, true, progress_goal{.frames = 100}, clock.source()};
};

TEST_F(progress_line_test, is_written_five_times_a_second_at_most)
{
    EXPECT_EQ(written_at(0ns, 1), "");
    EXPECT_EQ(written_at(199999999ns, 10), "");
    EXPECT_EQ(written_at(200ms, 11), "\r11 of 100 frames, 50.0 frames/s, 2 s left");
    EXPECT_EQ(written_at(200ms, 12), "");
    EXPECT_EQ(written_at(399999999ns, 13), "");
    EXPECT_EQ(written_at(1s, 21), "\r21 of 100 frames, 20.0 frames/s, 4 s left");
    EXPECT_EQ(written_at(1199999999ns, 22), "");
    EXPECT_EQ(written_at(1200ms, 25), "\r25 of 100 frames, 20.0 frames/s, 4 s left");
}

TEST_F(progress_line_test, shows_the_rate_from_the_first_frame_on)
{
    EXPECT_EQ(written_at(5s, 0), "\r0 of 100 frames, 0.0 frames/s");
    EXPECT_EQ(written_at(6s, 1), "\r1 of 100 frames, 0.0 frames/s");
    EXPECT_EQ(written_at(7s, 21), "\r21 of 100 frames, 20.0 frames/s, 4 s left");
}

TEST_F(progress_line_test, leaves_nothing_behind)
{
    written_at(1s, 1);
    EXPECT_EQ(written_at(2s, 51), "\r51 of 100 frames, 50.0 frames/s, 1 s left");
    EXPECT_EQ(written_at(11s, 51), "\r51 of 100 frames, 5.00 frames/s, 10 s left");
    EXPECT_EQ(written_at(20s, 96), "\r96 of 100 frames, 5.00 frames/s, 1 s left ");
    out.str("");
    line.reset();
    EXPECT_EQ(out.str(), "\r" + std::string(42, ' ') + "\r");
}

TEST_F(progress_line_test, is_not_longer_than_a_line_of_the_terminal)
{
    clock.advance(1s);
    line->update(1, [] { return std::string(1000, 'x'); });
    // The test has no terminal, or one of any width.
    EXPECT_LT(out.str().size(), 1000U);
    EXPECT_NE(out.str().find("frames/sxxx"), std::string::npos);
}

TEST_F(progress_line_test, is_not_removed_if_it_was_never_shown)
{
    line.reset();
    EXPECT_EQ(out.str(), "");
}

TEST(progress, is_not_shown_without_a_terminal)
{
    test::manual_clock clock;
    std::ostringstream out;
    {
        progress_line line(out, false, {}, clock.source());
        clock.advance(1s);
        line.update(1);
    }
    EXPECT_EQ(out.str(), "");
}

TEST(text_table, aligns_columns)
{
    text_table table({"a", "long name"});
    table.add({"1000", "x"});
    std::ostringstream out;
    table.print(out);
    EXPECT_EQ(out.str(), "   a  long name\n1000          x\n");
}

TEST(text_table, formats_bytes_with_units)
{
    EXPECT_EQ(format_bytes(0), "0 B");
    EXPECT_EQ(format_bytes(999), "999 B");
    EXPECT_EQ(format_bytes(1000), "1.0 kB");
    EXPECT_EQ(format_bytes(999949), "999.9 kB");
    EXPECT_EQ(format_bytes(999999), "1.0 MB");
    EXPECT_EQ(format_bytes(3.2e12), "3.2 TB");
    EXPECT_EQ(format_bytes(9e15), "9000.0 TB");
}

TEST(reading_progress, counts_each_frame_once)
{
    const test::temporary_directory directory;
    test::write_example_recording(directory / "out", 4);
    recording_reader recording(directory / "out");
    test::manual_clock clock;
    std::ostringstream out;
    std::ostringstream err;
    unsigned checks = 0;
    const reading_progress progress(
        recording, {out, err, true}, 2, [&] { ++checks; }, clock.source());
    std::vector<sample> samples;
    const auto read = [&](uint64_t first, uint64_t last) {
        err.str("");
        for (uint64_t number = first; number <= last; ++number)
        {
            clock.advance(200ms);
            recording.read_frame(number % 3, number / 3 % 4, samples);
        }
        return err.str();
    };
    // Three items, each of which is read twice.
    EXPECT_THAT(read(1, 12), testing::HasSubstr("\r2 of 4 frames, "));
    EXPECT_THAT(read(13, 24), testing::AllOf(testing::HasSubstr("\r4 of 4 frames, "),
                                             testing::Not(testing::HasSubstr("5 of"))));
    EXPECT_EQ(checks, 24U);
}

} // namespace
} // namespace vantor
