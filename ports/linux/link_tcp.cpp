/** @file
 * Links over TCP.
 */
#include "link.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace
{

/** The answer to a host that connects while another one is connected. */
constexpr char busy_message[] = "{\"status\":\"error\",\"code\":\"busy\",\"message\":\"Another host is using "
                                "the server: connect again when it has disconnected.\",\"payload_size\":0}\n";

/** Throws errno as an exception. */
[[noreturn]] void fail(const std::string &what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/** Serves one connection at a time and rejects others. */
class tcp_link_t final : public link_t
{
public:
    tcp_link_t(const std::string &host, uint16_t port)
    {
        addrinfo hints = {};
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_flags = AI_PASSIVE;
        addrinfo *found = nullptr;
        const int error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
        if (error != 0)
        {
            throw std::runtime_error("cannot find the host \"" + host + "\": " + gai_strerror(error));
        }
        const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> address(found, freeaddrinfo);
        const std::string where = host + ":" + std::to_string(port);
        listener_ = socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        const int on = 1;
        if (listener_ < 0 || setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
            bind(listener_, address->ai_addr, address->ai_addrlen) != 0 || listen(listener_, SOMAXCONN) != 0)
        {
            fail("cannot listen on " + where);
        }
    }

    ~tcp_link_t() override
    {
        tcp_link_t::close_host();
        close(listener_);
    }

    std::string address() const override
    {
        sockaddr_storage bound = {};
        socklen_t size = sizeof(bound);
        std::array<char, NI_MAXHOST> host = {};
        std::array<char, NI_MAXSERV> port = {};
        if (getsockname(listener_, reinterpret_cast<sockaddr *>(&bound), &size) != 0 ||
            getnameinfo(reinterpret_cast<const sockaddr *>(&bound), size, host.data(), host.size(),
                        port.data(), port.size(), NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        {
            fail("cannot get the address of the socket");
        }
        return std::string("tcp:") + host.data() + ":" + port.data();
    }

    bool accept_host() override
    {
        while (wait_for(listener_, POLLIN, -1) != wait_result_t::stopped)
        {
            const int host = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (host < 0)
            {
                continue;
            }
            // A message is written in one piece, so it need not be delayed; keep-alive detects a host whose
            // machine has disappeared.
            const int on = 1;
            setsockopt(host, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
            setsockopt(host, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on));
            open(host, host);
            return true;
        }
        return false;
    }

    void close_host() override
    {
        if (connected())
        {
            close(input());
            forget();
        }
    }

    int other_hosts() const override
    {
        return listener_;
    }

    void reject_other_host() override
    {
        const int other = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (other >= 0)
        {
            // Fits the buffer of any new connection, and a host that is already gone does not need it.
            [[maybe_unused]] const ssize_t sent =
                ::send(other, busy_message, sizeof(busy_message) - 1, MSG_NOSIGNAL);
            close(other);
        }
    }

private:
    int listener_ = -1;
};

} // namespace

std::unique_ptr<link_t> make_tcp_link(const std::string &host, uint16_t port)
{
    return std::make_unique<tcp_link_t>(host, port);
}
