/** @file
 * Work that waits for the disk, on separate threads.
 */
#include "view/background_tasks.h"

#include <string>
#include <system_error>
#include <utility>

#include "vantor/errors.h"

namespace vantor
{

background_tasks::~background_tasks()
{
    finish();
}

void background_tasks::start(std::function<completion()> task)
{
    const auto self = threads_.emplace(threads_.end());
    try
    {
        *self = std::thread([this, self, task = std::move(task)] {
            auto done = task();
            loop_.post([this, self, done = std::move(done)] {
                self->join();
                threads_.erase(self);
                done();
            });
        });
    }
    catch (const std::system_error &failure)
    {
        threads_.erase(self);
        throw error(std::string("Cannot start a thread: ") + failure.what() + ".");
    }
}

void background_tasks::finish()
{
    loop_.run_to_end([this] { return threads_.empty(); });
}

} // namespace vantor
