/** @file
 * Links over TCP.
 */
#include <arpa/inet.h>
#include <cerrno>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>

#include "first_line.h"
#include "link_socket.h"
#include "zet_integration_log.h"

namespace
{

/** The answer to a client that sends HTTP or TLS. */
constexpr char wrong_protocol_message[] =
    "{\"status\":\"error\",\"code\":\"wrong_protocol\",\"message\":\"This looks like HTTP or TLS, which the "
    "server does not use: connect with vantor, or send one JSON command per line.\",\"payload_size\":0}\n";

/**
 * Most bytes in a segment, also on loopback. A host with a full buffer reports that it has taken bytes only
 * when a segment fits again: with the 64 KiB of loopback, a slow one would seem to take none.
 */
constexpr int largest_segment = 1460;

/** A host whose machine has vanished is disconnected after this time, the last part of it with probes. */
constexpr int vanished_s = 60;
constexpr int probes = 3;
constexpr int probe_interval_s = 10;

using address_list_t = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

/** Throws errno as an exception. */
[[noreturn]] void fail(const std::string &what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/** Finds the address to listen on. */
address_list_t find_address(const std::string &host, uint16_t port)
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
    return {found, freeaddrinfo};
}

/** Returns whether only programs on this machine can reach an address. */
bool is_loopback(const sockaddr_storage &address)
{
    if (address.ss_family == AF_INET)
    {
        const auto &ip = reinterpret_cast<const sockaddr_in &>(address).sin_addr;
        return (ntohl(ip.s_addr) >> IN_CLASSA_NSHIFT) == IN_LOOPBACKNET;
    }
    const auto &ip = reinterpret_cast<const sockaddr_in6 &>(address).sin6_addr;
    return IN6_IS_ADDR_LOOPBACK(&ip);
}

/** Formats an address as "HOST:PORT". */
std::string text_of(const sockaddr_storage &address, socklen_t size)
{
    std::array<char, NI_MAXHOST> host = {};
    std::array<char, NI_MAXSERV> port = {};
    if (getnameinfo(reinterpret_cast<const sockaddr *>(&address), size, host.data(), host.size(), port.data(),
                    port.size(), NI_NUMERICHOST | NI_NUMERICSERV) != 0)
    {
        return "an unknown address";
    }
    const std::string name = host.data();
    const bool bracketed = name.find(':') != std::string::npos;
    return (bracketed ? "[" + name + "]:" : name + ":") + port.data();
}

/** Sets an option of a connection. One that does not support it works without. */
void set_option(int connection, int level, int option, int value)
{
    setsockopt(connection, level, option, &value, sizeof(value));
}

class tcp_link_t final : public socket_link_t
{
public:
    tcp_link_t(const std::string &host, const addrinfo &where) : socket_link_t(where.ai_family)
    {
        const int on = 1;
        if (setsockopt(listener(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
            setsockopt(listener(), IPPROTO_TCP, TCP_MAXSEG, &largest_segment, sizeof(largest_segment)) != 0 ||
            bind(listener(), where.ai_addr, where.ai_addrlen) != 0 || listen(listener(), SOMAXCONN) != 0)
        {
            fail("cannot listen on " + host);
        }
        if (getsockname(listener(), reinterpret_cast<sockaddr *>(&bound_), &bound_size_) != 0)
        {
            fail("cannot get the address of the socket");
        }
    }

    std::string address() const override
    {
        return "tcp:" + text_of(bound_, bound_size_);
    }

    bool is_open_to_network() const override
    {
        return !is_loopback(bound_);
    }

private:
    void prepare(int host) override
    {
        // A message is written in one piece, so it need not be delayed.
        set_option(host, IPPROTO_TCP, TCP_NODELAY, 1);
        set_option(host, SOL_SOCKET, SO_KEEPALIVE, 1);
        set_option(host, IPPROTO_TCP, TCP_KEEPIDLE, vanished_s - probes * probe_interval_s);
        set_option(host, IPPROTO_TCP, TCP_KEEPINTVL, probe_interval_s);
        set_option(host, IPPROTO_TCP, TCP_KEEPCNT, probes);
        // Probes stop while data are not acknowledged. This option also disconnects a host that accepts no
        // data, but later than the stall limit does.
        if (stall_limit_us() > 0 && stall_limit_us() <= vanished_s * int64_t{1000000} / 2)
        {
            set_option(host, IPPROTO_TCP, TCP_USER_TIMEOUT, vanished_s * 1000);
        }
        first_line_ = {};
    }

    bool admits(const char *data, size_t size) override
    {
        if (first_line_.accepts(data, size))
        {
            return true;
        }
        sockaddr_storage peer = {};
        socklen_t peer_size = sizeof(peer);
        const bool known = getpeername(input(), reinterpret_cast<sockaddr *>(&peer), &peer_size) == 0;
        zet_integration_log(ZET_LOG_LEVEL_WARNING, "link",
                            "Disconnected %s, which sends HTTP or TLS; nothing was executed",
                            known ? text_of(peer, peer_size).c_str() : "a client");
        send_refusal(input(), wrong_protocol_message);
        return false;
    }

    sockaddr_storage bound_ = {};
    socklen_t bound_size_ = sizeof(bound_);
    first_line_t first_line_;
};

} // namespace

std::unique_ptr<link_t> make_tcp_link(const std::string &host, uint16_t port)
{
    const address_list_t found = find_address(host, port);
    return std::make_unique<tcp_link_t>(host + ":" + std::to_string(port), *found);
}
