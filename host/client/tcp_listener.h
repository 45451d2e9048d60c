/** @file
 * Listens for hosts on a TCP port of this machine.
 */
#ifndef VANTOR_TCP_LISTENER_H
#define VANTOR_TCP_LISTENER_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "vantor/event_loop.h"
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
     * @param port          0 for any free port
     * @param busy_message  what hosts receive that connect while an accepted one is connected, before their
     *                      connection is closed
     * @param loop          runs the links, and answers these hosts
     * @throws error if the port is in use or not allowed
     */
    explicit tcp_listener(uint16_t port, std::string busy_message = {},
                          std::shared_ptr<event_loop> loop = std::make_shared<event_loop>());
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
     * @return a link to it, which must end before the next one is accepted; null if none connects in time
     * @throws cancelled if waiting was cancelled
     */
    std::unique_ptr<link> accept(std::chrono::milliseconds timeout);

private:
    class accepted_link;
    struct implementation;
    std::shared_ptr<implementation> implementation_;
};

} // namespace vantor

#endif
