/** @file
 * A link to a simulated server that is started and ended with the link.
 */
#include "client/link_simulator.h"

namespace vantor
{
namespace
{

/** The message when the server has exited, however the link detects it. */
constexpr const char *server_ended = "The simulated server has exited; see the message that it printed.";

/** The arguments of a server whose link is its standard input and output. */
std::vector<std::string> with_link(const std::vector<std::string> &arguments)
{
    std::vector<std::string> all{"--stdio"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
}

} // namespace

simulator_link::simulator_link(const simulator_address &where, std::shared_ptr<event_loop> events)
    : stream_link(std::move(events)), server_(find_server_program(), with_link(where.arguments))
{
    stream().assign(boost::asio::local::stream_protocol(), server_.take_link());
}

size_t simulator_link::read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout)
{
    try
    {
        return stream_link::read_some(buffer, timeout);
    }
    catch (const connection_lost &)
    {
        throw connection_lost(server_ended);
    }
}

size_t simulator_link::read_both(std::span<std::byte> first, std::span<std::byte> second,
                                 std::chrono::milliseconds timeout)
{
    try
    {
        return stream_link::read_both(first, second, timeout);
    }
    catch (const connection_lost &)
    {
        throw connection_lost(server_ended);
    }
}

void simulator_link::write(std::span<const std::byte> bytes, std::chrono::milliseconds timeout)
{
    try
    {
        stream_link::write(bytes, timeout);
    }
    catch (const connection_lost &)
    {
        throw connection_lost(server_ended);
    }
}

uint32_t simulator_link::set_baudrate(uint32_t /*baudrate*/)
{
    throw error("A private simulated server has no baud rate.");
}

} // namespace vantor
