/** @file
 * A link over a socket that is connected already.
 */
#ifndef VANTOR_LOCAL_LINK_H
#define VANTOR_LOCAL_LINK_H

#include <memory>
#include <utility>

#include <boost/asio/local/stream_protocol.hpp>

#include "client/stream_link.h"

namespace vantor
{

/** A link over a local socket that is connected already. */
class local_link : public stream_link<boost::asio::local::stream_protocol::socket>
{
public:
    /**
     * @param socket  its descriptor, which this object closes
     * @param events  runs the link
     */
    local_link(int socket, std::shared_ptr<event_loop> events) : stream_link(std::move(events))
    {
        stream().assign(boost::asio::local::stream_protocol(), socket);
    }

    uint32_t set_baudrate(uint32_t /*baudrate*/) override
    {
        throw error("A local socket has no baud rate.");
    }
};

} // namespace vantor

#endif
