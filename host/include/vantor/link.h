/** @file
 * A link that transfers bytes between a host and a server.
 */
#ifndef VANTOR_LINK_H
#define VANTOR_LINK_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "vantor/address.h"
#include "vantor/event_loop.h"

namespace vantor
{

/**
 * An open link to a server; the destructor closes it, on any thread, and may block. Otherwise, only the
 * thread of its loop can use it.
 */
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
     * Reads the bytes that have arrived; waits for the first byte.
     *
     * @param buffer   receives the bytes
     * @param timeout  how long to wait
     * @return the number of bytes received; 0 if none arrived in time
     * @throws connection_lost if the link was closed or has failed
     * @throws cancelled if waiting was cancelled
     */
    virtual size_t read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout) = 0;

    /**
     * Like read_some, into two buffers: the second one gets what does not fit the first one. By default, only
     * the first one that is not empty is used.
     */
    virtual size_t read_both(std::span<std::byte> first, std::span<std::byte> second,
                             std::chrono::milliseconds timeout)
    {
        return read_some(first.empty() ? second : first, timeout);
    }

    /**
     * Writes all bytes.
     *
     * @param bytes    what to send
     * @param timeout  how long it may take
     * @throws timeout_error if the link did not accept them in time
     * @throws connection_lost if the link was closed or has failed
     * @throws cancelled if waiting was cancelled; a part of the bytes may have been written
     */
    virtual void write(std::span<const std::byte> bytes, std::chrono::milliseconds timeout) = 0;

    /**
     * Changes the baud rate of a serial line.
     *
     * @param baudrate  in bits per second
     * @return the previous baud rate
     * @throws error if the link does not support the baud rate
     */
    virtual uint32_t set_baudrate(uint32_t baudrate) = 0;

    /** The file descriptor that becomes readable when bytes arrive, to pass to poll(); -1 if there is none.
     */
    [[nodiscard]] virtual int descriptor()
    {
        return -1;
    }
};

/**
 * Opens a link.
 *
 * For a simulator_address this starts the program vantor_server: the one named by the environment variable
 * VANTOR_SERVER, otherwise the one in the directory of the running program, otherwise the one in PATH.
 *
 * @param where    the server
 * @param timeout  how long connecting or starting may take
 * @param loop     runs the link
 * @return the open link
 * @throws connect_error if it cannot be opened
 * @throws cancelled if waiting was cancelled
 */
std::unique_ptr<link> open_link(const address &where, std::chrono::milliseconds timeout,
                                std::shared_ptr<event_loop> loop = std::make_shared<event_loop>());

} // namespace vantor

#endif
