/** @file
 * Tests of the information that the firmware retains over a reset.
 */
#include "retained.h"

#include <algorithm>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "fake_board.h"

namespace
{

/** Resets the board and starts the firmware. The board reports @p board_cause. */
void restart(const char *board_cause = nullptr)
{
    reset_board();
    board.reset_cause = board_cause;
    retained_start();
    board.reset_cause = "read too late";
}

/** The same after power off. The memory then contains random values. */
void power_on(const char *board_cause = nullptr, uint32_t seed = 1)
{
    std::mt19937 random(seed);
    std::generate(retained_memory().begin(), retained_memory().end(),
                  [&] { return static_cast<uint8_t>(random()); });
    restart(board_cause);
}

struct runtime_retained : testing::Test
{
    runtime_retained()
    {
        power_on();
    }
};

TEST_F(runtime_retained, detects_power_on)
{
    for (uint32_t seed = 0; seed < 100; ++seed)
    {
        power_on(nullptr, seed);
        EXPECT_STREQ(retained_reset_cause(), "power on");
        EXPECT_STREQ(retained_last_fault(), nullptr);
    }
    for (const uint8_t content : {uint8_t{0x00}, uint8_t{0xFF}, uint8_t{0xA5}})
    {
        std::fill(retained_memory().begin(), retained_memory().end(), content);
        restart();
        EXPECT_STREQ(retained_reset_cause(), "power on");
        EXPECT_STREQ(retained_last_fault(), nullptr);
    }
}

TEST_F(runtime_retained, trusts_memory_only_if_both_marks_are_intact)
{
    for (size_t byte = 0; byte < 8; ++byte)
    {
        for (uint32_t bit = 0; bit < 8; ++bit)
        {
            power_on();
            retain_fault("a fault");
            retained_memory()[byte] ^= static_cast<uint8_t>(1U << bit);
            restart();
            EXPECT_STREQ(retained_reset_cause(), "power on");
            EXPECT_STREQ(retained_last_fault(), nullptr);
            restart();
            EXPECT_STREQ(retained_reset_cause(), "reset") << "the memory must be trusted after that";
        }
    }
}

TEST_F(runtime_retained, prefers_its_own_cause_to_the_boards)
{
    power_on("brownout");
    EXPECT_STREQ(retained_reset_cause(), "brownout");
    restart("reset pin");
    EXPECT_STREQ(retained_reset_cause(), "reset pin");
    restart();
    EXPECT_STREQ(retained_reset_cause(), "reset");
    retain_restart_cause("memory lost");
    EXPECT_STREQ(retained_reset_cause(), "reset") << "the cause is for the next start";
    restart("reset pin");
    EXPECT_STREQ(retained_reset_cause(), "memory lost");
    restart("reset pin");
    EXPECT_STREQ(retained_reset_cause(), "reset pin") << "its own cause must be used only once";
}

// A chip keeps its flags until they are read. Otherwise they would look like those of the next reset.
TEST_F(runtime_retained, reads_the_boards_cause_at_every_start)
{
    EXPECT_EQ(board.reset_cause_reads, 1U);
    restart("watchdog");
    EXPECT_EQ(board.reset_cause_reads, 1U);
    retain_restart_cause("memory lost");
    restart("watchdog");
    EXPECT_EQ(board.reset_cause_reads, 1U);
}

TEST_F(runtime_retained, truncates_a_cause_that_is_too_long)
{
    retain_restart_cause("12345678901234567890123CUT");
    restart();
    EXPECT_STREQ(retained_reset_cause(), "12345678901234567890123");
    restart("12345678901234567890123CUT");
    EXPECT_STREQ(retained_reset_cause(), "12345678901234567890123");
    EXPECT_STREQ(retained_last_fault(), nullptr) << "the memory after it must not change";
}

TEST_F(runtime_retained, keeps_a_fault_until_power_off)
{
    retain_fault("hard fault");
    retain_fault(", pc ");
    retain_fault("1234");
    restart();
    EXPECT_STREQ(retained_reset_cause(), "fault");
    EXPECT_STREQ(retained_last_fault(), "hard fault, pc 1234");
    restart();
    EXPECT_STREQ(retained_reset_cause(), "reset");
    EXPECT_STREQ(retained_last_fault(), "hard fault, pc 1234");
    power_on();
    EXPECT_STREQ(retained_last_fault(), nullptr);
}

// A function of the board can fault before anything else is called.
TEST_F(runtime_retained, keeps_a_fault_during_the_first_start)
{
    struct fault_t
    {
    };
    std::fill(retained_memory().begin(), retained_memory().end(), uint8_t{0xA5});
    board.on_reset_cause = [] {
        retain_fault("bus fault");
        throw fault_t();
    };
    EXPECT_THROW(retained_start(), fault_t);
    restart();
    EXPECT_STREQ(retained_reset_cause(), "fault");
    EXPECT_STREQ(retained_last_fault(), "bus fault");
}

TEST_F(runtime_retained, replaces_a_fault_with_the_next_one)
{
    retain_fault("the first, with a long text");
    restart();
    retain_fault("the second");
    EXPECT_STREQ(retained_last_fault(), "the second");
    restart();
    EXPECT_STREQ(retained_last_fault(), "the second");
    EXPECT_STREQ(retained_reset_cause(), "fault");
}

TEST_F(runtime_retained, reports_a_fault_during_a_restart_as_the_cause)
{
    retain_restart_cause("memory lost");
    retain_fault("hard fault");
    restart("watchdog");
    EXPECT_STREQ(retained_reset_cause(), "fault");
}

TEST_F(runtime_retained, truncates_a_fault_that_is_too_long)
{
    std::string expected;
    for (char digit = '0'; digit <= '9'; ++digit)
    {
        const std::string part(50, digit);
        retain_fault(part.c_str());
        expected += part;
    }
    expected.resize(159);
    EXPECT_EQ(retained_last_fault(), expected);
    restart();
    EXPECT_EQ(retained_last_fault(), expected);
    EXPECT_STREQ(retained_reset_cause(), "fault");
}

TEST_F(runtime_retained, terminates_texts_whose_terminators_are_damaged)
{
    std::fill(retained_memory().begin() + 8, retained_memory().end(), 'x');
    restart();
    EXPECT_EQ(retained_reset_cause(), std::string(23, 'x'));
    EXPECT_EQ(retained_last_fault(), std::string(159, 'x'));
    restart();
    EXPECT_STREQ(retained_reset_cause(), "reset");
}

} // namespace
