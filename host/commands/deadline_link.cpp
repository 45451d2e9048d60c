/** @file
 * A link that fails at a deadline, whatever the other end sends.
 */
#include "commands/deadline_link.h"

#include <algorithm>
#include <utility>

#include "client/time_left.h"
#include "vantor/errors.h"

namespace vantor
{

deadline_link::deadline_link(std::unique_ptr<link> connection, std::chrono::steady_clock::time_point deadline,
                             time_source now)
    : connection_(std::move(connection)), deadline_(deadline), now_(std::move(now))
{
}

size_t deadline_link::read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout)
{
    return connection_->read_some(buffer, bound(timeout));
}

size_t deadline_link::read_both(std::span<std::byte> first, std::span<std::byte> second,
                                std::chrono::milliseconds timeout)
{
    return connection_->read_both(first, second, bound(timeout));
}

void deadline_link::write(std::span<const std::byte> bytes, std::chrono::milliseconds timeout)
{
    connection_->write(bytes, bound(timeout));
}

uint32_t deadline_link::set_baudrate(uint32_t baudrate)
{
    return connection_->set_baudrate(baudrate);
}

/** Limits a time-out to the time left until the deadline; throws when the deadline has passed. */
std::chrono::milliseconds deadline_link::bound(std::chrono::milliseconds timeout) const
{
    const auto left = time_left(deadline_, now_);
    if (left.count() == 0)
    {
        throw connection_lost("The device took too long to answer.");
    }
    return std::min(left, timeout);
}

} // namespace vantor
