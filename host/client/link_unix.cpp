/** @file
 * A link over a socket in the file system.
 */
#include "client/link_unix.h"

#include <utility>

#include <sys/un.h>

namespace vantor
{

unix_link::unix_link(const unix_address &where, std::shared_ptr<event_loop> events)
    : stream_link(std::move(events))
{
    boost::system::error_code failure;
    // Longer paths make the constructor of the address throw another exception.
    using endpoint = boost::asio::local::stream_protocol::endpoint;
    if (where.path.size() < sizeof(sockaddr_un::sun_path))
    {
        stream().connect(endpoint(where.path), failure);
    }
    else
    {
        failure = boost::asio::error::name_too_long;
    }
    if (failure)
    {
        throw connect_error("Cannot connect to " + to_string(address{where}) + ": " + failure.message() +
                            ". Is vantor_server running there, with --unix and this path, as the same user?");
    }
}

uint32_t unix_link::set_baudrate(uint32_t /*baudrate*/)
{
    throw error("A socket has no baud rate.");
}

} // namespace vantor
