/** @file
 * Tests of the firmware's link, exact to the microsecond.
 */
#include "link.h"

#include <string>
#include <string_view>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "board.h"
#include "clock.h"
#include "fake_board.h"

namespace
{

constexpr uint64_t stall_us = 5000000;

struct runtime_link : testing::Test
{
    runtime_link()
    {
        reset_board();
        link_open();
    }

    static void write(std::string_view text)
    {
        link_write(text.data(), static_cast<uint32_t>(text.size()));
    }

    static std::string read(size_t size = 100)
    {
        std::string text(size, '#');
        text.resize(link_read(text.data(), size));
        return text;
    }
};

TEST_F(runtime_link, opens_at_the_initial_baud_rate)
{
    EXPECT_THAT(board.calls, testing::ElementsAre(call_t{0, "link 115200"}));
}

TEST_F(runtime_link, sends_every_byte_in_order)
{
    write("one");
    write("");
    write(std::string_view("\0two", 4));
    EXPECT_EQ(board.link.sent, std::string_view("one\0two", 7));
    EXPECT_FALSE(link_is_stalled());
}

TEST_F(runtime_link, is_stalled_when_the_port_accepts_nothing_for_5_seconds)
{
    for (const uint64_t poll_us : {1U, 7U, 10000U})
    {
        link_open();
        board.link = {};
        board.poll_time_ns = poll_us * 1000;
        write("a");
        board.link.is_blocked = true;
        const uint64_t begin_us = board.now_us();
        write("bcd");
        EXPECT_TRUE(link_is_stalled());
        // The first poll detects that the port accepts nothing. The wait ends with a poll.
        EXPECT_EQ(board.now_us() - begin_us, poll_us + (stall_us + poll_us - 1) / poll_us * poll_us);
        EXPECT_EQ(board.link.sent, "a");
    }
}

TEST_F(runtime_link, waits_up_to_5_seconds_for_every_byte)
{
    board.poll_time_ns = 10000;
    for (int i = 0; i < 3; ++i)
    {
        board.link.is_blocked = true;
        board.at(board.now_us() + stall_us, [] { board.link.is_blocked = false; });
        write("x");
    }
    EXPECT_EQ(board.link.sent, "xxx");
    EXPECT_FALSE(link_is_stalled());
}

TEST_F(runtime_link, waits_across_a_wrap_of_the_counter)
{
    board.advance_us(UINT32_MAX - stall_us / 2);
    board.poll_time_ns = 10000;
    board.link.is_blocked = true;
    const uint64_t begin_us = board.now_us();
    write("x");
    EXPECT_TRUE(link_is_stalled());
    EXPECT_EQ(board.now_us() - begin_us, stall_us + 10);
}

TEST_F(runtime_link, discards_bytes_after_a_stall_until_it_is_opened)
{
    board.link.is_blocked = true;
    write("a");
    board.link.is_blocked = false;
    const uint64_t begin_us = board.now_us();
    write("dropped");
    EXPECT_EQ(board.now_us(), begin_us) << "must not poll the port";
    EXPECT_EQ(board.link.sent, "");
    link_open();
    EXPECT_FALSE(link_is_stalled());
    write("sent");
    EXPECT_EQ(board.link.sent, "sent");
}

TEST_F(runtime_link, feeds_the_watchdog_while_the_port_accepts_nothing)
{
    board.link.is_blocked = true;
    board.last_feed_ns = board.now_ns;
    write("a");
    EXPECT_LE(board.longest_unfed_ns, 2 * board.poll_time_ns);
    EXPECT_GE(board.last_feed_ns, stall_us * 1000);
}

TEST_F(runtime_link, changes_the_baud_rate_after_the_last_bit_was_sent)
{
    board.poll_time_ns = 100;
    for (const bool reports_last_bit : {true, false})
    {
        board.link_reports_last_bit = reports_last_bit;
        for (const uint32_t baudrate : {9600U, 115200U, 921600U, 1562500U, 2000000U, 115200U})
        {
            for (uint64_t part_ns = 0; part_ns < 1000; part_ns += 37)
            {
                board.advance_ns(1000 - board.now_ns % 1000 + part_ns);
                const uint64_t byte_time_ns = board.link.byte_time_ns;
                for (uint64_t early_ns = 0; early_ns < 2000; early_ns += 190)
                {
                    board.at_ns(board.now_ns + 3 * byte_time_ns - early_ns, board_wake);
                }
                write("abc");
                link_set_baudrate(baudrate);
            }
        }
    }
    EXPECT_EQ(board.cut_bytes, 0U);
    EXPECT_FALSE(link_is_stalled());
    EXPECT_EQ(std::get<1>(board.calls.back()), "link 115200");
}

TEST_F(runtime_link, waits_for_one_byte_at_the_old_baud_rate)
{
    link_set_baudrate(9600);
    const uint64_t begin_us = board.now_us();
    link_set_baudrate(2000000);
    EXPECT_NEAR(static_cast<double>(board.now_us() - begin_us), 1e7 / 9600, 3.0);
    const uint64_t middle_us = board.now_us();
    link_set_baudrate(9600);
    EXPECT_NEAR(static_cast<double>(board.now_us() - middle_us), 1e7 / 2000000, 3.0);
}

TEST_F(runtime_link, stops_waiting_for_a_port_that_does_not_drain)
{
    write("a");
    board.link.is_blocked = true;
    const uint64_t begin_us = board.now_us();
    link_drain();
    EXPECT_TRUE(link_is_stalled());
    EXPECT_NEAR(static_cast<double>(board.now_us() - begin_us), 5e6 + 1e7 / 115200, 5.0);
    const uint64_t middle_us = board.now_us();
    link_set_baudrate(9600);
    EXPECT_NEAR(static_cast<double>(board.now_us() - middle_us), 1e7 / 115200, 3.0)
        << "must not wait again after a stall";
    EXPECT_TRUE(link_is_stalled());
}

TEST_F(runtime_link, returns_received_bytes)
{
    EXPECT_FALSE(link_has_input());
    EXPECT_EQ(read(), "");
    board.receive(std::string_view("ab\0\xFF", 4));
    EXPECT_TRUE(link_has_input());
    EXPECT_EQ(read(1), "a");
    board.receive("cd");
    EXPECT_EQ(read(), std::string_view("b\0\xFF"
                                       "cd",
                                       5));
    EXPECT_FALSE(link_has_input());
}

TEST_F(runtime_link, marks_a_loss_with_a_zero_byte)
{
    board.receive("0123456789abcdeLOST");
    board.receive("LOST");
    EXPECT_EQ(read(3), "012");
    board.receive("fg");
    EXPECT_EQ(read(), std::string_view("3456789abcde\0fg", 15));
}

TEST_F(runtime_link, shows_every_byte_once_before_it_is_read)
{
    const auto look_ahead = [](size_t size) {
        std::string text(size, '#');
        text.resize(link_look_ahead(text.data(), size));
        return text;
    };
    board.receive("abcdef");
    EXPECT_EQ(look_ahead(4), "abcd");
    EXPECT_EQ(look_ahead(4), "ef");
    EXPECT_EQ(look_ahead(4), "");
    EXPECT_EQ(read(3), "abc");
    board.receive("gh");
    EXPECT_EQ(look_ahead(100), "gh");
    EXPECT_EQ(read(), "defgh");
    board.receive("ij");
    EXPECT_EQ(read(1), "i");
    EXPECT_EQ(look_ahead(100), "j");
    link_discard_input();
    EXPECT_EQ(look_ahead(100), "");
    board.receive("k");
    EXPECT_EQ(look_ahead(100), "k");
}

TEST_F(runtime_link, discards_received_bytes)
{
    board.receive("old");
    link_discard_input();
    EXPECT_FALSE(link_has_input());
    board.receive("older");
    link_open();
    EXPECT_FALSE(link_has_input());
    board.receive("new");
    EXPECT_EQ(read(), "new");
}

TEST_F(runtime_link, keeps_received_bytes_when_the_baud_rate_changes)
{
    board.receive("kept");
    link_set_baudrate(9600);
    EXPECT_EQ(read(), "kept");
}

TEST_F(runtime_link, ends_a_wait_when_a_byte_arrives)
{
    board.at(1234, [] { board.receive("x"); });
    EXPECT_TRUE(clock_wait_until(5000, link_has_input));
    EXPECT_EQ(board.now_us(), 1234U);
}

} // namespace
