/** @file
 * Links to the host: accept hosts, and provide a buffered stream to and from the connected one.
 */
#ifndef VANTOR_LINUX_LINK_H
#define VANTOR_LINUX_LINK_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <poll.h>
#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <sys/uio.h>
#include <vector>

#include "options.h"
#include "stall.h"
#include "zet_vantor_server.h"

/** How a wait ended. */
enum class wait_result_t
{
    ready,   /**< the event has occurred */
    timeout, /**< the time has passed */
    stopped, /**< the program must end */
};

/**
 * Makes SIGINT, SIGTERM and, if it is not ignored, SIGHUP end every wait instead of the program. To be called
 * once, at the start.
 */
void catch_stop_signals();

/**
 * Waits until one of at most three file descriptors is ready or the program must end.
 *
 * @param timeout_us  longest wait in microseconds; negative for no limit
 */
wait_result_t wait_for(std::span<const pollfd> fds, int64_t timeout_us);

/**
 * Waits until a file descriptor is ready or the program must end.
 *
 * @param events      POLLIN or POLLOUT
 * @param timeout_us  longest wait in microseconds; negative for no limit
 */
wait_result_t wait_for(int fd, short events, int64_t timeout_us);

/** Returns whether the other end of a file descriptor has been closed. */
bool hung_up(int fd);

/** Returns whether the other end of a connection will send nothing more; unread input may be left. */
bool has_finished(int fd);

/**
 * The stream to one host at a time. Written data is buffered until the buffer is full or flushed. A piece
 * that does not fit is sent together with what is buffered, so that a message needs one call of the system.
 */
class link_t
{
public:
    link_t() = default;
    link_t(const link_t &) = delete;
    link_t &operator=(const link_t &) = delete;
    virtual ~link_t() = default;

    /** Returns the address at which a host can connect, such as "tcp:127.0.0.1:6110". */
    virtual std::string address() const = 0;

    /**
     * Waits for the next host.
     *
     * @return false when no more hosts can connect or the program must end
     */
    virtual bool accept_host() = 0;

    /** Closes the connection to the host. */
    virtual void close_host() = 0;

    /** Disconnects a host that is still there. */
    virtual void drop_host()
    {
        close_host();
    }

    /** Sets how long a host may accept no data, in microseconds; 0 for any time. */
    void set_stall_limit(int64_t limit_us)
    {
        stall_limit_us_ = limit_us;
    }

    int64_t stall_limit_us() const
    {
        return stall_limit_us_;
    }

    /** Returns whether the last host was disconnected because it accepted no data. */
    bool has_stalled() const
    {
        return stalled_;
    }

    /** Returns the highest baud rate; 0 when the link has none. */
    virtual uint32_t max_baudrate() const
    {
        return 0;
    }

    /** Returns the baud rate for a new host; 0 when the link has none. */
    virtual uint32_t baudrate() const
    {
        return 0;
    }

    /** Changes the baud rate; called only for a link that has one. */
    virtual void set_baudrate(uint32_t /*baudrate*/)
    {
    }

    /** Returns whether programs on other machines can connect. */
    virtual bool is_open_to_network() const
    {
        return false;
    }

    /** Returns a file descriptor that is ready to read when another host connects; negative when none can. */
    virtual int other_hosts() const
    {
        return -1;
    }

    /** Returns the microseconds until other_hosts returns a descriptor again; negative when it does not. */
    virtual int64_t other_hosts_return_us() const
    {
        return -1;
    }

    /**
     * Waits like wait_for, but also until another host connects. If none can for some time, the wait ends
     * after that time.
     *
     * @param fds  at most two
     */
    wait_result_t wait_with_others(std::span<const pollfd> fds, int64_t timeout_us) const;

    /**
     * Returns whether another host waits to be accepted. Ask this before whether the connected host is gone,
     * and reject the other one only if it is not: a host that connects after the other has left is the next
     * one.
     */
    bool has_other_host() const;

    /** Accepts another host that wants to connect, if there is one, and sends it a "busy" error. */
    virtual void reject_other_host()
    {
    }

    /** Returns whether a host was connected at the last read or write. */
    bool connected() const
    {
        return in_ >= 0;
    }

    /** Returns the file descriptor for waiting for input. */
    int input() const
    {
        return in_;
    }

    /** Returns whether there is input that look_ahead has received. */
    bool has_input_ahead() const
    {
        return !ahead_.empty();
    }

    /**
     * Receives input without waiting, and keeps it for read.
     *
     * @return what look_ahead had not received before; empty also when there is no room for more
     */
    std::string_view look_ahead();

    /**
     * Waits until look_ahead can receive input, the host has disconnected, another host connects or the
     * program must end.
     *
     * @param timeout_us  longest wait in microseconds
     */
    wait_result_t wait_ahead(int64_t timeout_us);

    /** Returns what is known of the host after look_ahead. */
    zet_vantor_server_host_t host_state() const;

    /**
     * Reads input without waiting.
     *
     * @return number of bytes; 0 when there is no input or the host is gone: then connected() is false
     */
    size_t read(char *data, size_t size);

    /** Writes data. Blocks while the host does not read; does nothing when the host is gone or has stalled.
     */
    void write(const void *data, size_t size);

    /** Sends the contents of the buffer. */
    void flush();

    /** Discards unread input. */
    void discard_input();

protected:
    /** Checks received bytes, each once and in order; false when the client must be disconnected. */
    virtual bool admits(const char * /*data*/, size_t /*size*/)
    {
        return true;
    }

    /** Sets the descriptors of a new host. */
    void open(int in, int out);

    /** Drops the host and all data buffered for it. */
    void forget();

    /**
     * Passes data to the system, as much as it accepts without waiting, in one call.
     *
     * @param out    descriptor of the host
     * @param first  some bytes, which may be none
     * @param then   the bytes after them, which may be none; one of both is not empty
     * @return number of bytes that the system has accepted; negative on failure, with errno
     */
    virtual ssize_t transmit(int out, std::string_view first, std::string_view then);

private:
    size_t receive(char *data, size_t size);
    void send(std::string_view first, std::string_view then);
    bool drop_stalled_host();
    void wait_until_writable();

    int in_ = -1;
    int out_ = -1;
    std::vector<char> pending_;
    std::string ahead_;     /**< input that look_ahead has received and read has not returned */
    bool finished_ = false; /**< the host will send nothing after that */
    int64_t stall_limit_us_ = 0;
    stall_t stall_;
    bool stalled_ = false;
};

/** Creates the link that the options select; throws std::system_error or std::runtime_error on failure. */
std::unique_ptr<link_t> make_link(const options_t &options);

/** Creates a link that listens on a TCP port. */
std::unique_ptr<link_t> make_tcp_link(const std::string &host, uint16_t port);

/**
 * Creates a link that listens on a socket in the file system, which only the user of the server can open. A
 * socket that another server has left behind is replaced, any other file is not.
 */
std::unique_ptr<link_t> make_unix_link(const std::string &path);

/** Creates a link over a pseudo-terminal. */
std::unique_ptr<link_t> make_pty_link();

/** Creates a link over standard input and output, which serves one host. */
std::unique_ptr<link_t> make_stdio_link();

#endif
