/** @file
 * Links over a pseudo-terminal, and over standard input and output.
 */
#include "link.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

namespace
{

/** Makes reads and writes return immediately when there is nothing to read or no room to write. */
void set_nonblocking(int fd)
{
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

/** A pseudo-terminal: the host opens its other end like a serial device. */
class pty_link_t final : public link_t
{
public:
    pty_link_t() : terminal_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        if (terminal_ < 0 || grantpt(terminal_) != 0 || unlockpt(terminal_) != 0)
        {
            throw std::system_error(errno, std::generic_category(), "cannot create a pseudo-terminal");
        }
        termios settings = {};
        tcgetattr(terminal_, &settings);
        cfmakeraw(&settings);
        tcsetattr(terminal_, TCSANOW, &settings);
        set_nonblocking(terminal_);
        // The terminal reports whether its other end is open only after that was opened and closed once.
        if (!clear())
        {
            throw std::system_error(errno, std::generic_category(), "cannot open the pseudo-terminal");
        }
    }

    ~pty_link_t() override
    {
        close(terminal_);
    }

    std::string address() const override
    {
        return std::string("serial:") + ptsname(terminal_);
    }

    bool accept_host() override
    {
        constexpr int64_t poll_period_us = 10000;
        while (hung_up(terminal_))
        {
            // A terminal whose other end is closed is always ready, so opening can only be polled.
            if (wait_for(-1, 0, poll_period_us) == wait_result_t::stopped)
            {
                return false;
            }
            discard_late_input();
        }
        open(terminal_, terminal_);
        return true;
    }

    void close_host() override
    {
        forget();
        clear();
    }

    /** The host stays connected to the terminal, so it is also the next one; the link is as new then. */
    void drop_host() override
    {
        discard(unread());
        close_host();
    }

    uint32_t max_baudrate() const override
    {
        return 3000000;
    }

    uint32_t baudrate() const override
    {
        return 115200;
    }

    void set_baudrate(uint32_t /*baudrate*/) override
    {
        // A pseudo-terminal works at any baud rate, so there is nothing to switch.
    }

private:
    /** Discards what the host has not read: it is not for the next one. What a host writes is kept. */
    bool clear() const
    {
        const int other_end = ::open(ptsname(terminal_), O_RDWR | O_NOCTTY | O_CLOEXEC);
        return other_end >= 0 && tcflush(other_end, TCIFLUSH) == 0 && close(other_end) == 0;
    }

    /** Returns how many bytes can be read. */
    int unread() const
    {
        int count = 0;
        return ioctl(terminal_, FIONREAD, &count) == 0 ? count : 0;
    }

    /** Discards a number of bytes that can be read. */
    void discard(int count) const
    {
        std::array<char, 4096> discarded;
        while (count > 0)
        {
            const ssize_t size = ::read(terminal_, discarded.data(),
                                        std::min<size_t>(static_cast<size_t>(count), discarded.size()));
            if (size <= 0)
            {
                return;
            }
            count -= static_cast<int>(size);
        }
    }

    /** Discards what a host wrote that has closed the terminal since, but not what the next host writes. */
    void discard_late_input() const
    {
        const int count = unread();
        // If it is still closed, all these bytes are from before.
        if (hung_up(terminal_))
        {
            discard(count);
        }
    }

    int terminal_;
};

/** Standard input and output: the host is the program that started the server. */
class stdio_link_t final : public link_t
{
public:
    std::string address() const override
    {
        return "stdio";
    }

    bool accept_host() override
    {
        if (served_)
        {
            return false;
        }
        served_ = true;
        set_nonblocking(STDOUT_FILENO);
        open(STDIN_FILENO, STDOUT_FILENO);
        return true;
    }

    void close_host() override
    {
        forget();
    }

private:
    bool served_ = false;
};

} // namespace

std::unique_ptr<link_t> make_pty_link()
{
    return std::make_unique<pty_link_t>();
}

std::unique_ptr<link_t> make_stdio_link()
{
    return std::make_unique<stdio_link_t>();
}
