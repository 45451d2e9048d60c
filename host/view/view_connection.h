/** @file
 * A connection of the live view's web server.
 */
#ifndef VANTOR_VIEW_CONNECTION_H
#define VANTOR_VIEW_CONNECTION_H

#include <string>

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>

namespace vantor
{

/** A request; one with a body is not served. */
using view_http_request = boost::beast::http::request<boost::beast::http::empty_body>;

/** The socket of a connection. */
using view_tcp_socket = boost::asio::ip::tcp::socket;

/** A connection. The loop keeps it until all its operations have ended. */
class view_connection
{
public:
    view_connection() = default;
    view_connection(const view_connection &) = delete;
    view_connection &operator=(const view_connection &) = delete;
    view_connection(view_connection &&) = delete;
    view_connection &operator=(view_connection &&) = delete;
    virtual ~view_connection() = default;

    /** Closes it at once. It does not use its owner any more. */
    virtual void drop() = 0;

    /** Closes it in the way of its protocol. */
    virtual void leave(const std::string &reason) = 0;
};

} // namespace vantor

#endif
