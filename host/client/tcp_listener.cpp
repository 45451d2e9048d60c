/** @file
 * Listens for hosts on a TCP port of this machine.
 */
#include "client/tcp_listener.h"

#include <boost/asio/ip/tcp.hpp>
#include <poll.h>

#include "client/stream_link.h"

namespace vantor
{
namespace
{

using boost::asio::ip::tcp;

/** A link to a connected host. */
class accepted_link : public stream_link<tcp::socket>
{
public:
    /** Accepts the host that has connected. */
    accepted_link(tcp::acceptor &acceptor, std::shared_ptr<event_loop> events)
        : stream_link(std::move(events))
    {
        acceptor.accept(stream());
        stream().set_option(tcp::no_delay(true));
    }

    uint32_t set_baudrate(uint32_t /*baudrate*/) override
    {
        throw error("A TCP connection has no baud rate.");
    }
};

} // namespace

/** The port and its event loop. */
struct tcp_listener::implementation
{
    std::shared_ptr<event_loop> loop = std::make_shared<event_loop>();
    tcp::acceptor acceptor{loop->context()};
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
        throw connect_error("Cannot listen on TCP port " + std::to_string(port) + ": " +
                            failure.code().message() + ". Choose another port.");
    }
}

tcp_listener::~tcp_listener() = default;

uint16_t tcp_listener::port() const
{
    return implementation_->acceptor.local_endpoint().port();
}

std::unique_ptr<link> tcp_listener::accept(std::chrono::milliseconds timeout)
{
    pollfd waiting{.fd = implementation_->acceptor.native_handle(), .events = POLLIN, .revents = 0};
    if (poll(&waiting, 1, static_cast<int>(timeout.count())) <= 0)
    {
        return nullptr;
    }
    return std::make_unique<accepted_link>(implementation_->acceptor, implementation_->loop);
}

} // namespace vantor
