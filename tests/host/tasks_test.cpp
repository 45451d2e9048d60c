/** @file
 * Tests of the tasks of an event loop.
 */
#include <array>
#include <chrono>
#include <cstddef>
#include <exception>
#include <future>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "manual_clock.h"
#include "thread_calls.h"
#include "vantor/blocking_work.h"
#include "vantor/errors.h"
#include "vantor/event_loop.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto never = event_loop::time_point::max();

/** Tasks on a clock that only advances while all of them wait. */
class tasks : public testing::Test
{
protected:
    /** Waits in a task for a span, and notes that it is over. */
    void pause(std::chrono::seconds span, const std::string &note)
    {
        EXPECT_FALSE(loop_.run_until([] { return false; }, loop_.now() + span));
        notes_.push_back(
            note + " at " +
            std::to_string(std::chrono::duration_cast<std::chrono::seconds>(clock_.now()).count()));
    }

    /** Runs the tasks; none of them may fail. */
    void run()
    {
        for (const auto &failure : loop_.run_tasks())
        {
            EXPECT_EQ(failure, nullptr);
        }
    }

    test::manual_clock clock_;
    test::manual_loop loop_{clock_};
    std::vector<std::string> notes_;
};

/** The message of an exception; empty if there is none. */
std::string message_of(const std::exception_ptr &failure)
{
    try
    {
        if (failure)
        {
            std::rethrow_exception(failure);
        }
        return "";
    }
    catch (const std::exception &caught)
    {
        return caught.what();
    }
}

TEST_F(tasks, start_in_the_order_in_which_they_were_added)
{
    loop_.spawn([&] { notes_.emplace_back("first"); });
    loop_.spawn([&] { notes_.emplace_back("second"); });
    EXPECT_THAT(notes_, IsEmpty());
    run();
    EXPECT_THAT(notes_, ElementsAre("first", "second"));
}

TEST_F(tasks, can_be_none)
{
    EXPECT_THAT(loop_.run_tasks(), IsEmpty());
}

TEST_F(tasks, run_again_when_the_first_ones_have_ended)
{
    loop_.spawn([&] { pause(1s, "first"); });
    run();
    loop_.spawn([&] { pause(1s, "second"); });
    run();
    EXPECT_THAT(notes_, ElementsAre("first at 1", "second at 2"));
}

TEST_F(tasks, take_turns_while_they_wait)
{
    loop_.spawn([&] {
        pause(3s, "a");
        pause(3s, "a");
    });
    loop_.spawn([&] {
        pause(2s, "b");
        pause(2s, "b");
        pause(3s, "b");
    });
    loop_.spawn([&] { pause(1s, "c"); });
    run();
    EXPECT_THAT(notes_, ElementsAre("c at 1", "b at 2", "a at 3", "b at 4", "a at 6", "b at 7"));
}

TEST_F(tasks, with_the_same_deadline_go_on_one_after_the_other)
{
    for (const char *name : {"a", "b", "c"})
    {
        loop_.spawn([&, name] { pause(1s, name); });
    }
    run();
    EXPECT_THAT(notes_, testing::UnorderedElementsAre("a at 1", "b at 1", "c at 1"));
}

TEST_F(tasks, wait_for_what_another_task_does)
{
    bool ready = false;
    loop_.spawn([&] {
        EXPECT_TRUE(loop_.run_until([&] { return ready; }, never));
        notes_.emplace_back("ready");
    });
    loop_.spawn([&] {
        pause(5s, "set");
        ready = true;
    });
    run();
    EXPECT_THAT(notes_, ElementsAre("set at 5", "ready"));
}

TEST_F(tasks, wait_for_each_other_without_any_work)
{
    int turn = 0;
    for (const int mine : {0, 1})
    {
        loop_.spawn([&, mine] {
            for (int i = 0; i < 3; ++i)
            {
                EXPECT_TRUE(loop_.run_until([&] { return turn % 2 == mine; }, never));
                notes_.push_back(std::to_string(mine));
                ++turn;
            }
        });
    }
    run();
    EXPECT_THAT(notes_, ElementsAre("0", "1", "0", "1", "0", "1"));
}

