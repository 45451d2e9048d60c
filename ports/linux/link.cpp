/** @file
 * Waiting, and the buffered stream common to all links.
 */
#include "link.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace
{

/** Size of the buffer for written data; what does not fit is sent directly. */
constexpr size_t pending_capacity = 262144;

/** Most input that is kept while the server does not read it. */
constexpr size_t ahead_capacity = 65536;

/** Most descriptors that a wait can watch. */
constexpr size_t most_descriptors = 3;

int stop_signal_fd = -1;

/** Returns the time for limits that concern hosts: hosts live in real time, also with a virtual clock. */
int64_t now_us()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

/**
 * Returns a measure of the written data that the other end has not taken; 0 when the system does not know.
 * Over TCP these are the bytes that its system has not acknowledged; over a local socket the memory of the
 * writes that the host has not read completely.
 */
int unsent_bytes(int fd)
{
    int count = 0;
    return ioctl(fd, TIOCOUTQ, &count) == 0 ? count : 0;
}

} // namespace

void catch_stop_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    struct sigaction hang_up = {};
    // nohup ignores the signal, but a blocked signal would arrive also then.
    if (sigaction(SIGHUP, nullptr, &hang_up) != 0 || hang_up.sa_handler != SIG_IGN)
    {
        sigaddset(&signals, SIGHUP);
    }
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

wait_result_t wait_for(std::span<const pollfd> fds, int64_t timeout_us)
{
    std::array<pollfd, most_descriptors + 1> all;
    all.fill({-1, 0, 0});
    std::ranges::copy(fds, all.begin());
    all.back() = {stop_signal_fd, POLLIN, 0};
    const timespec timeout = {timeout_us / 1000000, (timeout_us % 1000000) * 1000};
    const int ready = ppoll(all.data(), all.size(), timeout_us < 0 ? nullptr : &timeout, nullptr);
    if (all.back().revents != 0)
    {
        return wait_result_t::stopped;
    }
    return ready > 0 ? wait_result_t::ready : wait_result_t::timeout;
}

