/** @file
 * A link over TCP.
 */
#include "client/link_tcp.h"

#include <atomic>
#include <thread>
#include <utility>

#include <boost/asio/connect.hpp>

namespace vantor
{
namespace
{

using boost::asio::ip::tcp;

/** A lookup of a host name. */
struct name_lookup
{
    std::atomic<bool> complete = false; /**< the other members are valid */
    boost::system::error_code failure;
    tcp::resolver::results_type endpoints;
};

/** Looks up a host name; blocks for as long as the system takes. */
void look_up(name_lookup &lookup, const tcp_address &where)
{
    boost::asio::io_context context;
    tcp::resolver resolver(context);
    lookup.endpoints = resolver.resolve(where.host, std::to_string(where.port), lookup.failure);
    lookup.complete = true;
}

/**
 * Looks up a host name on a separate thread, because the system cannot cancel it: if nobody waits for the
 * result any more, the thread ends by itself.
 */
std::shared_ptr<const name_lookup> start_lookup(const tcp_address &where, std::weak_ptr<event_loop> waiting)
{
    auto lookup = std::make_shared<name_lookup>();
    std::thread([lookup, where, waiting = std::move(waiting)] {
        look_up(*lookup, where);
        if (const auto loop = waiting.lock())
        {
            // Wakes it.
            loop->post([] {});
        }
    }).detach();
    return lookup;
}

} // namespace

tcp_link::tcp_link(const tcp_address &where, std::chrono::milliseconds timeout,
                   const std::shared_ptr<event_loop> &events)
    : stream_link(events)
{
    const auto deadline = loop().now() + timeout;
    const auto lookup = start_lookup(where, events);
    if (!loop().run_until([&lookup] { return lookup->complete.load(); }, deadline))
    {
        loop().check_cancelled();
        throw connect_error("Cannot resolve the host name in " + to_string(address{where}) +
                            " in time. Check the name and the network, or use an IP address.");
    }
    if (lookup->failure)
    {
        throw connect_error("Cannot resolve the host name in " + to_string(address{where}) + ": " +
                            lookup->failure.message() + ".");
    }
    connect(lookup->endpoints, deadline, to_string(address{where}));
    stream().set_option(tcp::no_delay(true));
}

/** Connects to the first of several endpoints that accepts. */
void tcp_link::connect(const tcp::resolver::results_type &endpoints, event_loop::time_point deadline,
                       const std::string &name)
{
    boost::system::error_code failure;
    bool complete = false;
    boost::asio::async_connect(stream(), endpoints,
                               [&](const boost::system::error_code &outcome, const auto &) {
                                   failure = outcome;
                                   complete = true;
                               });
    const auto is_complete = [&complete] { return complete; };
    if (!loop().run_until(is_complete, deadline))
    {
        stream().close();
        loop().run_to_end(is_complete);
        loop().check_cancelled();
        failure = boost::asio::error::timed_out;
    }
    if (failure)
    {
        throw connect_error("Cannot connect to " + name + ": " + failure.message() +
                            ". Is vantor_server running there, with --tcp and this port?");
    }
}

uint32_t tcp_link::set_baudrate(uint32_t /*baudrate*/)
{
    throw error("A TCP connection has no baud rate.");
}

} // namespace vantor