TEST_F(tasks, that_only_wait_for_each_other_do_not_stop_the_work)
{
    int turn = 0;
    bool worked = false;
    loop_.post([&] { worked = true; });
    for (const int mine : {0, 1})
    {
        loop_.spawn([&, mine] {
            while (!worked)
            {
                loop_.run_until([&] { return worked || turn % 2 == mine; }, never);
                ++turn;
            }
        });
    }
    run();
    EXPECT_TRUE(worked);
}

TEST_F(tasks, check_a_condition_again_that_another_task_has_undone)
{
    bool free = true;
    unsigned holders = 0;
    for (int i = 0; i < 3; ++i)
    {
        loop_.spawn([&] {
            pause(1s, "asks");
            EXPECT_TRUE(loop_.run_until([&] { return free; }, never));
            free = false;
            EXPECT_EQ(++holders, 1U);
            pause(1s, "held");
            --holders;
            free = true;
        });
    }
    run();
    EXPECT_EQ(clock_.now(), 4s);
}

TEST_F(tasks, wait_for_what_work_completes)
{
    event_loop::completion done;
    EXPECT_FALSE(done.is_set());
    loop_.spawn([&] {
        EXPECT_TRUE(loop_.run_until(done, loop_.now() + 10s));
        pause(1s, "done");
    });
    loop_.spawn([&] {
        pause(4s, "posts");
        loop_.post([&] { done.set(); });
    });
    run();
    EXPECT_TRUE(done.is_set());
    EXPECT_THAT(notes_, ElementsAre("posts at 4", "done at 5"));
}

TEST_F(tasks, do_not_wait_for_what_is_complete)
{
    event_loop::completion done;
    done.set();
    loop_.spawn([&] { EXPECT_TRUE(loop_.run_until(done, never)); });
    run();
    EXPECT_EQ(clock_.now(), 0s);
    EXPECT_TRUE(loop_.run_until(done, never));
}

TEST_F(tasks, stop_waiting_for_what_is_not_completed_in_time)
{
    event_loop::completion done;
    loop_.spawn([&] { EXPECT_FALSE(loop_.run_until(done, loop_.now() + 2s)); });
    run();
    EXPECT_EQ(clock_.now(), 2s);
    // Nobody waits any more.
    done.set();
    EXPECT_FALSE(loop_.run_until([] { return false; }, loop_.now()));
}

TEST_F(tasks, find_what_was_due_although_their_deadline_has_passed)
{
    event_loop::completion done;
    bool held = false;
    loop_.spawn([&] { EXPECT_TRUE(loop_.run_until(done, loop_.now() + 1s)); });
    loop_.spawn([&] { EXPECT_TRUE(loop_.run_until([&] { return held; }, loop_.now() + 1s)); });
    loop_.spawn([&] {
        // As if the program had been suspended: meanwhile, the data have arrived.
        clock_.advance(1h);
        loop_.post([&] { done.set(); });
        loop_.post([&] { held = true; });
    });
    run();
}

TEST_F(tasks, are_late_even_if_another_one_never_waits_for_long)
{
    bool late = false;
    loop_.spawn([&] {
        pause(1s, "late");
        late = true;
    });
    loop_.spawn([&] {
        while (!late)
        {
            clock_.advance(100ms);
            bool ran = false;
            loop_.post([&] { ran = true; });
            EXPECT_TRUE(loop_.run_until([&] { return ran; }, never));
        }
    });
    run();
    EXPECT_THAT(notes_, ElementsAre("late at 1"));
}

TEST_F(tasks, keep_their_failures_to_themselves)
{
    loop_.spawn([&] {
        pause(1s, "a");
        throw std::runtime_error("one");
    });
    loop_.spawn([&] { pause(2s, "b"); });
    loop_.spawn([] { throw timeout_error("three"); });
    const auto failures = loop_.run_tasks();
    ASSERT_EQ(failures.size(), 3U);
    EXPECT_EQ(message_of(failures[0]), "one");
    EXPECT_EQ(message_of(failures[1]), "");
    EXPECT_EQ(message_of(failures[2]), "three");
    EXPECT_THAT(notes_, ElementsAre("a at 1", "b at 2"));
}

