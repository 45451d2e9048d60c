/** @file
 * Work that waits for the disk, on separate threads.
 */
#include "view/background_tasks.h"

#include <iterator>
#include <utility>

namespace vantor
{

background_tasks::~background_tasks()
{
    finish();
}

void background_tasks::start(std::function<completion()> task)
{
    auto &place = threads_.emplace_back();
    const auto self = std::prev(threads_.end());
    place = std::thread([this, self, task = std::move(task)] {
        auto done = task();
        loop_.post([this, self, done = std::move(done)] {
            self->join();
            threads_.erase(self);
            done();
        });
    });
}

void background_tasks::finish()
{
    loop_.run_to_end([this] { return threads_.empty(); });
}

} // namespace vantor
