/** @file
 * Listens for hosts on a TCP port of this machine.
 */
#ifndef VANTOR_TCP_LISTENER_H
#define VANTOR_TCP_LISTENER_H

#include <chrono>
#include <cstdint>
#include <memory>

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
     * @throws connect_error if the port is in use or not allowed
     */
    explicit tcp_listener(uint16_t port);
    tcp_listener(const tcp_listener &) = delete;
    tcp_listener &operator=(const tcp_listener &) = delete;
    tcp_listener(tcp_listener &&) = delete;
    tcp_listener &operator=(tcp_listener &&) = delete;
    ~tcp_listener();

    /** The port number. */
    [[nodiscard]] uint16_t port() const;

    /** Waits for the next host; null if none connects in time or a signal arrives. */
    std::unique_ptr<link> accept(std::chrono::milliseconds timeout);

private:
    struct implementation;
    std::unique_ptr<implementation> implementation_;
};

} // namespace vantor

#endif
