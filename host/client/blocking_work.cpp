/** @file
 * Work that blocks, beside an event loop.
 */
#include "vantor/blocking_work.h"

#include <exception>
#include <system_error>
#include <thread>

namespace vantor
{

void run_beside(event_loop &loop, const std::function<void()> &work, const std::function<void()> &cancel)
{
    bool done = false;
    std::exception_ptr failure;
    std::thread other;
    try
    {
        other = std::thread([&] {
            try
            {
                work();
            }
            catch (...)
            {
                failure = std::current_exception();
            }
            loop.post([&done] { done = true; });
        });
    }
    catch (const std::system_error &)
    {
        work();
        return;
    }
    const auto is_done = [&done] { return done; };
    if (cancel && !loop.run_until(is_done, event_loop::time_point::max()))
    {
        cancel();
    }
    loop.run_to_end(is_done);
    other.join();
    if (failure)
    {
        std::rethrow_exception(failure);
    }
}

} // namespace vantor
