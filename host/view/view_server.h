/** @file
 * The web server of the live view: serves the page, and exchanges messages with the viewers that have it
 * open.
 */
#ifndef VANTOR_VIEW_SERVER_H
#define VANTOR_VIEW_SERVER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "vantor/event_loop.h"

namespace vantor
{

/** Where the server listens. */
struct view_address
{
    std::string host = "127.0.0.1"; /**< a numeric IPv4 or IPv6 address, or "localhost" */
    uint16_t port = 0;              /**< 0 for any free port */
};

/** What viewers can use. */
struct view_limits
{
    size_t viewers = 16;                       /**< of a board, at a time */
    size_t connections = 64;                   /**< of any kind, for each board, at a time */
    size_t request_bytes = 1U << 20U;          /**< of a message of a viewer */
    std::chrono::milliseconds request{10000};  /**< for a whole HTTP request or answer */
    std::chrono::milliseconds silence{300000}; /**< a viewer that answers no ping for so long is dropped */
    /** of the socket, so that the kernel does not queue seconds of frames */
    size_t send_buffer = 1U << 18U;
};

/** The kinds of a message. */
enum class view_message
{
    text,
    binary,
};

/** What a board does with its viewers. Is called by the loop, never from inside a call of the server. It must
 * not throw. */
class view_handler
{
public:
    view_handler() = default;
    view_handler(const view_handler &) = delete;
    view_handler &operator=(const view_handler &) = delete;
    view_handler(view_handler &&) = delete;
    view_handler &operator=(view_handler &&) = delete;
    virtual ~view_handler() = default;

    /** A viewer has connected. Its first message can be sent. */
    virtual void opened(uint64_t viewer) = 0;

    /** A viewer has sent a message. */
    virtual void received(uint64_t viewer, std::string &&text) = 0;

    /** A message is written: the next one can be sent. */
    virtual void sent(uint64_t viewer) = 0;

    /** A viewer has left or was closed. Its number is not used again. */
    virtual void closed(uint64_t viewer) = 0;

    /** Is called four times a second, as long as the loop runs. */
    virtual void tick() = 0;
};

/** Serves the live view of one or several boards to browsers. */
class view_server
{
public:
    /**
     * Starts to listen.
     *
     * @param token  what a viewer must know to connect
     * @param loop   runs the server; must exist as long as it
     * @throws error if the address is not valid, in use or not allowed
     */
    view_server(const view_address &where, std::string token, event_loop &loop, view_limits limits = {});
    view_server(const view_server &) = delete;
    view_server &operator=(const view_server &) = delete;
    view_server(view_server &&) = delete;
    view_server &operator=(view_server &&) = delete;

    /** Closes everything. The handlers are not called any more. */
    ~view_server();

    /**
     * Serves another board. Must be called before the loop runs, at least once.
     *
     * @param handler  of its viewers; must exist as long as the loop runs
     */
    void add_board(view_handler &handler);

    /** Number of boards. */
    [[nodiscard]] size_t boards() const noexcept;

    /** The port number. */
    [[nodiscard]] uint16_t port() const;

    /** The address for the browser, with the token. If the server listens everywhere, it names loopback. */
    [[nodiscard]] std::string url() const;

    /** Whether other machines can connect. */
    [[nodiscard]] bool reachable_from_outside() const;

    /**
     * Sends a message to a viewer, one at a time: after opened() or sent(). Does nothing if the viewer has
     * left.
     *
     * @param message  is not copied
     */
    void send(uint64_t viewer, view_message kind, std::shared_ptr<const std::string> message);

    /**
     * Closes the connection of a viewer.
     *
     * @param reason  what its page shows, at most 123 bytes
     */
    void close(uint64_t viewer, const std::string &reason);

    /**
     * Closes all connections, and waits at most half a second until the viewers have confirmed it. The
     * handlers are not called any more. Must not be called by the loop.
     */
    void end(const std::string &reason);

private:
    struct implementation;
    std::shared_ptr<implementation> implementation_;
};

/** Returns 128 random bits as 32 hexadecimal digits. */
std::string make_view_token();

} // namespace vantor

#endif
