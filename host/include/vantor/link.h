/** @file
 * The bytes between a host and a server, whatever carries them.
 */
#ifndef VANTOR_LINK_H
#define VANTOR_LINK_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "vantor/address.h"

namespace vantor
{

/** An open link to a server; it closes when destroyed. For one thread at a time. */
class link
{
public:
    link() = default;
    link(const link &) = delete;
    link &operator=(const link &) = delete;
    link(link &&) = delete;
    link &operator=(link &&) = delete;
    virtual ~link() = default;

    /**
     * Reads what has arrived, waiting for the first byte.
     *
     * @param buffer   receives the bytes
     * @param timeout  how long to wait
     * @return the number of bytes received; 0 when none came in time
     * @throws connection_lost when the link is closed or broken
     */
    virtual size_t read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout) = 0;

    /**
     * Writes all of the bytes.
     *
     * @param bytes    what to send
     * @param timeout  how long it may take
     * @throws timeout_error when the link did not take them in time
     * @throws connection_lost when the link is closed or broken
     */
    virtual void write(std::span<const std::byte> bytes, std::chrono::milliseconds timeout) = 0;

    /**
     * Changes the baud rate of a serial line.
     *
     * @param baudrate  in bits per second
     * @return the baud rate before
     * @throws error when the link has no such baud rate
     */
    virtual uint32_t set_baudrate(uint32_t baudrate) = 0;
};

/**
 * Opens a link.
 *
 * For a simulator_address this starts the program vantor_server: the one that the environment variable
 * VANTOR_SERVER names, else the one in the directory of the running program, else the one found in PATH.
 *
 * @param where    the server
 * @param timeout  how long connecting or starting may take
 * @return the open link
 * @throws connect_error when it cannot be opened
 */
std::unique_ptr<link> open_link(const address &where, std::chrono::milliseconds timeout);

} // namespace vantor

#endif
