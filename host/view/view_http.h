/** @file
 * HTTP requests to the live view's web server.
 */
#ifndef VANTOR_VIEW_HTTP_H
#define VANTOR_VIEW_HTTP_H

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>

#include <boost/beast/core/bind_handler.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include "view/view_access.h"
#include "view/view_connection.h"

namespace vantor
{

class http_connection;

/** What connections for HTTP need of the server. */
class http_owner
{
public:
    http_owner() = default;
    http_owner(const http_owner &) = delete;
    http_owner &operator=(const http_owner &) = delete;
    http_owner(http_owner &&) = delete;
    http_owner &operator=(http_owner &&) = delete;
    virtual ~http_owner() = default;

    /** The rules of access. */
    [[nodiscard]] virtual const view_access &access() const = 0;

    /** Number of boards. */
    [[nodiscard]] virtual size_t boards() const = 0;

    /** The connection is to be a WebSocket for a board; the owner drops this object. */
    virtual void upgrade(http_connection &connection, view_tcp_socket &&socket, view_http_request &&request,
                         size_t board) = 0;

    /** The connection has ended; the owner drops this object. */
    virtual void ended(http_connection &connection) = 0;
};

/** Adds the headers of every answer. */
template <typename message_t> void add_view_headers(message_t &message)
{
    for (const auto &[name, value] : view_headers())
    {
        message.set(name, value);
    }
}

/** A connection that sends requests. */
class http_connection : public view_connection, public std::enable_shared_from_this<http_connection>
{
    using error_code = boost::system::error_code;

    /** A completion handler that calls a member function, unless the connection was dropped. */
    auto next(void (http_connection::*step)(const error_code &))
    {
        return [self = shared_from_this(), step](const error_code &failure, size_t /*count*/) noexcept {
            if (self->owner_ != nullptr)
            {
                ((*self).*step)(failure);
            }
        };
    }

public:
    /** @param patience  for a whole request or answer */
    http_connection(view_tcp_socket &&socket, http_owner &owner, std::chrono::milliseconds patience)
        : stream_(std::move(socket)), owner_(&owner), patience_(patience)
    {
    }

    /** Receives the next request. */
    void read()
    {
        parser_.emplace();
        parser_->header_limit(most_header_bytes);
        // Every body is refused, but not for its length.
        parser_->body_limit(boost::none);
        stream_.expires_after(patience_);
        boost::beast::http::async_read_header(stream_, buffer_, *parser_, next(&http_connection::was_read));
    }

    void drop() override
    {
        owner_ = nullptr;
        stream_.close();
    }

    void leave(const std::string & /*reason*/) override
    {
        owner_->ended(*this);
    }

private:
    using request_parser = boost::beast::http::request_parser<boost::beast::http::empty_body>;
    using response = boost::beast::http::response<boost::beast::http::span_body<const char>>;

    static constexpr uint32_t most_header_bytes = 8192;

    void was_read(const error_code &failure)
    {
        using http_error = boost::beast::http::error;
        const bool is_http_error =
            failure.category() == make_error_code(http_error::end_of_stream).category();
        if (!failure)
        {
            answer();
        }
        else if (failure == http_error::header_limit || failure == http_error::buffer_overflow)
        {
            write(sentence_answer(431, "The header of the request is longer than 8 kB.\n"), false);
        }
        else if (is_http_error && failure != http_error::end_of_stream &&
                 failure != http_error::partial_message)
        {
            write(sentence_answer(400, "This is not a valid HTTP request.\n"), false);
        }
        else
        {
            owner_->ended(*this);
        }
    }

    /** The value of a header: nothing if it is missing, empty if there are several. */
    std::optional<std::string_view> header(boost::beast::http::field name) const
    {
        const auto &request = parser_->get();
        const auto count = request.count(name);
        if (count == 0)
        {
            return std::nullopt;
        }
        const auto value = request[name];
        return count == 1 ? std::string_view(value.data(), value.size()) : std::string_view();
    }

    /** Why the request must not be served; nothing if it may be. */
    std::optional<view_answer> refusal() const
    {
        using boost::beast::http::field;
        const auto &request = parser_->get();
        const auto method = request.method_string();
        const auto target = request.target();
        return owner_->access().refusal({.method = {method.data(), method.size()},
                                         .target = {target.data(), target.size()},
                                         .host = header(field::host).value_or(std::string_view()),
                                         .origin = header(field::origin),
                                         .is_upgrade = boost::beast::websocket::is_upgrade(request)});
    }

    void answer()
    {
        const auto &request = parser_->get();
        const std::string_view target(request.target().data(), request.target().size());
        if (const auto refused = refusal())
        {
            write(*refused, request.keep_alive());
        }
        else if (!parser_->is_done())
        {
            write(sentence_answer(400, "A request must not have a body.\n"), false);
        }
        else if (const auto board = board_in(target).value_or(1); board < 1 || board > owner_->boards())
        {
            write(sentence_answer(404, "There is no such board. Use the address that vantor view printed.\n"),
                  request.keep_alive());
        }
        else if (boost::beast::websocket::is_upgrade(request))
        {
            owner_->upgrade(*this, stream_.release_socket(), parser_->release(), board);
        }
        else
        {
            write(page_answer(target, owner_->boards()), request.keep_alive());
        }
    }

    /** @param keep_alive  whether the connection can be used for another request */
    void write(const view_answer &answer, bool keep_alive)
    {
        const auto &request = parser_->get();
        response_ = response(static_cast<boost::beast::http::status>(answer.status), 11);
        add_view_headers(response_);
        response_.set(boost::beast::http::field::content_type, answer.content_type);
        if (answer.header)
        {
            response_.set(answer.header->name, answer.header->value);
        }
        if (request.method() != boost::beast::http::verb::head)
        {
            response_.body() = {answer.text.data(), answer.text.size()};
        }
        response_.content_length(answer.text.size());
        // The body of a request is not read: what follows could not be found.
        response_.keep_alive(keep_alive && parser_->is_done());
        stream_.expires_after(patience_);
        boost::beast::http::async_write(stream_, response_, next(&http_connection::was_written));
    }

    void was_written(const error_code &failure)
    {
        if (failure)
        {
            owner_->ended(*this);
        }
        else if (response_.keep_alive())
        {
            read();
        }
        else
        {
            error_code gone;
            stream_.socket().shutdown(view_tcp_socket::shutdown_send, gone);
            discard();
        }
    }

    /** Reads until the client has closed the connection: unread bytes would reset it, and lose the answer. */
    void discard()
    {
        stream_.async_read_some(boost::asio::buffer(discarded_), next(&http_connection::was_discarded));
    }

    void was_discarded(const error_code &failure)
    {
        if (failure)
        {
            owner_->ended(*this);
        }
        else
        {
            discard();
        }
    }

    boost::beast::tcp_stream stream_;
    http_owner *owner_; /**< null if the connection was dropped */
    std::chrono::milliseconds patience_;
    boost::beast::flat_buffer buffer_;
    std::optional<request_parser> parser_;
    response response_;
    std::array<char, 4096> discarded_{};
};

} // namespace vantor

#endif
