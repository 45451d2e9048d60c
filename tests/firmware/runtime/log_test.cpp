/** @file
 * Tests of the firmware's log.
 */
#include "log.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_board.h"
#include "faults.h"
#include "interrupts.h"
#include "link.h"
#include "retained.h"
#include "zet_integration_log.h"

namespace
{

constexpr uint64_t patience_us = 40000;

/** Every level with its name. */
constexpr std::pair<zet_log_level_t, const char *> levels[] = {
    {ZET_LOG_LEVEL_ERROR, "error"},     {ZET_LOG_LEVEL_WARNING, "warning"}, {ZET_LOG_LEVEL_INFO, "info"},
    {ZET_LOG_LEVEL_VERBOSE, "verbose"}, {ZET_LOG_LEVEL_DEBUG, "debug"},
};

struct runtime_log : testing::Test
{
    runtime_log()
    {
        reset_board();
    }
};

TEST_F(runtime_log, sends_warnings_and_errors_to_the_port)
{
    for (const auto &[level, name] : levels)
    {
        log_line(level, "m1", "what happened");
    }
    EXPECT_EQ(board.log.sent, "error: m1: what happened\r\nwarning: m1: what happened\r\n");
}

TEST_F(runtime_log, sends_nothing_about_a_wait_that_was_given_up)
{
    board.has_given_up_wait = true;
    log_line(ZET_LOG_LEVEL_ERROR, "m1", "Wait for interrupt timeout");
    EXPECT_EQ(board.log.sent, "");
    EXPECT_EQ(board.server_log.size(), 1U);
}

TEST_F(runtime_log, offers_every_line_to_the_host)
{
    for (const auto &[level, name] : levels)
    {
        log_line(level, "m1", name);
        EXPECT_EQ(board.server_log.back(), (log_entry_t{level, "m1", name}));
    }
    EXPECT_EQ(board.server_log.size(), std::size(levels));
}

TEST_F(runtime_log, sends_lines_of_every_level_to_the_port_when_requested)
{
    std::string expected;
    for (const auto &[level, name] : levels)
    {
        log_to_port(level, "board", "x");
        expected += std::string(name) + ": board: x\r\n";
    }
    EXPECT_EQ(board.log.sent, expected);
    EXPECT_THAT(board.server_log, testing::IsEmpty());
}

TEST_F(runtime_log, waits_40_ms_at_most_for_a_port_that_accepts_nothing)
{
    board.poll_time_ns = 7000;
    board.log.is_blocked = true;
    log_line(ZET_LOG_LEVEL_ERROR, "m1", "x");
    EXPECT_GE(board.now_us(), patience_us);
    // Every part of the line polls the port once more.
    EXPECT_LE(board.now_us(), patience_us + 5 * 7);
    EXPECT_LE(board.longest_unfed_ns, 2 * board.poll_time_ns);
    EXPECT_GE(board.last_feed_ns, patience_us * 1000);
    EXPECT_EQ(board.log.sent, "");
    EXPECT_EQ(board.server_log.size(), 1U) << "the host must receive it";

    board.log.is_blocked = false;
    log_line(ZET_LOG_LEVEL_ERROR, "m1", "y");
    EXPECT_EQ(board.log.sent, "error: m1: y\r\n");
}

TEST_F(runtime_log, sends_as_much_of_a_line_as_possible_in_40_ms)
{
    board.poll_time_ns = 1000;
    board.log.byte_time_ns = 1000000;
    log_line(ZET_LOG_LEVEL_ERROR, "m1", std::string(200, 'x').c_str());
    // One byte is sent immediately, the next one waits in the buffer, then one is sent each millisecond.
    EXPECT_EQ(board.log.sent.size(), 1 + patience_us / 1000 + 1);
    EXPECT_LE(board.now_us(), patience_us + 5);
}

TEST_F(runtime_log, sends_the_longest_line_at_115200_baud)
{
    board.poll_time_ns = 100;
    board.log.byte_time_ns = 86806;
    zet_integration_log(ZET_LOG_LEVEL_WARNING, "a_module_of_20_chars", "%s", std::string(255, 'x').c_str());
    EXPECT_EQ(board.log.sent, "warning: a_module_of_20_chars: " + std::string(255, 'x') + "\r\n");
}

TEST_F(runtime_log, waits_correctly_when_the_counter_wraps)
{
    board.advance_us(UINT32_MAX - 100);
    board.log.is_blocked = true;
    const uint64_t begin_us = board.now_us();
    log_line(ZET_LOG_LEVEL_ERROR, "m1", "x");
    EXPECT_GE(board.now_us() - begin_us, patience_us);
    EXPECT_LE(board.now_us() - begin_us, patience_us + 5);
}

TEST_F(runtime_log, formats_arguments)
{
    zet_integration_log(ZET_LOG_LEVEL_INFO, "m1", "%s is %d", "this", 5);
    EXPECT_THAT(board.server_log, testing::ElementsAre(log_entry_t{ZET_LOG_LEVEL_INFO, "m1", "this is 5"}));
    EXPECT_EQ(board.log.sent, "");
}

TEST_F(runtime_log, truncates_a_text_that_is_too_long)
{
    zet_integration_log(ZET_LOG_LEVEL_WARNING, "m1", "%s", std::string(1000, 'x').c_str());
    const std::string cut(255, 'x');
    EXPECT_THAT(board.server_log, testing::ElementsAre(log_entry_t{ZET_LOG_LEVEL_WARNING, "m1", cut}));
    EXPECT_EQ(board.log.sent, "warning: m1: " + cut + "\r\n");
}

TEST_F(runtime_log, reports_a_fault_and_retains_it)
{
    board.advance_us(patience_us);
    board.log.byte_time_ns = 86806;
    add_to_fault_report("hard fault");
    add_to_fault_report(", pc ");
    add_to_fault_report("08001234");
    EXPECT_STREQ(retained_last_fault(), "hard fault, pc 08001234");
    EXPECT_EQ(board.log.sent, "") << "the port could cause a fault";
    send_fault_report();
    EXPECT_EQ(board.log.sent, "fault: hard fault, pc 08001234; restarting\r\n");
    EXPECT_STREQ(retained_last_fault(), "hard fault, pc 08001234");
    EXPECT_THAT(board.server_log, testing::IsEmpty()) << "the server must not be called after a fault";
}

TEST_F(runtime_log, sends_the_rest_of_the_output_after_the_report_of_a_fault)
{
    link_open();
    link_write("answer", 6);
    disable_link_interrupts();
    add_to_fault_report("hard fault");
    board.log.sent.clear();
    send_fault_report();
    EXPECT_EQ(board.log.sent, "fault: hard fault; restarting\r\n");
    EXPECT_EQ(board.link.sent, "answer");
    EXPECT_FALSE(link_is_sending());
}

TEST_F(runtime_log, retains_a_fault_when_the_port_accepts_nothing)
{
    board.log.is_blocked = true;
    add_to_fault_report("hard fault");
    add_to_fault_report(", more");
    send_fault_report();
    EXPECT_GE(board.now_us(), patience_us);
    EXPECT_LE(board.now_us(), patience_us + 2) << "the limit is for all parts together";
    EXPECT_STREQ(retained_last_fault(), "hard fault, more");
}

TEST_F(runtime_log, can_report_a_fault_before_the_board_has_started)
{
    board.counter_runs = false;
    board.log.is_blocked = true;
    add_to_fault_report("bus fault");
    send_fault_report();
    EXPECT_STREQ(retained_last_fault(), "bus fault");
}

} // namespace
