/** @file
 * Links over a listening socket.
 */
#include "link_socket.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

#include "zet_integration_log.h"

namespace
{

/** The answer to a host that connects while another one is connected. */
constexpr char busy_message[] = "{\"status\":\"error\",\"code\":\"busy\",\"message\":\"Another host is using "
                                "the server: connect again when it has disconnected.\",\"payload_size\":0}\n";

/** Time between two tries to accept a host, if the system lacks descriptors or memory for it. */
constexpr std::chrono::seconds accept_interval{1};

} // namespace

void send_refusal(int client, const std::string &message)
{
    // A client that is already gone does not need it.
    [[maybe_unused]] const ssize_t sent = ::send(client, message.data(), message.size(), MSG_NOSIGNAL);
}

socket_link_t::socket_link_t(int family)
    : listener_(socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    if (listener_ < 0)
    {
        throw std::system_error(errno, std::generic_category(), "cannot create a socket");
    }
}

socket_link_t::~socket_link_t()
{
    socket_link_t::close_host();
    close(listener_);
}

int socket_link_t::other_hosts() const
{
    return std::chrono::steady_clock::now() < next_try_ ? -1 : listener_;
}

int64_t socket_link_t::other_hosts_return_us() const
{
    using std::chrono::ceil, std::chrono::microseconds;
    const auto left = next_try_ - std::chrono::steady_clock::now();
    return left.count() > 0 ? ceil<microseconds>(left).count() : -1;
}

int socket_link_t::accept_connection()
{
    if (other_hosts() < 0)
    {
        return -1;
    }
    const int host = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    const int error = host < 0 ? errno : 0;
    if (error == EAGAIN || error == EINTR || error == ECONNABORTED)
    {
        return -1;
    }
    if (error != 0)
    {
        next_try_ = std::chrono::steady_clock::now() + accept_interval;
        if (error != accept_error_)
        {
            zet_integration_log(ZET_LOG_LEVEL_WARNING, "link", "Cannot accept a host: %s; trying again",
                                std::strerror(error));
        }
    }
    accept_error_ = error;
    return host;
}

bool socket_link_t::accept_host()
{
    while (wait_with_others({}, -1) != wait_result_t::stopped)
    {
        const int host = accept_connection();
        if (host >= 0)
        {
            prepare(host);
            open(host, host);
            return true;
        }
    }
    return false;
}

void socket_link_t::close_host()
{
    if (connected())
    {
        close(input());
        forget();
    }
}

void socket_link_t::reject_other_host()
{
    const int other = accept_connection();
    if (other >= 0)
    {
        send_refusal(other, busy_message);
        close(other);
    }
}
