/** @file
 * A web server whose loop runs on a thread of its own.
 */
#include "running_server.h"

#include <algorithm>
#include <future>
#include <stdexcept>

namespace vantor
{

void noting_handler::note(const std::string &call)
{
    const std::lock_guard lock(mutex_);
    calls_.push_back(call);
    changed_.notify_all();
}

void noting_handler::wait_until(const std::function<bool()> &condition)
{
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, std::chrono::minutes(1), condition))
    {
        throw std::runtime_error("the server does not call what the test waits for");
    }
}

void noting_handler::opened(uint64_t viewer)
{
    note("opened " + std::to_string(viewer));
}

void noting_handler::received(uint64_t viewer, std::string &&text)
{
    note("received " + std::to_string(viewer) + ": " + text);
}

void noting_handler::sent(uint64_t viewer)
{
    note("sent " + std::to_string(viewer));
    when_sent(viewer);
}

void noting_handler::closed(uint64_t viewer)
{
    note("closed " + std::to_string(viewer));
}

void noting_handler::tick()
{
    const std::lock_guard lock(mutex_);
    ++ticks_;
    changed_.notify_all();
}

void noting_handler::wait_for(const std::string &call, ptrdiff_t count)
{
    wait_until([&] { return std::count(calls_.begin(), calls_.end(), call) >= count; });
}

void noting_handler::wait_for_ticks(unsigned count)
{
    unsigned before = 0;
    {
        const std::lock_guard lock(mutex_);
        before = ticks_;
    }
    wait_until([&] { return ticks_ >= before + count; });
}

std::vector<std::string> noting_handler::calls()
{
    const std::lock_guard lock(mutex_);
    return calls_;
}

running_server::running_server(view_limits limits)
    : server_(std::make_unique<view_server>(view_address(), token, loop_, limits)), port_(server_->port()),
      thread_([this] {
          loop_.run_until([this] { return stopped_; }, event_loop::time_point::max());
          server_.reset();
      })
{
    on_loop([this](view_server &served) { served.add_board(handler); });
}

running_server::~running_server()
{
    loop_.post([this] { stopped_ = true; });
    thread_.join();
}

void running_server::on_loop(const std::function<void(view_server &)> &work)
{
    std::promise<void> done;
    loop_.post([&] {
        work(*server_);
        done.set_value();
    });
    done.get_future().wait();
}

void running_server::send(uint64_t viewer, view_message kind, const std::string &message)
{
    on_loop([&](view_server &server) {
        server.send(viewer, kind, std::make_shared<const std::string>(message));
    });
    handler.wait_for("sent " + std::to_string(viewer), ++sent_[viewer]);
}

uint16_t running_server::port() const
{
    return port_;
}

} // namespace vantor
