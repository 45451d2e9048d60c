/** @file
 * A link to a simulated server that is started and ended with the link.
 */
#ifndef VANTOR_LINK_SIMULATOR_H
#define VANTOR_LINK_SIMULATOR_H

#include <boost/asio/local/stream_protocol.hpp>

#include "client/server_process.h"
#include "client/stream_link.h"

namespace vantor
{

/** A link to a private simulated server. */
class simulator_link : public stream_link<boost::asio::local::stream_protocol::socket>
{
public:
    /**
     * Starts a server.
     *
     * @throws connect_error if the program cannot be found or started
     */
    simulator_link(const simulator_address &where, std::shared_ptr<event_loop> events);

    size_t read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout) override;
    size_t read_both(std::span<std::byte> first, std::span<std::byte> second,
                     std::chrono::milliseconds timeout) override;
    void write(std::span<const std::byte> bytes, std::chrono::milliseconds timeout) override;
    uint32_t set_baudrate(uint32_t baudrate) override;

private:
    server_process server_;
};

} // namespace vantor

#endif
