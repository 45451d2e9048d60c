/** @file
 * Cost of an event for which one of many tasks of an event loop waits, while all others wait for theirs.
 *
 * An event is a piece of work, like the handler of a link; the task that waits for it runs, and waits again.
 * "completion" is how links wait; with "condition" all tasks wait for conditions, which are checked after
 * each event.
 */
#include <functional>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include "vantor/event_loop.h"

namespace
{

using vantor::event_loop;

constexpr auto never = event_loop::time_point::max();

/** What a task waits for next. */
struct waiter
{
    std::unique_ptr<event_loop::completion> completed = std::make_unique<event_loop::completion>();
    bool held = false; /**< the condition */
};

/** Waits for an event. */
void wait_for_event(event_loop &loop, waiter &own, bool by_condition)
{
    const auto deadline = loop.now() + std::chrono::seconds(100);
    if (by_condition)
    {
        loop.run_until([&own] { return own.held; }, deadline);
        own.held = false;
        return;
    }
    loop.run_until(*own.completed, deadline);
    own.completed = std::make_unique<event_loop::completion>();
}

/** Runs events, each for the next task. */
void run_events(benchmark::State &state, bool by_condition)
{
    event_loop loop;
    std::vector<waiter> waiters(static_cast<size_t>(state.range(0)));
    bool ended = false;
    for (auto &own : waiters)
    {
        loop.spawn([&] {
            while (!ended)
            {
                wait_for_event(loop, own, by_condition);
            }
        });
    }
    const auto happen = [by_condition](waiter &one) {
        by_condition ? static_cast<void>(one.held = true) : one.completed->set();
    };
    loop.spawn([&] {
        waiter own;
        size_t next = 0;
        for (auto unused : state)
        {
            boost::asio::post(loop.context(), [&, next] {
                happen(waiters[next]);
                happen(own);
            });
            wait_for_event(loop, own, by_condition);
            next = (next + 1) % waiters.size();
        }
        ended = true;
        for (auto &one : waiters)
        {
            happen(one);
        }
    });
    loop.run_tasks();
    state.SetItemsProcessed(state.iterations());
}

void completion(benchmark::State &state)
{
    run_events(state, false);
}

void condition(benchmark::State &state)
{
    run_events(state, true);
}

BENCHMARK(completion)->Arg(1)->Arg(4)->Arg(50)->Arg(500);
BENCHMARK(condition)->Arg(1)->Arg(4)->Arg(50)->Arg(500);

} // namespace

BENCHMARK_MAIN();
