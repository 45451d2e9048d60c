/** @file
 * Listens for hosts on a TCP port of this machine.
 */
#ifndef VANTOR_TCP_LISTENER_H
#define VANTOR_TCP_LISTENER_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string_view>

#include "vantor/link.h"

namespace vantor
{

/** A TCP port of this machine, on the loopback interface. */
class tcp_listener
{
public:
    /**
     * Starts to listen.
     *
     * @param port  0 for any free port
     * @throws error if the port is in use or not allowed
     */
    explicit tcp_listener(uint16_t port);
    tcp_listener(const tcp_listener &) = delete;
    tcp_listener &operator=(const tcp_listener &) = delete;
    tcp_listener(tcp_listener &&) = delete;
    tcp_listener &operator=(tcp_listener &&) = delete;
    ~tcp_listener();

    /** The port number. */
    [[nodiscard]] uint16_t port() const;

    /**
     * Waits for the next host.
     *
     * @return a link to it, which must end before this object and before the next one is accepted; null if
     *         none connects in time or a signal arrives
     */
    std::unique_ptr<link> accept(std::chrono::milliseconds timeout);

    /** Sends a message to all hosts that have connected while the accepted one is connected, and closes
     * their connections. */
    void turn_away_others(std::string_view message);

private:
    class accepted_link;
    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

} // namespace vantor

#endif
