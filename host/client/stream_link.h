/** @file
 * A link over any Asio stream, with time-outs and with the exceptions of this library instead of error codes.
 */
#ifndef VANTOR_STREAM_LINK_H
#define VANTOR_STREAM_LINK_H

#include <array>
#include <chrono>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/write.hpp>

#include "vantor/errors.h"
#include "vantor/event_loop.h"
#include "vantor/link.h"

namespace vantor
{

/** A link over a socket or a serial port. */
template <typename stream_t> class stream_link : public link
{
public:
    /** @param loop  runs the operations of the stream */
    explicit stream_link(std::shared_ptr<event_loop> loop) : loop_(std::move(loop)), stream_(loop_->context())
    {
    }

    size_t read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout) override
    {
        return read(boost::asio::buffer(buffer.data(), buffer.size()), timeout);
    }

    size_t read_both(std::span<std::byte> first, std::span<std::byte> second,
                     std::chrono::milliseconds timeout) override
    {
        return read(std::array{boost::asio::buffer(first.data(), first.size()),
                               boost::asio::buffer(second.data(), second.size())},
                    timeout);
    }

    void write(std::span<const std::byte> bytes, std::chrono::milliseconds timeout) override
    {
        const auto outcome = run(timeout, [&](auto handler) {
            boost::asio::async_write(stream_, boost::asio::buffer(bytes.data(), bytes.size()),
                                     std::move(handler));
        });
        if (outcome.first == boost::asio::error::operation_aborted)
        {
            throw timeout_error(
                "The server does not accept more bytes: it may hang, or the line may be cut.");
        }
        if (outcome.first)
        {
            throw connection_lost(lost_text(outcome.first));
        }
    }

    int descriptor() override
    {
        return stream_.native_handle();
    }

protected:
    /** The stream, for opening it. */
    stream_t &stream() noexcept
    {
        return stream_;
    }

    /** The event loop of the stream. */
    event_loop &loop() noexcept
    {
        return *loop_;
    }

private:
    /** Returns the message for a lost connection. */
    static std::string lost_text(const boost::system::error_code &failure)
    {
        return failure == boost::asio::error::eof ? "The server closed the connection."
                                                  : "Lost the connection: " + failure.message() + ".";
    }

    /** Reads what has arrived into one or several buffers; waits for the first byte. */
    template <typename buffers_t> size_t read(const buffers_t &buffers, std::chrono::milliseconds timeout)
    {
        const auto [failure, count] =
            run(timeout, [&](auto handler) { stream_.async_read_some(buffers, std::move(handler)); });
        if (failure && failure != boost::asio::error::operation_aborted)
        {
            throw connection_lost(lost_text(failure));
        }
        return count;
    }

    /**
     * Runs one operation until it completes; stops it at the time-out, or if waiting is cancelled.
     *
     * @return the error of the operation, operation_aborted if it was stopped, and the number of bytes moved
     * @throws cancelled if waiting was cancelled
     */
    template <typename start_t>
    std::pair<boost::system::error_code, size_t> run(std::chrono::milliseconds timeout, start_t &&start)
    {
        std::pair<boost::system::error_code, size_t> outcome;
        event_loop::completion complete;
        std::forward<start_t>(start)([&](const boost::system::error_code &failure, size_t count) {
            outcome = {failure, count};
            complete.set();
        });
        if (!loop_->run_until(complete, loop_->now() + timeout))
        {
            stop(complete);
        }
        if (outcome.first == boost::asio::error::operation_aborted)
        {
            loop_->check_cancelled();
        }
        return outcome;
    }

    /** Stops the operation. One that moves bytes in several parts may start the next part meanwhile. */
    void stop(const event_loop::completion &complete)
    {
        while (!complete.is_set())
        {
            stream_.cancel();
            bool ran = false;
            loop_->post([&ran] { ran = true; });
            loop_->run_to_end([&ran] { return ran; });
        }
    }

    std::shared_ptr<event_loop> loop_;
    stream_t stream_;
};

} // namespace vantor

#endif
