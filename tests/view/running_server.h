/** @file
 * A web server whose loop runs on a thread of its own.
 */
#ifndef VANTOR_VIEW_RUNNING_SERVER_H
#define VANTOR_VIEW_RUNNING_SERVER_H

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "vantor/event_loop.h"
#include "view/view_server.h"

namespace vantor
{

/** Notes what the server calls: "opened 1", "received 1: TEXT", "sent 1", "closed 1". Counts ticks. */
class noting_handler : public view_handler
{
public:
    void opened(uint64_t viewer) override;
    void received(uint64_t viewer, std::string &&text) override;
    void sent(uint64_t viewer) override;
    void closed(uint64_t viewer) override;
    void tick() override;

    /** Waits until the server has called this so often. Throws after a minute. */
    void wait_for(const std::string &call, ptrdiff_t count = 1);

    /** Waits for a number of further ticks. */
    void wait_for_ticks(unsigned count);

    /** All calls up to now, except ticks. */
    std::vector<std::string> calls();

    /** Is called on the loop after a message was sent. Set it before the server can call it. */
    std::function<void(uint64_t viewer)> when_sent = [](uint64_t) {};

private:
    void note(const std::string &call);
    void wait_until(const std::function<bool()> &condition);

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> calls_;
    unsigned ticks_ = 0;
};

/** The server. */
class running_server
{
public:
    explicit running_server(view_limits limits = {});
    running_server(const running_server &) = delete;
    running_server &operator=(const running_server &) = delete;
    running_server(running_server &&) = delete;
    running_server &operator=(running_server &&) = delete;
    ~running_server();

    /** Calls a function on the loop, and waits until it has returned. */
    void on_loop(const std::function<void(view_server &)> &work);

    /** Sends a message, and waits until it is written. Use only this function for a viewer. */
    void send(uint64_t viewer, view_message kind, const std::string &message);

    /** Sends a message from a function that the loop calls. */
    void send_on_loop(uint64_t viewer, const std::shared_ptr<const std::string> &message)
    {
        server_->send(viewer, view_message::binary, message);
    }

    [[nodiscard]] uint16_t port() const;

    static constexpr const char *token = "0123456789abcdef0123456789abcdef";

    noting_handler handler;

private:
    std::map<uint64_t, ptrdiff_t> sent_;
    event_loop loop_;
    std::unique_ptr<view_server> server_;
    uint16_t port_;
    bool stopped_ = false; /**< used on the loop */
    std::thread thread_;
};

} // namespace vantor

#endif
