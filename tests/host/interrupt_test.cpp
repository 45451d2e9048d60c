/** @file
 * Tests of the reaction to signals; those with real servers are in tests/end_to_end.
 */
#include "commands/interrupt.h"

#include <csignal>

#include <gtest/gtest.h>
#include <unistd.h>

#include "vantor/errors.h"

namespace vantor
{
namespace
{

TEST(interrupt_watch, cancels_a_wait_at_each_signal)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
    {
        event_loop loop;
        const interrupt_watch watch(loop);
        EXPECT_FALSE(interrupt_watch::interrupted());
        EXPECT_EQ(std::raise(number), 0);
        EXPECT_TRUE(interrupt_watch::interrupted());
        EXPECT_FALSE(loop.run_until([] { return false; }, event_loop::time_point::max()));
        EXPECT_THROW(loop.check_cancelled(), cancelled);
        EXPECT_NO_THROW(loop.check_cancelled());
    }
}

/** Receives two signals, then exits normally. */
void receive(int first, int second)
{
    event_loop loop;
    const interrupt_watch watch(loop);
    static_cast<void>(std::raise(first));
    static_cast<void>(std::raise(second));
    _exit(0);
}

TEST(interrupt_watch, ends_the_program_at_the_second_signal)
{
    EXPECT_EXIT(receive(SIGINT, SIGINT), testing::KilledBySignal(SIGINT), "");
    EXPECT_EXIT(receive(SIGHUP, SIGTERM), testing::KilledBySignal(SIGTERM), "");
}

// A terminal that is closed sends SIGHUP twice: the shell does, and the system.
TEST(interrupt_watch, lets_the_program_finish_at_a_second_hangup)
{
    for (const int first : {SIGHUP, SIGTERM, SIGINT})
    {
        EXPECT_EXIT(receive(first, SIGHUP), testing::ExitedWithCode(0), "");
    }
}

TEST(interrupt_watch, leaves_an_ignored_hangup_ignored)
{
    const auto before = std::signal(SIGHUP, SIG_IGN);
    {
        event_loop loop;
        const interrupt_watch watch(loop);
        EXPECT_EQ(std::raise(SIGHUP), 0);
        EXPECT_FALSE(interrupt_watch::interrupted());
        EXPECT_EQ(std::raise(SIGINT), 0);
        EXPECT_EQ(std::raise(SIGHUP), 0);
    }
    EXPECT_EQ(std::raise(SIGHUP), 0);
    std::signal(SIGHUP, before);
}

} // namespace
} // namespace vantor
