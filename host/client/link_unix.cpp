/** @file
 * A link over a socket in the file system.
 */
#include "client/link_unix.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>

namespace vantor
{

namespace
{

/** How often a connection is tried while the server does not accept more: nothing reports when it does. */
constexpr std::chrono::milliseconds retry_interval{20};

} // namespace

unix_link::unix_link(const unix_address &where, std::chrono::milliseconds timeout,
                     std::shared_ptr<event_loop> events)
    : stream_link(std::move(events))
{
    // Longer paths make the constructor of the endpoint throw another exception.
    const bool fits = where.path.size() < sizeof(sockaddr_un::sun_path);
    const auto failure = fits ? connect(endpoint(where.path), loop().now() + timeout)
                              : boost::system::error_code(boost::asio::error::name_too_long);
    if (failure)
    {
        throw connect_error("Cannot connect to " + to_string(address{where}) + ": " + failure.message() +
                            ". Is vantor_server running there, with --unix and this path, as the same user?");
    }
}

/** Connects without blocking: not by Asio, which would take a full queue of the server for a success. */
boost::system::error_code unix_link::connect(const endpoint &where, event_loop::time_point deadline)
{
    boost::system::error_code failure;
    stream().open({}, failure);
    if (failure)
    {
        return failure;
    }
    stream().native_non_blocking(true);
    while (::connect(stream().native_handle(), where.data(), static_cast<socklen_t>(where.size())) != 0)
    {
        if (errno != EAGAIN && errno != EINTR)
        {
            return {errno, boost::system::system_category()};
        }
        if (loop().now() >= deadline)
        {
            return boost::asio::error::timed_out;
        }
        loop().run_until([] { return false; }, std::min(deadline, loop().now() + retry_interval));
        loop().check_cancelled();
    }
    return {};
}

uint32_t unix_link::set_baudrate(uint32_t /*baudrate*/)
{
    throw error("A socket has no baud rate.");
}

} // namespace vantor
