/** @file
 * Waiting, and the buffered stream common to all links.
 */
#include "link.h"

#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace
{

/** Size of the buffer for written data; larger pieces are sent directly. */
constexpr size_t pending_capacity = 65536;

int stop_signal_fd = -1;

} // namespace

void catch_stop_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    // A blocked signal is delivered to the descriptor, so that every wait can watch for it.
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    stop_signal_fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (stop_signal_fd < 0)
    {
        throw std::system_error(errno, std::generic_category(), "cannot watch for signals");
    }
    // A write to a host that is gone must fail, not end the program.
    std::signal(SIGPIPE, SIG_IGN); // NOLINT(cert-err33-c): cannot fail for a valid signal
}

wait_result_t wait_for(int fd, short events, int64_t timeout_us, int other_fd)
{
    std::array<pollfd, 3> fds = {pollfd{stop_signal_fd, POLLIN, 0}, pollfd{fd, events, 0},
                                 pollfd{other_fd, POLLIN, 0}};
    const timespec timeout = {timeout_us / 1000000, (timeout_us % 1000000) * 1000};
    const int ready = ppoll(fds.data(), fds.size(), timeout_us < 0 ? nullptr : &timeout, nullptr);
    if (fds[0].revents != 0)
    {
        return wait_result_t::stopped;
    }
    return ready > 0 ? wait_result_t::ready : wait_result_t::timeout;
}

bool hung_up(int fd)
{
    pollfd other_end = {fd, 0, 0};
    poll(&other_end, 1, 0);
    return (other_end.revents & (POLLHUP | POLLERR)) != 0;
}

bool has_finished(int fd)
{
    pollfd other_end = {fd, POLLRDHUP, 0};
    return poll(&other_end, 1, 0) != 0;
}

void link_t::open(int in, int out)
{
    in_ = in;
    out_ = out;
    pending_.clear();
    pending_.reserve(pending_capacity);
}

void link_t::forget()
{
    in_ = -1;
    out_ = -1;
    pending_.clear();
}

size_t link_t::read(char *data, size_t size)
{
    if (!connected() || wait_for(in_, POLLIN, 0) != wait_result_t::ready)
    {
        return 0;
    }
    const ssize_t count = ::read(in_, data, size);
    if (count > 0 && admits(data, static_cast<size_t>(count)))
    {
        return static_cast<size_t>(count);
    }
    if (count >= 0 || (errno != EINTR && errno != EAGAIN))
    {
        close_host();
    }
    return 0;
}

void link_t::discard_input()
{
    std::array<char, 4096> discarded;
    while (read(discarded.data(), discarded.size()) > 0)
    {
    }
}

void link_t::write(const void *data, size_t size)
{
    const auto *bytes = static_cast<const char *>(data);
    if (pending_.size() + size > pending_capacity)
    {
        flush();
    }
    if (size > pending_capacity)
    {
        send(bytes, size);
    }
    else if (connected())
    {
        pending_.insert(pending_.end(), bytes, bytes + size);
    }
}

void link_t::flush()
{
    send(pending_.data(), pending_.size());
    pending_.clear();
}

void link_t::send(const char *data, size_t size)
{
    while (size > 0 && connected())
    {
        const ssize_t count = ::write(out_, data, size);
        if (count > 0)
        {
            data += count;
            size -= static_cast<size_t>(count);
        }
        else if (errno == EAGAIN)
        {
            if (wait_for(out_, POLLOUT, -1, other_hosts()) == wait_result_t::stopped || hung_up(out_))
            {
                close_host();
            }
            else
            {
                reject_other_host();
            }
        }
        else if (errno != EINTR)
        {
            close_host();
        }
    }
}

std::unique_ptr<link_t> make_link(const options_t &options)
{
    switch (options.link)
    {
    case link_kind_t::local:
        return make_unix_link(options.socket_path);
    case link_kind_t::pty:
        return make_pty_link();
    case link_kind_t::stdio:
        return make_stdio_link();
    case link_kind_t::tcp:
        break;
    }
    return make_tcp_link(options.tcp_host, options.tcp_port);
}
