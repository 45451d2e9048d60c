/** @file
 * A link over a socket in the file system.
 */
#ifndef VANTOR_LINK_UNIX_H
#define VANTOR_LINK_UNIX_H

#include <boost/asio/local/stream_protocol.hpp>

#include "client/stream_link.h"

namespace vantor
{

/** A link over a socket in the file system. */
class unix_link : public stream_link<boost::asio::local::stream_protocol::socket>
{
public:
    /**
     * Connects.
     *
     * @throws connect_error if there is no such socket, you may not use it, or nothing listens there
     */
    unix_link(const unix_address &where, std::shared_ptr<event_loop> events);

    uint32_t set_baudrate(uint32_t baudrate) override;
};

} // namespace vantor

#endif