wait_result_t wait_for(int fd, short events, int64_t timeout_us)
{
    return wait_for(std::array{pollfd{fd, events, 0}}, timeout_us);
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

wait_result_t link_t::wait_with_others(std::span<const pollfd> fds, int64_t timeout_us) const
{
    // First: when it reports that there is a descriptor, there is still one afterwards.
    const int64_t return_us = other_hosts_return_us();
    std::array<pollfd, most_descriptors> all;
    all.fill({-1, 0, 0});
    std::ranges::copy(fds, all.begin());
    all.back() = {other_hosts(), POLLIN, 0};
    const bool ends_earlier = return_us >= 0 && (timeout_us < 0 || return_us < timeout_us);
    return wait_for(all, ends_earlier ? return_us : timeout_us);
}

bool link_t::has_other_host() const
{
    pollfd listener = {other_hosts(), POLLIN, 0};
    return poll(&listener, 1, 0) > 0;
}

void link_t::open(int in, int out)
{
    in_ = in;
    out_ = out;
    stall_ = stall_t(stall_limit_us_);
    stalled_ = false;
    pending_.reserve(pending_capacity);
}

void link_t::forget()
{
    in_ = -1;
    out_ = -1;
    finished_ = false;
    pending_.clear();
    ahead_.clear();
}

size_t link_t::receive(char *data, size_t size)
{
    if (!connected() || finished_ || wait_for(in_, POLLIN, 0) != wait_result_t::ready)
    {
        return 0;
    }
    const ssize_t count = ::read(in_, data, size);
    if (count > 0 && admits(data, static_cast<size_t>(count)))
    {
        return static_cast<size_t>(count);
    }
    finished_ = count == 0;
    if (count > 0 || (count < 0 && errno != EINTR && errno != EAGAIN))
    {
        close_host();
    }
    return 0;
}

size_t link_t::read(char *data, size_t size)
{
    if (!ahead_.empty())
    {
        const size_t count = ahead_.copy(data, size);
        ahead_.erase(0, count);
        return count;
    }
    const size_t count = receive(data, size);
    if (finished_)
    {
        close_host();
    }
    return count;
}

std::string_view link_t::look_ahead()
{
    const size_t known = ahead_.size();
    std::array<char, 4096> piece;
    for (size_t count = 1; count > 0 && ahead_.size() < ahead_capacity;)
    {
        count = receive(piece.data(), std::min(piece.size(), ahead_capacity - ahead_.size()));
        ahead_.append(piece.data(), count);
    }
    return std::string_view(ahead_).substr(std::min(known, ahead_.size()));
}

wait_result_t link_t::wait_ahead(int64_t timeout_us)
{
    const bool receives = !finished_ && ahead_.size() < ahead_capacity;
    // That the other end was closed is reported for any descriptor, whatever events are requested.
    return wait_with_others(std::array{pollfd{receives ? in_ : -1, POLLIN, 0}, pollfd{out_, 0, 0}},
                            timeout_us);
}

zet_vantor_server_host_t link_t::host_state() const
{
    if (!connected() || hung_up(out_))
    {
        return ZET_VANTOR_SERVER_HOST_GONE;
    }
    return finished_ ? ZET_VANTOR_SERVER_HOST_FINISHED : ZET_VANTOR_SERVER_HOST_CONNECTED;
}

void link_t::discard_input()
{
    ahead_.clear();
    std::array<char, 4096> discarded;
    while (read(discarded.data(), discarded.size()) > 0)
    {
    }
}

void link_t::write(const void *data, size_t size)
{
    const std::string_view bytes(static_cast<const char *>(data), size);
    if (pending_.size() + size > pending_capacity)
    {
        send({pending_.data(), pending_.size()}, bytes);
        pending_.clear();
    }
    else if (connected())
    {
        pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    }
}

void link_t::flush()
{
    send({pending_.data(), pending_.size()}, {});
    pending_.clear();
}

ssize_t link_t::transmit(int out, std::string_view first, std::string_view then)
{
    // The system only reads the bytes, but the type is that of readv, too.
    const std::array pieces{iovec{const_cast<char *>(first.data()), first.size()},
                            iovec{const_cast<char *>(then.data()), then.size()}};
    return ::writev(out, pieces.data(), pieces.size());
}

/** Sends two pieces, one after the other; returns early when the host is gone or has stalled. */
void link_t::send(std::string_view first, std::string_view then)
{
    while (first.size() + then.size() > 0 && connected() && !drop_stalled_host())
    {
        const ssize_t count = transmit(out_, first, then);
        if (count > 0)
        {
            const size_t of_first = std::min(static_cast<size_t>(count), first.size());
            first.remove_prefix(of_first);
            then.remove_prefix(static_cast<size_t>(count) - of_first);
            stall_.note_written(unsent_bytes(out_));
        }
        else if (errno == EAGAIN)
        {
            stall_.note_refused();
            wait_until_writable();
        }
        else if (errno != EINTR)
        {
            close_host();
        }
    }
}

/** Disconnects the host if it has stalled; returns whether it has. */
bool link_t::drop_stalled_host()
{
    if (stall_.is_too_long(now_us(), unsent_bytes(out_)))
    {
        drop_host();
        stalled_ = true;
    }
    return stalled_;
}

/** Waits until the host may accept data or another one connects; disconnects the host if it must not wait. */
void link_t::wait_until_writable()
{
    const bool must_end = wait_with_others(std::array{pollfd{out_, POLLOUT, 0}}, stall_.next_check_us()) ==
                          wait_result_t::stopped;
    const bool other_waits = has_other_host();
    if (must_end || hung_up(out_))
    {
        close_host();
    }
    else if (other_waits)
    {
        reject_other_host();
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