TEST_F(tasks, handle_their_own_exceptions_while_others_handle_theirs)
{
    // The last one to begin is not the first one to end.
    for (const auto &[begin, end] : {std::pair{1s, 3s}, std::pair{2s, 2s}, std::pair{1s, 5s}})
    {
        loop_.spawn([&, begin = begin, end = end] {
            const auto name = std::to_string(begin.count()) + std::to_string(end.count());
            try
            {
                pause(begin, name);
                throw std::runtime_error(name);
            }
            catch (const std::exception &)
            {
                pause(end, name);
                throw;
            }
        });
    }
    const auto failures = loop_.run_tasks();
    ASSERT_EQ(failures.size(), 3U);
    EXPECT_EQ(message_of(failures[0]), "13");
    EXPECT_EQ(message_of(failures[1]), "22");
    EXPECT_EQ(message_of(failures[2]), "15");
    EXPECT_EQ(std::current_exception(), nullptr);
}

TEST_F(tasks, do_not_see_that_another_one_is_being_left_by_an_exception)
{
    struct waiting_guard
    {
        std::function<void()> leave;
        ~waiting_guard()
        {
            leave();
        }
    };
    loop_.spawn([&] {
        const waiting_guard guard{[&] {
            EXPECT_EQ(std::uncaught_exceptions(), 1);
            pause(2s, "left");
            EXPECT_EQ(std::uncaught_exceptions(), 1);
        }};
        throw std::runtime_error("thrown");
    });
    loop_.spawn([&] {
        pause(1s, "other");
        EXPECT_EQ(std::uncaught_exceptions(), 0);
    });
    EXPECT_EQ(message_of(loop_.run_tasks().at(0)), "thrown");
    EXPECT_EQ(std::uncaught_exceptions(), 0);
}

TEST_F(tasks, add_other_tasks)
{
    loop_.spawn([&] {
        loop_.spawn([&] { pause(1s, "inner"); });
        pause(2s, "outer");
    });
    loop_.post([&] { loop_.spawn([&] { pause(4s, "of work"); }); });
    EXPECT_EQ(loop_.run_tasks().size(), 3U);
    EXPECT_THAT(notes_, ElementsAre("inner at 1", "outer at 2", "of work at 4"));
}

TEST_F(tasks, do_not_run_tasks_themselves)
{
    loop_.spawn([&] { EXPECT_THROW(loop_.run_tasks(), std::logic_error); });
    run();
}

TEST_F(tasks, stand_still_while_work_waits)
{
    bool posted = false;
    bool held = false;
    loop_.spawn([&] {
        loop_.post([&] {
            notes_.emplace_back("waits");
            loop_.post([&] { posted = true; });
            EXPECT_TRUE(loop_.run_until([&] { return posted; }, never));
            held = true;
            notes_.emplace_back("work");
        });
        pause(1s, "task");
    });
    loop_.spawn([&] {
        EXPECT_TRUE(loop_.run_until([&] { return posted; }, never));
        EXPECT_TRUE(held);
    });
    run();
    EXPECT_THAT(notes_, ElementsAre("waits", "work", "task at 1"));
}

TEST_F(tasks, are_each_cancelled_once)
{
    std::array<int, 3> cancellations{};
    for (size_t i = 0; i < cancellations.size(); ++i)
    {
        loop_.spawn([&, i] {
            for (int k = 0; k < 3; ++k)
            {
                try
                {
                    loop_.run_until([] { return false; }, loop_.now() + std::chrono::seconds(10 + i));
                    loop_.check_cancelled();
                }
                catch (const cancelled &)
                {
                    ++cancellations.at(i);
                    EXPECT_EQ(clock_.now(), 5s);
                }
            }
        });
    }
    loop_.spawn([&] {
        pause(5s, "cancels");
        loop_.cancel();
    });
    run();
    EXPECT_THAT(cancellations, ElementsAre(1, 1, 1));
    EXPECT_EQ(clock_.now(), 29s);
    // Nor is the caller.
    EXPECT_NO_THROW(loop_.check_cancelled());
}

