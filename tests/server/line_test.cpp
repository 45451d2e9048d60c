/** @file
 * Splitting received bytes into lines.
 */
#include "zet_vantor_server_line.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace
{

class line_buffer : public testing::Test
{
protected:
    void SetUp() override
    {
        zet_line_buffer_init(&line, memory.data(), memory.size());
    }

    /** Passes bytes on in pieces. Returns the complete lines, with "!" for each line that is too long. */
    std::vector<std::string> feed(std::string_view bytes, size_t piece)
    {
        std::vector<std::string> events;
        while (!bytes.empty())
        {
            const std::string_view part = bytes.substr(0, piece);
            bytes.remove_prefix(part.size());
            const char *data = part.data();
            size_t size = part.size();
            while (size > 0)
            {
                const zet_line_event_t event = zet_line_buffer_take(&line, &data, &size);
                if (event == ZET_LINE_COMPLETE)
                {
                    EXPECT_EQ(line.text[line.length], '\0');
                    events.emplace_back(line.text, line.length);
                }
                else if (event == ZET_LINE_TOO_LONG)
                {
                    events.emplace_back("!");
                }
            }
        }
        return events;
    }

    zet_line_buffer_t line = {};
    std::array<char, 11> memory = {};
};

using events_t = std::vector<std::string>;

TEST_F(line_buffer, splits_lines_whatever_the_size_of_the_pieces)
{
    for (size_t piece = 1; piece <= 30; ++piece)
    {
        EXPECT_EQ(feed("one\ntwo\r\n\n\r\nthree\nfo", piece), (events_t{"one", "two", "", "", "three"}));
        EXPECT_EQ(feed("ur\n", piece), (events_t{"four"}));
    }
}

TEST_F(line_buffer, removes_only_one_carriage_return_at_the_end)
{
    EXPECT_EQ(feed("a\rb\r\r\n", 100), (events_t{"a\rb\r"}));
}

TEST_F(line_buffer, keeps_zero_bytes)
{
    EXPECT_EQ(feed(std::string_view("a\0b\n", 4), 100), (events_t{std::string("a\0b", 3)}));
}

TEST_F(line_buffer, accepts_a_line_that_just_fits)
{
    for (size_t piece = 1; piece <= 30; ++piece)
    {
        EXPECT_EQ(feed("0123456789\n", piece), (events_t{"0123456789"}));
        EXPECT_EQ(feed("012345678\r\n", piece), (events_t{"012345678"}));
    }
}

TEST_F(line_buffer, reports_a_line_that_is_too_long_once_and_continues_after_it)
{
    for (size_t piece = 1; piece <= 30; ++piece)
    {
        EXPECT_EQ(feed("0123456789a\nok\n", piece), (events_t{"!", "ok"}));
        EXPECT_EQ(feed(std::string(1000, 'x') + "\nok\n", piece), (events_t{"!", "ok"}));
        EXPECT_EQ(feed("0123456789\r\nok\n", piece), (events_t{"!", "ok"}));
    }
}

TEST_F(line_buffer, reports_each_of_several_lines_that_are_too_long)
{
    EXPECT_EQ(feed("0123456789a\n0123456789b\nok\n", 3), (events_t{"!", "!", "ok"}));
}

TEST_F(line_buffer, reports_a_line_that_is_too_long_before_its_end)
{
    EXPECT_EQ(feed("0123456789a", 1), (events_t{"!"}));
    EXPECT_EQ(feed("bcdefghijklmnopqrstuvwxyz", 1), (events_t{}));
}

TEST_F(line_buffer, discards_an_incomplete_line_when_cleared)
{
    EXPECT_EQ(feed("half", 1), (events_t{}));
    zet_line_buffer_clear(&line);
    EXPECT_EQ(feed("ok\n", 1), (events_t{"ok"}));
    EXPECT_EQ(feed("0123456789abc", 1), (events_t{"!"}));
    zet_line_buffer_clear(&line);
    EXPECT_EQ(feed("ok\n", 1), (events_t{"ok"}));
}

TEST_F(line_buffer, ignores_empty_input)
{
    const char *data = nullptr;
    size_t size = 0;
    EXPECT_EQ(zet_line_buffer_take(&line, &data, &size), ZET_LINE_UNFINISHED);
}

} // namespace
