/** @file
 * A link over TCP.
 */
#include "client/link_tcp.h"

#include <boost/asio/connect.hpp>

namespace vantor
{

tcp_link::tcp_link(const tcp_address &where, std::chrono::milliseconds timeout,
                   std::shared_ptr<event_loop> events)
    : stream_link(std::move(events))
{
    const std::string name = to_string(address{where});
    boost::system::error_code failure;
    boost::asio::ip::tcp::resolver resolver(stream().get_executor());
    const auto endpoints = resolver.resolve(where.host, std::to_string(where.port), failure);
    if (failure)
    {
        throw connect_error("Cannot resolve the host name in " + name + ": " + failure.message() + ".");
    }
    bool complete = false;
    boost::asio::async_connect(stream(), endpoints,
                               [&](const boost::system::error_code &outcome, const auto &) {
                                   failure = outcome;
                                   complete = true;
                               });
    const auto is_complete = [&complete] { return complete; };
    if (!loop().run_until(is_complete, loop().now() + timeout))
    {
        stream().close();
        loop().run_until(is_complete, event_loop::time_point::max());
        failure = boost::asio::error::timed_out;
    }
    if (failure)
    {
        const std::string reason = failure.message();
        throw connect_error("Cannot connect to " + name + ": " + reason +
                            ". Is vantor_server running there, with --tcp and this port?");
    }
    stream().set_option(boost::asio::ip::tcp::no_delay(true));
}

uint32_t tcp_link::set_baudrate(uint32_t /*baudrate*/)
{
    throw error("A TCP connection has no baud rate.");
}

} // namespace vantor
