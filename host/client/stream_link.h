/** @file
 * A link over any Asio stream, with time-outs and with the exceptions of this library instead of error codes.
 */
#ifndef VANTOR_STREAM_LINK_H
#define VANTOR_STREAM_LINK_H

#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <utility>

#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/io_context.hpp>
#include <asio/write.hpp>

#include "vantor/errors.h"
#include "vantor/link.h"

namespace vantor
{

/** A link over a socket or a serial port. */
template <typename stream_t> class stream_link : public link
{
public:
    stream_link() : stream_(io_)
    {
    }

    size_t read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout) override
    {
        const auto [failure, count] = run(timeout, [&](auto handler) {
            stream_.async_read_some(asio::buffer(buffer.data(), buffer.size()), std::move(handler));
        });
        if (failure && failure != asio::error::operation_aborted)
        {
            throw connection_lost(lost_text(failure));
        }
        return count;
    }

    void write(std::span<const std::byte> bytes, std::chrono::milliseconds timeout) override
    {
        const auto outcome = run(timeout, [&](auto handler) {
            asio::async_write(stream_, asio::buffer(bytes.data(), bytes.size()), std::move(handler));
        });
        if (outcome.first == asio::error::operation_aborted)
        {
            throw timeout_error(
                "The server does not accept more bytes: it may hang, or the line may be cut.");
        }
        if (outcome.first)
        {
            throw connection_lost(lost_text(outcome.first));
        }
    }

protected:
    /** The stream, for opening it. */
    stream_t &stream() noexcept
    {
        return stream_;
    }

    /** The event loop of the stream. */
    asio::io_context &io() noexcept
    {
        return io_;
    }

private:
    /** Returns the message for a lost connection. */
    static std::string lost_text(const asio::error_code &failure)
    {
        return failure == asio::error::eof ? "The server closed the connection."
                                           : "Lost the connection: " + failure.message() + ".";
    }

    /**
     * Runs one operation until it completes; cancels it at the time-out.
     *
     * @return the error of the operation, operation_aborted if it was cancelled, and the number of bytes
     *         moved
     */
    template <typename start_t>
    std::pair<asio::error_code, size_t> run(std::chrono::milliseconds timeout, start_t &&start)
    {
        std::pair<asio::error_code, size_t> outcome;
        bool complete = false;
        std::forward<start_t>(start)([&](const asio::error_code &failure, size_t count) {
            outcome = {failure, count};
            complete = true;
        });
        io_.restart();
        io_.run_for(timeout);
        if (!complete)
        {
            stream_.cancel();
            io_.restart();
            io_.run();
        }
        return outcome;
    }

    asio::io_context io_;
    stream_t stream_;
};

} // namespace vantor

#endif
