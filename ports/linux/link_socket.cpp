/** @file
 * Links over a listening socket.
 */
#include "link_socket.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace
{

/** The answer to a host that connects while another one is connected. */
constexpr char busy_message[] = "{\"status\":\"error\",\"code\":\"busy\",\"message\":\"Another host is using "
                                "the server: connect again when it has disconnected.\",\"payload_size\":0}\n";

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

bool socket_link_t::accept_host()
{
    while (wait_for(listener_, POLLIN, -1) != wait_result_t::stopped)
    {
        const int host = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
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
    const int other = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (other >= 0)
    {
        send_refusal(other, busy_message);
        close(other);
    }
}
