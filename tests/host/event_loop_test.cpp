/** @file
 * Tests of the event loop of host programs.
 */
#include "vantor/event_loop.h"

#include <array>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "manual_clock.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;

constexpr auto never = event_loop::time_point::max();

TEST(event_loop, runs_posted_work_in_order_and_only_while_it_runs)
{
    event_loop loop;
    std::vector<int> order;
    loop.post([&] { order.push_back(1); });
    loop.post([&] { order.push_back(2); });
    EXPECT_TRUE(order.empty());
    EXPECT_TRUE(loop.run_until([&] { return order.size() == 2; }, never));
    EXPECT_EQ(order, (std::vector{1, 2}));
}

TEST(event_loop, runs_nothing_if_the_condition_holds_already)
{
    event_loop loop;
    bool ran = false;
    loop.post([&] { ran = true; });
    EXPECT_TRUE(loop.run_until([] { return true; }, never));
    EXPECT_FALSE(ran);
}

TEST(event_loop, stops_at_the_deadline)
{
    event_loop loop;
    const auto deadline = loop.now() + 5ms;
    EXPECT_FALSE(loop.run_until([] { return false; }, deadline));
    EXPECT_GE(loop.now(), deadline);
}

TEST(event_loop, stops_at_a_deadline_that_has_passed)
{
    test::manual_clock clock;
    event_loop loop(clock.source());
    EXPECT_FALSE(loop.run_until([] { return false; }, loop.now() - 1h));
}

TEST(event_loop, runs_what_is_due_even_if_the_deadline_has_passed)
{
    event_loop loop;
    bool ran = false;
    loop.post([&] { ran = true; });
    EXPECT_TRUE(loop.run_until([&] { return ran; }, loop.now() - 1h));
}

TEST(event_loop, runs_again_after_it_has_stopped)
{
    event_loop loop;
    EXPECT_FALSE(loop.run_until([] { return false; }, loop.now()));
    bool ran = false;
    loop.post([&] { ran = true; });
    EXPECT_TRUE(loop.run_until([&] { return ran; }, never));
}

TEST(event_loop, is_woken_by_another_thread)
{
    event_loop loop;
    bool woken = false;
    std::thread other([&] { loop.post([&] { woken = true; }); });
    EXPECT_TRUE(loop.run_until([&] { return woken; }, never));
    other.join();
}

TEST(event_loop, runs_work_when_a_descriptor_becomes_readable)
{
    event_loop loop;
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    bool readable = false;
    loop.when_readable(ends[0], [&] { readable = true; });
    EXPECT_FALSE(loop.run_until([&] { return readable; }, loop.now()));
    EXPECT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_TRUE(loop.run_until([&] { return readable; }, never));
    EXPECT_EQ(close(ends[0]), 0);
    EXPECT_EQ(close(ends[1]), 0);
}

TEST(event_loop, can_run_inside_its_own_work)
{
    event_loop loop;
    bool inner = false;
    bool outer = false;
    loop.post([&] {
        loop.post([&] { inner = true; });
        outer = loop.run_until([&] { return inner; }, never);
    });
    EXPECT_TRUE(loop.run_until([&] { return outer; }, never));
}

TEST(event_loop_death, work_that_throws_ends_the_program)
{
    event_loop loop;
    loop.post([] { throw 7; });
    EXPECT_DEATH(loop.run_until([] { return false; }, loop.now()), "terminate");
    event_loop other;
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    other.when_readable(ends[0], [] { throw 7; });
    EXPECT_DEATH(other.run_until([] { return false; }, never), "terminate");
    EXPECT_EQ(close(ends[0]), 0);
    EXPECT_EQ(close(ends[1]), 0);
}

} // namespace
} // namespace vantor
