/** @file
 * Listens for hosts on a TCP port of this machine.
 */
#include "client/tcp_listener.h"

#include <deque>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <poll.h>

#include "client/stream_link.h"

namespace vantor
{
namespace
{

using boost::asio::ip::tcp;

/** Number of connections that stay open for reading after they were turned away. */
constexpr size_t most_turned_away = 16;

/** Whether one of some events happens to a socket within a time. */
bool wait_for(int socket, short events, std::chrono::milliseconds timeout)
{
    pollfd waiting{.fd = socket, .events = events, .revents = 0};
    return poll(&waiting, 1, static_cast<int>(timeout.count())) > 0;
}

} // namespace

/** The port and its event loop. */
struct tcp_listener::implementation
{
    std::shared_ptr<event_loop> loop = std::make_shared<event_loop>();
    tcp::acceptor acceptor{loop->context()};
    tcp::socket *served = nullptr; /**< the connection of the accepted host, if there is one */
    /** A connection that is closed with unread bytes would be reset, and the message could be lost. */
    std::deque<tcp::socket> turned_away;

    /** Whether a host waits while the accepted one is still connected. */
    [[nodiscard]] bool other_waits()
    {
        using std::chrono::milliseconds;
        return served != nullptr && wait_for(acceptor.native_handle(), POLLIN, milliseconds(0)) &&
               !wait_for(served->native_handle(), POLLRDHUP, milliseconds(0));
    }
};

/** A link to a connected host. */
class tcp_listener::accepted_link : public stream_link<tcp::socket>
{
public:
    /** Accepts the host that has connected. */
    explicit accepted_link(implementation &listener) : stream_link(listener.loop), listener_(listener)
    {
        listener.acceptor.accept(stream());
        stream().set_option(tcp::no_delay(true));
        listener.served = &stream();
    }
    accepted_link(const accepted_link &) = delete;
    accepted_link &operator=(const accepted_link &) = delete;
    accepted_link(accepted_link &&) = delete;
    accepted_link &operator=(accepted_link &&) = delete;

    ~accepted_link() override
    {
        listener_.served = nullptr;
    }

    uint32_t set_baudrate(uint32_t /*baudrate*/) override
    {
        throw error("A TCP connection has no baud rate.");
    }

private:
    implementation &listener_;
};

tcp_listener::tcp_listener(uint16_t port) : implementation_(std::make_unique<implementation>())
{
    auto &acceptor = implementation_->acceptor;
    try
    {
        acceptor.open(tcp::v4());
        acceptor.set_option(tcp::acceptor::reuse_address(true));
        acceptor.bind(tcp::endpoint(boost::asio::ip::address_v4::loopback(), port));
        acceptor.listen();
    }
    catch (const boost::system::system_error &failure)
    {
        throw error("Cannot listen on TCP port " + std::to_string(port) + ": " + failure.code().message() +
                    ". Choose another port.");
    }
}

tcp_listener::~tcp_listener() = default;

uint16_t tcp_listener::port() const
{
    return implementation_->acceptor.local_endpoint().port();
}

std::unique_ptr<link> tcp_listener::accept(std::chrono::milliseconds timeout)
{
    if (!wait_for(implementation_->acceptor.native_handle(), POLLIN, timeout))
    {
        return nullptr;
    }
    return std::make_unique<accepted_link>(*implementation_);
}

void tcp_listener::turn_away_others(std::string_view message)
{
    auto &turned_away = implementation_->turned_away;
    while (implementation_->other_waits())
    {
        // A host that has already gone does not need the message.
        boost::system::error_code gone;
        tcp::socket other(implementation_->loop->context());
        implementation_->acceptor.accept(other, gone);
        if (gone)
        {
            return;
        }
        other.send(boost::asio::buffer(message.data(), message.size()), 0, gone);
        other.shutdown(tcp::socket::shutdown_send, gone);
        turned_away.push_back(std::move(other));
        if (turned_away.size() > most_turned_away)
        {
            turned_away.pop_front();
        }
    }
}

} // namespace vantor
