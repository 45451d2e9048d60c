/** @file
 * Tests of the line of progress and of numbers as text.
 */
#include "commands/progress.h"

#include <sstream>

#include <gtest/gtest.h>

#include "commands/text_table.h"

namespace vantor
{
namespace
{

TEST(progress, tells_rate_and_time_left)
{
    EXPECT_EQ(progress_text(50, 10.0, {.frames = 200, .seconds = 0.0}),
              "50 of 200 frames, 5.0 frames/s, 30 s left");
    EXPECT_EQ(progress_text(50, 10.0, {.frames = 0, .seconds = 12.0}), "50 frames, 5.0 frames/s, 2 s left");
    EXPECT_EQ(progress_text(50, 10.0, {.frames = 200, .seconds = 12.0}),
              "50 of 200 frames, 5.0 frames/s, 2 s left");
    EXPECT_EQ(progress_text(50, 10.0, {}), "50 frames, 5.0 frames/s");
    EXPECT_EQ(progress_text(0, 0.0, {.frames = 200, .seconds = 0.0}), "0 of 200 frames, 0.0 frames/s");
}

TEST(progress, tells_no_time_left_that_nobody_waits_for)
{
    EXPECT_EQ(progress_text(10, 2.0, {.frames = 0, .seconds = 1e308}), "10 frames, 5.0 frames/s");
}

TEST(progress, is_silent_when_there_is_no_terminal)
{
    std::ostringstream out;
    {
        progress_line line(out, false, {});
        line.update(1);
    }
    EXPECT_EQ(out.str(), "");
}

TEST(text_table, lines_columns_up)
{
    text_table table({"a", "long name"});
    table.add({"1000", "x"});
    std::ostringstream out;
    table.print(out);
    EXPECT_EQ(out.str(), "   a  long name\n1000          x\n");
}

TEST(text_table, writes_bytes_with_units)
{
    EXPECT_EQ(format_bytes(0), "0 B");
    EXPECT_EQ(format_bytes(999), "999 B");
    EXPECT_EQ(format_bytes(1000), "1.0 kB");
    EXPECT_EQ(format_bytes(999949), "999.9 kB");
    EXPECT_EQ(format_bytes(999999), "1.0 MB");
    EXPECT_EQ(format_bytes(3.2e12), "3.2 TB");
    EXPECT_EQ(format_bytes(9e15), "9000.0 TB");
}

} // namespace
} // namespace vantor
