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
#include "interrupts.h"

namespace
{

constexpr uint64_t stall_us = 5000000;
constexpr uint32_t ring_size = BOARD_SEND_RING_SIZE;
constexpr uint64_t byte_time_ns = 10000000000 / 115200 + 1;
constexpr send_interrupt_t kinds[] = {send_interrupt_t::level, send_interrupt_t::edge,
                                      send_interrupt_t::none};

/** A text in which neighbouring bytes are different. */
std::string text_of(uint32_t size)
{
    std::string text;
    for (uint32_t i = 0; i < size; ++i)
    {
        text += static_cast<char>('!' + i % 90);
    }
    return text;
}

struct runtime_link : testing::Test
{
    runtime_link()
    {
        reset_board();
        link_open();
    }

    /** Starts again, with another kind of port. */
    static void open(send_interrupt_t kind)
    {
        reset_board();
        board.link_send_interrupt = kind;
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

TEST_F(runtime_link, sends_every_byte_in_order_with_every_kind_of_interrupt)
{
    for (const auto kind : kinds)
    {
        for (uint32_t size = 0; size <= 5 * ring_size; ++size)
        {
            open(kind);
            write("one");
            write(text_of(size));
            write("");
            write(std::string_view("\0two", 4));
            link_drain();
            EXPECT_EQ(board.link.sent, "one" + text_of(size) + std::string("\0two", 4));
            EXPECT_FALSE(link_is_stalled());
        }
    }
}

TEST_F(runtime_link, sends_while_the_program_does_something_else)
{
    for (const auto kind : {send_interrupt_t::level, send_interrupt_t::edge})
    {
        open(kind);
        board.poll_time_ns = 1;
        const uint64_t begin_ns = board.now_ns;
        write(text_of(ring_size));
        EXPECT_LT(board.now_ns - begin_ns, byte_time_ns);
        EXPECT_TRUE(link_is_sending());
        EXPECT_LT(board.link.sent.size(), ring_size);
        board.advance_ns(ring_size * byte_time_ns);
        EXPECT_EQ(board.link.sent, text_of(ring_size));
        EXPECT_LE(board.link.idle_ns, begin_ns + ring_size * byte_time_ns + 10 * board.poll_time_ns);
        EXPECT_FALSE(link_is_sending());
    }
}

TEST_F(runtime_link, needs_one_interrupt_for_a_byte)
{
    write(text_of(ring_size));
    board.advance_ns(100 * byte_time_ns);
    // The first interrupt sends two bytes: one leaves the buffer immediately.
    EXPECT_EQ(board.link.sent.size(), ring_size);
    EXPECT_NEAR(board.link_interrupts, ring_size, 2);
    write("x");
    board.advance_ns(100 * byte_time_ns);
    EXPECT_NEAR(board.link_interrupts, ring_size + 1, 3) << "an idle port must not interrupt";
}

TEST_F(runtime_link, sleeps_until_there_is_room)
{
    for (const auto kind : {send_interrupt_t::level, send_interrupt_t::edge})
    {
        open(kind);
        board.poll_time_ns = 1;
        board.waits.clear();
        const uint64_t begin_ns = board.now_ns;
        write(text_of(4 * ring_size));
        EXPECT_GE(board.link.sent.size(), 3 * ring_size);
        EXPECT_LE(board.link.sent.size(), 3 * ring_size + ring_size / 2 + 2);
        EXPECT_LT(board.now_ns - begin_ns, (3 * ring_size + ring_size / 2 + 2) * byte_time_ns);
        EXPECT_THAT(board.waits, testing::Not(testing::IsEmpty()));
    }
}

TEST_F(runtime_link, polls_a_port_without_interrupt_until_everything_is_sent)
{
    open(send_interrupt_t::none);
    board.waits.clear();
    write(text_of(3 * ring_size));
    EXPECT_EQ(board.link.sent, text_of(3 * ring_size));
    EXPECT_FALSE(link_is_sending());
    EXPECT_THAT(board.waits, testing::IsEmpty());
}

TEST_F(runtime_link, receives_while_it_sends)
{
    for (const auto kind : kinds)
    {
        open(kind);
        for (uint64_t time_us = 0; time_us < 1000; time_us += 100)
        {
            board.at(board.now_us() + time_us, [] { board.receive("r"); });
        }
        write(text_of(2 * ring_size));
        link_drain();
        EXPECT_EQ(read(), "rrrrrrrrrr");
        EXPECT_EQ(board.link.sent, text_of(2 * ring_size));
    }
}

TEST_F(runtime_link, is_stalled_when_the_port_accepts_nothing_for_5_seconds)
{
    for (const auto kind : kinds)
    {
        for (const uint64_t poll_us : {1U, 7U, 10000U})
        {
            open(kind);
            board.poll_time_ns = poll_us * 1000;
            write("a");
            board.advance_us(1000);
            board.link.is_blocked = true;
            const uint64_t begin_us = board.now_us();
            write(text_of(ring_size + 1));
            EXPECT_TRUE(link_is_stalled());
            EXPECT_GE(board.now_us() - begin_us, stall_us);
            // The last pause, and the polls before and after it.
            EXPECT_LE(board.now_us() - begin_us, stall_us + 1000 + 4 * poll_us);
            EXPECT_EQ(board.link.sent, "a");
        }
    }
}

TEST_F(runtime_link, waits_up_to_5_seconds_for_every_byte)
{
    for (const auto kind : kinds)
    {
        open(kind);
        board.poll_time_ns = 10000;
        for (int i = 0; i < 3; ++i)
        {
            board.link.is_blocked = true;
            board.at(board.now_us() + stall_us - 2000, [] { board.unblock_link(); });
            write(text_of(ring_size + 1));
            link_drain();
        }
        EXPECT_EQ(board.link.sent, text_of(ring_size + 1) + text_of(ring_size + 1) + text_of(ring_size + 1));
        EXPECT_FALSE(link_is_stalled());
    }
}

TEST_F(runtime_link, detects_a_stall_when_nothing_more_is_written)
{
    board.link.is_blocked = true;
    write("abc");
    EXPECT_FALSE(link_is_stalled());
    board.advance_us(stall_us - 100);
    EXPECT_FALSE(link_is_stalled());
    board.advance_us(100);
    EXPECT_TRUE(link_is_stalled());
}

TEST_F(runtime_link, is_not_stalled_after_a_pause)
{
    write("a");
    board.advance_us(10 * stall_us);
    board.link.is_blocked = true;
    write("b");
    EXPECT_FALSE(link_is_stalled());
    board.advance_us(stall_us - 100);
    EXPECT_FALSE(link_is_stalled());
    board.unblock_link();
    board.advance_us(stall_us - 100);
    EXPECT_FALSE(link_is_stalled());
    EXPECT_EQ(board.link.sent, "ab");
}

TEST_F(runtime_link, is_not_stalled_while_the_port_accepts_bytes_slowly)
{
    board.link.byte_time_ns = 3000000000;
    write(text_of(ring_size));
    for (uint32_t i = 0; i < ring_size; ++i)
    {
        board.advance_us(3000000);
        EXPECT_FALSE(link_is_stalled());
    }
    EXPECT_EQ(board.link.sent, text_of(ring_size));
}

TEST_F(runtime_link, waits_across_a_wrap_of_the_counter)
{
    board.advance_us(UINT32_MAX - stall_us / 2);
    board.link.is_blocked = true;
    const uint64_t begin_us = board.now_us();
    write(text_of(ring_size + 1));
    EXPECT_TRUE(link_is_stalled());
    EXPECT_GE(board.now_us() - begin_us, stall_us);
    EXPECT_LE(board.now_us() - begin_us, stall_us + 1010);
}

TEST_F(runtime_link, discards_bytes_after_a_stall_until_it_is_opened)
{
    board.link.is_blocked = true;
    write(text_of(ring_size + 1));
    const uint64_t begin_us = board.now_us();
    write("dropped");
    EXPECT_EQ(board.now_us(), begin_us) << "must not wait";
    EXPECT_EQ(board.link.sent, "");
    link_open();
    board.unblock_link();
    EXPECT_FALSE(link_is_stalled());
    write("sent");
    board.advance_us(1000);
    EXPECT_EQ(board.link.sent, "sent") << "must not send the rest of what was written before";
}

TEST_F(runtime_link, feeds_the_watchdog_while_the_port_accepts_nothing)
{
    for (const auto kind : kinds)
    {
        open(kind);
        board.link.is_blocked = true;
        board.last_feed_ns = board.now_ns;
        write(text_of(ring_size + 1));
        EXPECT_LE(board.longest_unfed_ns, 1000000 + 4 * board.poll_time_ns);
        EXPECT_GE(board.last_feed_ns, (stall_us - 1000) * 1000);
    }
}

TEST_F(runtime_link, sends_the_rest_without_interrupts_after_a_failure)
{
    write(text_of(ring_size));
    disable_link_interrupts();
    link_send_rest();
    EXPECT_EQ(board.link.sent, text_of(ring_size));
    EXPECT_GE(board.now_ns, board.link.idle_ns) << "the last bit is cut off by a reset";
}

TEST_F(runtime_link, gives_up_the_rest_when_the_port_accepts_nothing)
{
    write("abc");
    disable_link_interrupts();
    board.counter_runs = false;
    board.link.is_blocked = true;
    const size_t sent = board.link.sent.size();
    link_send_rest();
    EXPECT_EQ(board.link.sent.size(), sent);
    EXPECT_TRUE(link_is_sending());
}

TEST_F(runtime_link, does_not_touch_the_port_after_a_failure_when_nothing_waits)
{
    board.advance_us(1000);
    const uint64_t begin_ns = board.now_ns;
    link_send_rest();
    EXPECT_EQ(board.now_ns, begin_ns);
}

TEST_F(runtime_link, changes_the_baud_rate_after_the_last_bit_was_sent)
{
    for (const auto &[kind, reports_last_bit] : {std::pair{send_interrupt_t::level, true},
                                                 {send_interrupt_t::level, false},
                                                 {send_interrupt_t::edge, false},
                                                 {send_interrupt_t::none, true}})
    {
        open(kind);
        board.poll_time_ns = 100;
        board.link_reports_last_bit = reports_last_bit;
        std::string written;
        for (const uint32_t baudrate : {9600U, 115200U, 921600U, 1562500U, 2000000U, 115200U})
        {
            for (uint64_t part_ns = 0; part_ns < 1000; part_ns += 37)
            {
                board.advance_ns(1000 - board.now_ns % 1000 + part_ns);
                const uint64_t end_ns = board.now_ns + 3 * board.link.byte_time_ns;
                for (uint64_t early_ns = 0; early_ns < 2000; early_ns += 190)
                {
                    board.at_ns(end_ns - early_ns, board_wake);
                }
                const std::string text = text_of(part_ns % 2 == 0 ? 3 : 2 * ring_size);
                write(text);
                written += text;
                link_set_baudrate(baudrate);
                ASSERT_EQ(board.link.sent.size(), written.size());
            }
        }
        EXPECT_EQ(board.link.sent, written);
        EXPECT_EQ(board.cut_bytes, 0U);
        EXPECT_FALSE(link_is_stalled());
        EXPECT_EQ(std::get<1>(board.calls.back()), "link 115200");
    }
}

TEST_F(runtime_link, handles_no_interrupt_while_the_baud_rate_changes)
{
    board.on_link_open = [] {
        board.receive("x");
        EXPECT_FALSE(link_has_input());
    };
    link_set_baudrate(9600);
    EXPECT_EQ(read(), "x");
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
    board.poll_time_ns = 0;
    board.at(1234, [] { board.receive("x"); });
    EXPECT_TRUE(clock_wait_until(5000, link_has_input));
    EXPECT_EQ(board.now_us(), 1234U);
}

} // namespace
