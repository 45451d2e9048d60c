/** @file
 * Links to the host: where hosts come from, and a buffered stream to and from the one that is there.
 */
#ifndef VANTOR_LINUX_LINK_H
#define VANTOR_LINUX_LINK_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "options.h"

/** How a wait ended. */
enum class wait_result_t
{
    ready,   /**< what was waited for is there */
    timeout, /**< the time has passed */
    stopped, /**< the program is to end */
};

/** Makes SIGINT and SIGTERM end every wait instead of the program. To be called once, at start. */
void catch_stop_signals();

/**
 * Waits until a file descriptor is ready or the program is to end.
 *
 * @param events      POLLIN or POLLOUT
 * @param timeout_us  longest wait in microseconds; negative for no limit
 * @param other_fd    another one, to read from; negative for none
 */
wait_result_t wait_for(int fd, short events, int64_t timeout_us, int other_fd = -1);

/** Tells whether nobody is at the other end of a file descriptor any more. */
bool hung_up(int fd);

/** Tells whether nothing will come from the other end of a connection any more, beside what has come. */
bool has_finished(int fd);

/** The stream to one host at a time. What is written goes to a buffer and leaves when that is full or
 * flushed. */
class link_t
{
public:
    link_t() = default;
    link_t(const link_t &) = delete;
    link_t &operator=(const link_t &) = delete;
    virtual ~link_t() = default;

    /** Where the host finds the server, such as "tcp:127.0.0.1:6110". */
    virtual std::string address() const = 0;

    /**
     * Waits for the next host.
     *
     * @return false when none can come any more or the program is to end
     */
    virtual bool accept_host() = 0;

    /** Lets the host go. */
    virtual void close_host() = 0;

    /** Highest baud rate; 0 when the link has none. */
    virtual uint32_t max_baudrate() const
    {
        return 0;
    }

    /** Baud rate that a host finds; 0 when the link has none. */
    virtual uint32_t baudrate() const
    {
        return 0;
    }

    /** Changes the baud rate; only called on a link that has one. */
    virtual void set_baudrate(uint32_t /*baudrate*/)
    {
    }

    /** File descriptor that gets ready to read when another host knocks; negative when none can. */
    virtual int other_hosts() const
    {
        return -1;
    }

    /** Tells another host that has knocked, if there is one, that the server is busy. */
    virtual void turn_other_host_away()
    {
    }

    /** Whether there is a host, as far as the last read or write could tell. */
    bool connected() const
    {
        return in_ >= 0;
    }

    /** File descriptor to wait on for input. */
    int input() const
    {
        return in_;
    }

    /**
     * Reads what has come, without waiting.
     *
     * @return number of bytes; 0 when nothing has come or the host is gone, which connected() then tells
     */
    size_t read(char *data, size_t size);

    /** Writes. Blocks while the host takes nothing; does nothing when it is gone. */
    void write(const void *data, size_t size);

    /** Sends what is in the buffer. */
    void flush();

    /** Discards what has come and was not read. */
    void discard_input();

protected:
    /** Sets the descriptors of a new host. */
    void open(int in, int out);

    /** Forgets the host, with what was meant for it. */
    void forget();

private:
    void send(const char *data, size_t size);

    int in_ = -1;
    int out_ = -1;
    std::vector<char> pending_;
};

/** Makes the link that the options ask for; throws std::system_error when the system refuses. */
std::unique_ptr<link_t> make_link(const options_t &options);

/** Makes a link that listens on a TCP port. */
std::unique_ptr<link_t> make_tcp_link(const std::string &host, uint16_t port);

/** Makes a link over a pseudo-terminal. */
std::unique_ptr<link_t> make_pty_link();

/** Makes a link over standard input and output, which serves one host. */
std::unique_ptr<link_t> make_stdio_link();

#endif
