/** @file
 * A link to a simulated server that lives as long as the link.
 */
#ifndef VANTOR_LINK_SIMULATOR_H
#define VANTOR_LINK_SIMULATOR_H

#include <filesystem>
#include <memory>

#include "server_process.h"
#include "vantor/link.h"

namespace vantor
{

/** A link to a simulated server of its own, over TCP. */
class simulator_link : public link
{
public:
    /**
     * Starts a server and connects to it.
     *
     * @throws connect_error when the program is not found, ends at once, or does not listen in time
     */
    simulator_link(const simulator_address &where, std::chrono::milliseconds timeout);

    std::size_t read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout) override;
    void write(std::span<const std::byte> bytes, std::chrono::milliseconds timeout) override;
    void set_baudrate(std::uint32_t baudrate) override;

private:
    server_process server_;
    std::unique_ptr<link> connection_; // closed before the server ends
};

} // namespace vantor

#endif
