/** @file
 * A link over TCP.
 */
#ifndef VANTOR_LINK_TCP_H
#define VANTOR_LINK_TCP_H

#include <boost/asio/ip/tcp.hpp>

#include "client/stream_link.h"

namespace vantor
{

/** A link over TCP. */
class tcp_link : public stream_link<boost::asio::ip::tcp::socket>
{
public:
    /**
     * Connects.
     *
     * @throws connect_error if nothing listens there, the name is unknown or connecting takes too long
     * @throws cancelled if waiting was cancelled
     */
    tcp_link(const tcp_address &where, std::chrono::milliseconds timeout,
             const std::shared_ptr<event_loop> &events);

    uint32_t set_baudrate(uint32_t baudrate) override;

private:
    void connect(const boost::asio::ip::tcp::resolver::results_type &endpoints,
                 event_loop::time_point deadline, const std::string &name);
};

} // namespace vantor

#endif
