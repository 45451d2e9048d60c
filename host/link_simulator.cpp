/** @file
 * A link to a simulated server that lives as long as the link.
 */
#include "link_simulator.h"

namespace vantor
{

simulator_link::simulator_link(const simulator_address &where, std::chrono::milliseconds timeout)
    : server_(find_server_program(), where.arguments, timeout),
      connection_(open_link(parse_address(server_.address()), timeout))
{
}

std::size_t simulator_link::read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout)
{
    return connection_->read_some(buffer, timeout);
}

void simulator_link::write(std::span<const std::byte> bytes, std::chrono::milliseconds timeout)
{
    connection_->write(bytes, timeout);
}

void simulator_link::set_baudrate(std::uint32_t baudrate)
{
    connection_->set_baudrate(baudrate);
}

} // namespace vantor
