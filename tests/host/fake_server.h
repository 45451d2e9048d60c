/** @file
 * A scripted server on a real TCP connection.
 */
#ifndef VANTOR_FAKE_SERVER_H
#define VANTOR_FAKE_SERVER_H

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "server_script.h"
#include "vantor/client.h"

namespace vantor::test
{

/** Longer than any operation takes on a busy machine, for tests that wait in real time. */
inline constexpr client_timeouts patience{.connect = std::chrono::minutes(1),
                                          .answer = std::chrono::minutes(1),
                                          .configure = std::chrono::minutes(1),
                                          .frame = std::chrono::minutes(1)};

/** A server that serves one host after the other on a free TCP port of this machine. */
class fake_server
{
public:
    fake_server();
    fake_server(const fake_server &) = delete;
    fake_server &operator=(const fake_server &) = delete;
    fake_server(fake_server &&) = delete;
    fake_server &operator=(fake_server &&) = delete;
    ~fake_server();

    /** Sets the reaction to a command; must be called before the first host connects. */
    void on(const std::string &command, reaction what);

    /** Its address. */
    [[nodiscard]] std::string address() const;

    /** Whether the server had to wait because a host did not accept more bytes. */
    [[nodiscard]] bool full() const noexcept
    {
        return full_;
    }

    /** Waits until a host does not accept more bytes. */
    void wait_until_full() const
    {
        full_.wait(false);
    }

    /** The lines received so far from all hosts. */
    [[nodiscard]] std::vector<std::string> lines() const;

private:
    void run();

    boost::asio::io_context io_;
    boost::asio::ip::tcp::acceptor acceptor_;
    server_script script_;
    std::atomic<bool> ending_ = false;
    std::atomic<bool> full_ = false;
    std::thread thread_; /**< last, so that it starts when all else is there */
};

} // namespace vantor::test

#endif
