/** @file
 * Work that waits for the disk, on separate threads.
 */
#ifndef VANTOR_BACKGROUND_TASKS_H
#define VANTOR_BACKGROUND_TASKS_H

#include <functional>
#include <list>
#include <thread>

#include "vantor/event_loop.h"

namespace vantor
{

/** Runs work that waits for the disk, so that the thread of the loop does not have to. */
class background_tasks
{
public:
    /** What a task leaves for the thread of the loop, such as reporting its result; must not throw. */
    using completion = std::function<void()>;

    /** @param loop  must outlive this object */
    explicit background_tasks(event_loop &loop) noexcept : loop_(loop)
    {
    }
    background_tasks(const background_tasks &) = delete;
    background_tasks &operator=(const background_tasks &) = delete;
    background_tasks(background_tasks &&) = delete;
    background_tasks &operator=(background_tasks &&) = delete;

    /** Like finish(). */
    ~background_tasks();

    /**
     * Starts a task.
     *
     * @param task  runs on a new thread, and must not throw; the loop calls what it returns
     * @throws error if there can be no further thread
     */
    void start(std::function<completion()> task);

    /** Waits for all tasks, and runs their completions. */
    void finish();

private:
    event_loop &loop_;
    std::list<std::thread> threads_;
};

} // namespace vantor

#endif