TEST_F(tasks, are_cancelled_where_they_wait_next)
{
    bool posted = false;
    event_loop::completion done;
    loop_.spawn([&] {
        loop_.cancel();
        EXPECT_TRUE(loop_.run_until([&] { return posted; }, never));
        // The second time, it has not waited when it was cancelled.
        EXPECT_FALSE(loop_.run_until(done, never));
        EXPECT_THROW(loop_.check_cancelled(), cancelled);
        loop_.check_cancelled();
    });
    loop_.post([&] { posted = true; });
    run();
}

TEST_F(tasks, are_cancelled_if_nothing_was_waiting_before)
{
    loop_.cancel();
    EXPECT_FALSE(loop_.run_until([] { return false; }, never));
    for (int i = 0; i < 2; ++i)
    {
        loop_.spawn([&] {
            EXPECT_FALSE(loop_.run_until([] { return false; }, never));
            loop_.check_cancelled();
        });
    }
    for (const auto &failure : loop_.run_tasks())
    {
        EXPECT_THROW(std::rethrow_exception(failure), cancelled);
    }
    EXPECT_NO_THROW(loop_.check_cancelled());
}

TEST_F(tasks, leave_a_cancellation_that_none_of_them_has_noticed)
{
    loop_.spawn([&] {
        pause(5s, "ends");
        loop_.cancel();
    });
    loop_.spawn([&] {
        event_loop::completion nothing;
        // Cancelled, but without a question why.
        EXPECT_FALSE(loop_.run_until(nothing, never));
    });
    run();
    EXPECT_FALSE(loop_.run_until([] { return false; }, never));
    EXPECT_THROW(loop_.check_cancelled(), cancelled);
    EXPECT_NO_THROW(loop_.check_cancelled());
}

TEST_F(tasks, leave_no_cancellation_that_one_of_them_has_noticed)
{
    loop_.spawn([&] {
        loop_.cancel();
        EXPECT_FALSE(loop_.run_until([] { return false; }, never));
        EXPECT_THROW(loop_.check_cancelled(), cancelled);
    });
    loop_.spawn([] {});
    run();
    EXPECT_NO_THROW(loop_.check_cancelled());
}

TEST_F(tasks, finish_what_must_not_be_cancelled)
{
    bool done = false;
    loop_.spawn([&] {
        loop_.run_to_end([&] { return done; });
        EXPECT_TRUE(done);
        EXPECT_FALSE(loop_.run_until([] { return false; }, never));
        EXPECT_THROW(loop_.check_cancelled(), cancelled);
    });
    loop_.spawn([&] {
        loop_.cancel();
        EXPECT_FALSE(loop_.run_until([] { return false; }, never));
        EXPECT_THROW(loop_.check_cancelled(), cancelled);
        pause(1s, "late");
        done = true;
    });
    run();
    EXPECT_THAT(notes_, ElementsAre("late at 1"));
}

TEST_F(tasks, are_cancelled_by_flags_of_their_own)
{
    std::array<bool, 2> flags{};
    for (size_t i = 0; i < flags.size(); ++i)
    {
        loop_.spawn([&, i] {
            const event_loop::cancel_scope scope(loop_, flags.at(i));
            EXPECT_FALSE(loop_.run_until([] { return false; }, loop_.now() + 10s));
            notes_.push_back(std::to_string(i) + (flags.at(i) ? " cancelled" : " late"));
        });
    }
    loop_.spawn([&] {
        pause(1s, "sets");
        loop_.post([&] { flags[1] = true; });
    });
    run();
    EXPECT_THAT(notes_, ElementsAre("sets at 1", "1 cancelled", "0 late"));
    EXPECT_TRUE(flags[1]);
}

TEST_F(tasks, have_room_for_what_programs_do)
{
    loop_.spawn([&] {
        std::array<volatile char, size_t{192} << 10U> large;
        for (size_t i = 0; i < large.size(); i += 1024)
        {
            large.at(i) = 1;
        }
        pause(1s, "used");
    });
    run();
}

TEST_F(tasks, can_be_many)
{
    constexpr int count = 1000;
    int ended = 0;
    for (int i = 0; i < count; ++i)
    {
        loop_.spawn([&, i] {
            EXPECT_FALSE(loop_.run_until([] { return false; }, loop_.now() + std::chrono::milliseconds(i)));
            ++ended;
        });
    }
    run();
    EXPECT_EQ(ended, count);
}

