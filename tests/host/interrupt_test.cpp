/** @file
 * Tests of the reaction to signals; those with real servers are in tests/end_to_end.
 */
#include "commands/interrupt.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "disk_calls.h"
#include "recording/file_replacement.h"
#include "temporary_directory.h"
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

/** Receives the first signal, and the second one while another thread replaces files. */
void receive_while_replacing(const std::filesystem::path &directory)
{
    const interrupt_watch watch;
    static_cast<void>(std::raise(SIGINT));
    sigset_t interrupts;
    sigset_t before;
    sigemptyset(&interrupts);
    sigaddset(&interrupts, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupts, &before);
    std::atomic<bool> sent = false;
    std::atomic<bool> handled = false;
    std::thread recorder([&, user = pthread_self()] {
        const test::disk_calls calls([&] {
            if (!sent.exchange(true))
            {
                pthread_kill(user, SIGINT);
                handled.wait(false);
            }
        });
        replace_files({{directory / "first", "one"}, {directory / "second", "two"}});
    });
    sigsuspend(&before);
    handled = true;
    handled.notify_one();
    recorder.join();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    _exit(0);
}

TEST(interrupt_watch, lets_another_thread_replace_files_before_the_second_signal_ends_the_program)
{
    const test::temporary_directory directory;
    EXPECT_EXIT(receive_while_replacing(directory / ""), testing::KilledBySignal(SIGINT), "");
    const std::filesystem::directory_iterator files(directory / "");
    EXPECT_EQ(std::distance(begin(files), end(files)), 2);
    EXPECT_EQ(test::read_file(directory / "second"), "two");
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
