/** @file
 * A link over a socket in the file system.
 */
#ifndef VANTOR_LINK_UNIX_H
#define VANTOR_LINK_UNIX_H

#include <chrono>
#include <memory>

#include <boost/asio/local/stream_protocol.hpp>

#include "client/stream_link.h"

namespace vantor
{

/** A link over a socket in the file system. */
class unix_link : public stream_link<boost::asio::local::stream_protocol::socket>
{
public:
    /**
     * Connects; waits while too many other hosts wait for the server.
     *
     * @param where    the socket
     * @param timeout  how long connecting may take
     * @param events   runs the link
     * @throws connect_error if there is no such socket, you may not use it, nothing listens there, or the
     *         server does not accept the connection in time
     * @throws cancelled if waiting was cancelled
     */
    unix_link(const unix_address &where, std::chrono::milliseconds timeout,
              std::shared_ptr<event_loop> events);

    uint32_t set_baudrate(uint32_t baudrate) override;

private:
    using endpoint = boost::asio::local::stream_protocol::endpoint;

    boost::system::error_code connect(const endpoint &where, event_loop::time_point deadline);
};

} // namespace vantor

#endif