TEST_F(tasks, need_not_be_run)
{
    loop_.spawn([&] { notes_.emplace_back("ran"); });
    EXPECT_THAT(notes_, IsEmpty());
}

/** Uses more and more of the stack. */
int recurse(int depth) // NOLINT(misc-no-recursion): that is what it is for
{
    std::array<volatile char, 256> room{};
    room[0] = static_cast<char>(depth);
    return depth < 0 ? 0 : recurse(depth + 1) + room[0];
}

TEST_F(tasks, end_the_program_when_their_stack_is_full)
{
    EXPECT_DEATH(
        {
            loop_.spawn([] { static_cast<void>(recurse(1)); });
            loop_.run_tasks();
        },
        "");
}

TEST(tasks_of_a_real_loop, are_woken_by_other_threads)
{
    event_loop loop;
    std::array<bool, 2> woken{};
    std::vector<std::thread> others;
    for (size_t i = 0; i < woken.size(); ++i)
    {
        loop.spawn([&, i] {
            others.emplace_back([&, i] { loop.post([&, i] { woken.at(i) = true; }); });
            EXPECT_TRUE(loop.run_until([&, i] { return woken.at(i); }, never));
        });
    }
    loop.run_tasks();
    EXPECT_THAT(woken, ElementsAre(true, true));
    for (auto &other : others)
    {
        other.join();
    }
}

TEST(tasks_of_a_real_loop, wait_until_their_deadlines)
{
    event_loop loop;
    std::vector<int> order;
    for (const int span : {20, 1, 10})
    {
        loop.spawn([&, span] {
            const auto deadline = loop.now() + std::chrono::milliseconds(span);
            EXPECT_FALSE(loop.run_until([] { return false; }, deadline));
            EXPECT_GE(loop.now(), deadline);
            order.push_back(span);
        });
    }
    loop.run_tasks();
    EXPECT_THAT(order, testing::SizeIs(3));
}

TEST(tasks_of_a_real_loop, go_on_while_another_one_blocks_beside_the_loop)
{
    event_loop loop;
    std::promise<void> released;
    loop.spawn([&] {
        run_beside(loop, [&] { released.get_future().wait(); });
        EXPECT_THROW(run_beside(loop, [] { throw std::runtime_error("failed"); }), std::runtime_error);
    });
    loop.spawn([&] {
        loop.run_until([] { return false; }, loop.now() + 1ms);
        released.set_value();
    });
    EXPECT_THAT(loop.run_tasks(), ElementsAre(nullptr, nullptr));
}

TEST(tasks_of_a_real_loop, block_the_loop_if_there_can_be_no_further_thread)
{
    const test::refused_threads refused([] { return true; });
    event_loop loop;
    bool done = false;
    run_beside(loop, [&] { done = true; });
    EXPECT_TRUE(done);
    EXPECT_THROW(run_beside(loop, [] { throw std::runtime_error("failed"); }), std::runtime_error);
}

TEST(tasks_of_a_real_loop, end_what_blocks_when_they_are_cancelled)
{
    event_loop loop;
    std::promise<void> released;
    loop.spawn([&] {
        const auto block = [&] {
            released.get_future().wait();
            throw std::runtime_error("ended");
        };
        EXPECT_THROW(run_beside(loop, block, [&] { released.set_value(); }), std::runtime_error);
        EXPECT_THROW(loop.check_cancelled(), cancelled);
    });
    loop.spawn([&] { loop.cancel(); });
    loop.run_tasks();
}

TEST(tasks_of_a_real_loop, do_not_leave_what_blocks_when_they_are_cancelled)
{
    event_loop loop;
    std::promise<void> released;
    bool done = false;
    loop.spawn([&] {
        run_beside(loop, [&] {
            released.get_future().wait();
            done = true;
        });
        EXPECT_TRUE(done);
        EXPECT_THROW(loop.check_cancelled(), cancelled);
    });
    loop.spawn([&] {
        loop.cancel();
        EXPECT_FALSE(loop.run_until([] { return false; }, never));
        released.set_value();
    });
    loop.run_tasks();
}

} // namespace
} // namespace vantor
