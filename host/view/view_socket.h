/** @file
 * WebSockets of the live view's web server.
 */
#ifndef VANTOR_VIEW_SOCKET_H
#define VANTOR_VIEW_SOCKET_H

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/websocket/stream.hpp>

#include "view/view_connection.h"
#include "view/view_http.h"
#include "view/view_server.h"

namespace vantor
{

class view_socket;

/** What WebSockets need of the server. */
class socket_owner
{
public:
    socket_owner() = default;
    socket_owner(const socket_owner &) = delete;
    socket_owner &operator=(const socket_owner &) = delete;
    socket_owner(socket_owner &&) = delete;
    socket_owner &operator=(socket_owner &&) = delete;
    virtual ~socket_owner() = default;

    /** The socket can be used. */
    virtual void opened(view_socket &socket) = 0;

    /** A message has arrived. */
    virtual void received(view_socket &socket, std::string &&text) = 0;

    /** The message is written. */
    virtual void sent(view_socket &socket) = 0;

    /** The socket has ended; the owner drops it. */
    virtual void ended(view_socket &socket) = 0;
};

/** The WebSocket of a viewer. */
class view_socket : public view_connection, public std::enable_shared_from_this<view_socket>
{
    using error_code = boost::system::error_code;

    /** A completion handler that calls a member function, unless the socket was dropped. */
    auto next(void (view_socket::*step)(const error_code &))
    {
        return [self = shared_from_this(), step](const error_code &failure, size_t /*count*/ = 0) noexcept {
            if (self->owner_ != nullptr)
            {
                ((*self).*step)(failure);
            }
        };
    }

public:
    using close_code = boost::beast::websocket::close_code;

    /** The viewer. */
    struct identity
    {
        uint64_t number = 0;
        size_t board = 1; /**< which it sees, from 1 */
    };

    view_socket(view_tcp_socket &&socket, const identity &viewer, socket_owner &owner,
                const view_limits &limits)
        : stream_(std::move(socket)), viewer_(viewer), owner_(&owner), limits_(limits)
    {
    }

    /** The number of the viewer. */
    [[nodiscard]] uint64_t number() const noexcept
    {
        return viewer_.number;
    }

    /** The board that the viewer sees, from 1. */
    [[nodiscard]] size_t board() const noexcept
    {
        return viewer_.board;
    }

    /** Confirms that the connection is a WebSocket. */
    void accept(const view_http_request &request)
    {
        namespace websocket = boost::beast::websocket;
        stream_.set_option(websocket::stream_base::timeout{
            .handshake_timeout = limits_.request, .idle_timeout = limits_.silence, .keep_alive_pings = true});
        stream_.set_option(websocket::stream_base::decorator(
            [](websocket::response_type &answer) { add_view_headers(answer); }));
        // Otherwise, it would be written in pieces of 4 kB.
        stream_.auto_fragment(false);
        // The length is checked here, to close with a reason.
        stream_.read_message_max(0);
        stream_.control_callback([this](boost::beast::websocket::frame_type kind, auto /*payload*/) {
            if (kind == boost::beast::websocket::frame_type::close && !closing_)
            {
                set_deadline();
            }
        });
        stream_.async_accept(request, next(&view_socket::was_accepted));
    }

    /** Sends a message, one at a time. */
    void write(view_message kind, std::shared_ptr<const std::string> message)
    {
        if (closing_)
        {
            return;
        }
        stream_.text(kind == view_message::text);
        const auto bytes = boost::asio::buffer(*message);
        stream_.async_write(bytes, [message = std::move(message), done = next(&view_socket::was_written)](
                                       const error_code &failure, size_t count) { done(failure, count); });
    }

    /** Closes the socket; the owner is informed when it has ended. */
    void close(close_code code, const std::string &reason)
    {
        if (std::exchange(closing_, true))
        {
            return;
        }
        // The close frame waits for a message that is being written.
        set_deadline();
        stream_.async_close({code, close_text(reason)}, next(&view_socket::was_closed));
    }

    void leave(const std::string &reason) override
    {
        if (stream_.is_open())
        {
            close(close_code::going_away, reason);
        }
        else
        {
            owner_->ended(*this);
        }
    }

    void drop() override
    {
        owner_ = nullptr;
        deadline_.cancel();
        boost::beast::get_lowest_layer(stream_).close();
    }

private:
    /** Bytes that are read at a time. */
    static constexpr size_t read_bytes = 65536;

    /** Returns the part of a reason that fits into a close frame, without half characters. */
    static std::string close_text(const std::string &reason)
    {
        const auto continues = [&reason](size_t at) {
            return (static_cast<unsigned char>(reason[at]) & 0xC0U) == 0x80U;
        };
        size_t length = std::min(reason.size(), boost::beast::websocket::reason_string::static_capacity);
        while (length < reason.size() && length > 0 && continues(length))
        {
            --length;
        }
        return reason.substr(0, length);
    }

    /** Limits the time until the viewer has confirmed the end and closed the connection. */
    void set_deadline()
    {
        deadline_.expires_after(limits_.request);
        deadline_.async_wait(next(&view_socket::was_late));
    }

    void was_accepted(const error_code &failure)
    {
        if (failure)
        {
            owner_->ended(*this);
            return;
        }
        owner_->opened(*this);
        read();
    }

    /** Receives a part of the next message. While the socket is closing, that is up to the close operation.
     */
    void read()
    {
        if (owner_ != nullptr && !closing_)
        {
            stream_.async_read_some(received_, read_bytes, next(&view_socket::was_read));
        }
    }

    void was_read(const error_code &failure)
    {
        if (closing_)
        {
            return;
        }
        if (failure)
        {
            owner_->ended(*this);
        }
        else if (!stream_.got_text())
        {
            close(close_code::unknown_data, "A viewer can send only text messages.");
        }
        else if (received_.size() > limits_.request_bytes)
        {
            close(close_code::too_big,
                  "The message is longer than " + std::to_string(limits_.request_bytes) + " bytes.");
        }
        else if (stream_.is_message_done())
        {
            std::string text = boost::beast::buffers_to_string(received_.data());
            received_ = {};
            owner_->received(*this, std::move(text));
        }
        read();
    }

    void was_written(const error_code &failure)
    {
        if (closing_)
        {
            return;
        }
        if (failure)
        {
            owner_->ended(*this);
        }
        else
        {
            owner_->sent(*this);
        }
    }

    void was_closed(const error_code & /*failure*/)
    {
        owner_->ended(*this);
    }

    void was_late(const error_code & /*failure*/)
    {
        owner_->ended(*this);
    }

    boost::beast::websocket::stream<boost::beast::tcp_stream, false> stream_;
    identity viewer_;
    socket_owner *owner_; /**< null if the socket was dropped */
    view_limits limits_;
    boost::asio::steady_timer deadline_{stream_.get_executor()};
    bool closing_ = false;
    boost::beast::flat_buffer received_; /**< of the message that is not complete */
};

} // namespace vantor

#endif
