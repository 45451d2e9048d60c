/** @file
 * A link over TCP.
 */
#include "client/link_tcp.h"

#include <asio/connect.hpp>

namespace vantor
{

tcp_link::tcp_link(const tcp_address &where, std::chrono::milliseconds timeout)
{
    const std::string name = to_string(address{where});
    asio::error_code failure;
    asio::ip::tcp::resolver resolver(io());
    const auto endpoints = resolver.resolve(where.host, std::to_string(where.port), failure);
    if (failure)
    {
        throw connect_error("Cannot resolve the host name in " + name + ": " + failure.message() + ".");
    }
    failure = asio::error::timed_out;
    asio::async_connect(stream(), endpoints,
                        [&](const asio::error_code &outcome, const auto &) { failure = outcome; });
    io().run_for(timeout);
    if (failure)
    {
        const std::string reason = failure.message();
        stream().close();
        io().restart();
        io().run();
        throw connect_error("Cannot connect to " + name + ": " + reason +
                            ". Is vantor_server running there, with --tcp and this port?");
    }
    stream().set_option(asio::ip::tcp::no_delay(true));
}

uint32_t tcp_link::set_baudrate(uint32_t /*baudrate*/)
{
    throw error("A TCP connection has no baud rate.");
}

} // namespace vantor
