/** @file
 * The web server of the live view. Only this file includes Boost.Beast, which takes long to compile.
 */
#include "view/view_server.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include "vantor/errors.h"
#include "view/view_access.h"
#include "view/view_http.h"
#include "view/view_socket.h"

namespace vantor
{
namespace
{

using boost::asio::ip::tcp;

/** When to try again after accepting has failed, for example because too many files are open. */
constexpr std::chrono::milliseconds view_accept_retry_interval{100};

constexpr std::chrono::milliseconds view_tick_interval{250};

/** How long the end waits for viewers. */
constexpr std::chrono::milliseconds view_end_patience{500};

/** Returns the address of a port; any port if it is 0. */
tcp::endpoint endpoint_of(const view_address &where)
{
    return {boost::asio::ip::make_address(view_access(where.host, where.port, "").address()), where.port};
}

} // namespace

/** The port and its connections. What waits on the loop does not keep it alive. */
struct view_server::implementation : http_owner, socket_owner, std::enable_shared_from_this<implementation>
{
    implementation(event_loop &shared_loop, const view_limits &allowed) : loop(shared_loop), limits(allowed)
    {
    }

    /** @throws boost::system::system_error if the address cannot be used */
    void listen(const tcp::endpoint &where)
    {
        acceptor.open(where.protocol());
        acceptor.set_option(tcp::acceptor::reuse_address(true));
        acceptor.bind(where);
        acceptor.listen();
    }

    /** A completion handler that calls a member function, unless this object or its acceptor was closed. */
    template <typename step_t> auto unless_ended(step_t step)
    {
        return [self = weak_from_this(), step](const auto &failure, auto &&...results) {
            const auto alive = self.lock();
            if (alive && alive->acceptor.is_open())
            {
                step(*alive, failure, std::forward<decltype(results)>(results)...);
            }
        };
    }

    void tick_later()
    {
        tick_timer.expires_after(view_tick_interval);
        tick_timer.async_wait(unless_ended([](implementation &self, const auto & /*failure*/) {
            self.tick_later();
            for (auto *const handler : self.handlers)
            {
                handler->tick();
            }
        }));
    }

    /** Accepts the next connection. The others wait in the queue of the system. */
    void accept_next()
    {
        accepting = connections.size() < limits.connections * handlers.size();
        if (accepting)
        {
            acceptor.async_accept(
                unless_ended([](implementation &self, const auto &failure, tcp::socket &&socket) {
                    if (failure)
                    {
                        self.accept_later();
                        return;
                    }
                    self.take(std::move(socket));
                    self.accept_next();
                }));
        }
    }

    void accept_later()
    {
        retry_timer.expires_after(view_accept_retry_interval);
        retry_timer.async_wait(
            unless_ended([](implementation &self, const auto & /*failure*/) { self.accept_next(); }));
    }

    void take(tcp::socket &&socket)
    {
        // The client may have left.
        boost::system::error_code ignored;
        socket.set_option(tcp::no_delay(true), ignored);
        socket.set_option(tcp::socket::send_buffer_size(static_cast<int>(limits.send_buffer)), ignored);
        const auto connection = std::make_shared<http_connection>(std::move(socket), *this, limits.request);
        connections.insert(connection);
        connection->read();
    }

    [[nodiscard]] const view_access &access() const override
    {
        return *rules;
    }

    [[nodiscard]] size_t boards() const override
    {
        return handlers.size();
    }

    void upgrade(http_connection &connection, tcp::socket &&socket, view_http_request &&request,
                 size_t board) override
    {
        const view_socket::identity identity{.number = next_number++, .board = board};
        const auto viewer = std::make_shared<view_socket>(std::move(socket), identity, *this, limits);
        connections.insert(viewer);
        viewer->accept(request);
        remove(connection.shared_from_this());
    }

    /** What handles the viewers of a board. */
    [[nodiscard]] view_handler &handler_of(const view_socket &socket) const
    {
        return *handlers.at(socket.board() - 1);
    }

    /** Number of viewers of a board. */
    [[nodiscard]] size_t viewers_of(size_t board) const
    {
        return static_cast<size_t>(std::count_if(viewers.begin(), viewers.end(), [board](const auto &viewer) {
            return viewer.second->board() == board;
        }));
    }

    void opened(view_socket &socket) override
    {
        if (viewers_of(socket.board()) >= limits.viewers)
        {
            socket.close(view_socket::close_code::try_again_later,
                         std::to_string(limits.viewers) +
                             " viewers are connected, which is the limit. Close one of them.");
            return;
        }
        viewers.emplace(socket.number(), socket.shared_from_this());
        handler_of(socket).opened(socket.number());
    }

    void received(view_socket &socket, std::string &&text) override
    {
        handler_of(socket).received(socket.number(), std::move(text));
    }

    void sent(view_socket &socket) override
    {
        handler_of(socket).sent(socket.number());
    }

    void ended(http_connection &connection) override
    {
        remove(connection.shared_from_this());
    }

    void ended(view_socket &socket) override
    {
        remove(socket.shared_from_this());
        if (viewers.erase(socket.number()) > 0 && acceptor.is_open())
        {
            handler_of(socket).closed(socket.number());
        }
    }

    void remove(const std::shared_ptr<view_connection> &connection)
    {
        connection->drop();
        connections.erase(connection);
        if (!accepting && acceptor.is_open())
        {
            accept_next();
        }
    }

    /** Accepts nothing and calls the handlers no more. */
    void stop_listening()
    {
        boost::system::error_code ignored;
        acceptor.close(ignored);
    }

    void drop_all()
    {
        for (const auto &connection : connections)
        {
            connection->drop();
        }
        connections.clear();
        viewers.clear();
    }

    void end(const std::string &reason)
    {
        stop_listening();
        const auto leaving = connections;
        for (const auto &connection : leaving)
        {
            connection->leave(reason);
        }
        bool late = false;
        boost::asio::steady_timer deadline(loop.context(), view_end_patience);
        deadline.async_wait([&late](const auto & /*failure*/) noexcept { late = true; });
        loop.run_to_end([this, &late] { return late || connections.empty(); });
        drop_all();
        // The function of the timer uses a variable of this function.
        deadline.cancel();
        loop.run_to_end([&late] { return late; });
    }

    std::vector<view_handler *> handlers; /**< of the boards */
    event_loop &loop;
    view_limits limits;
    std::optional<view_access> rules;
    tcp::acceptor acceptor{loop.context()};
    boost::asio::steady_timer tick_timer{loop.context()};
    boost::asio::steady_timer retry_timer{loop.context()};
    bool accepting = false;
    std::set<std::shared_ptr<view_connection>> connections;
    std::map<uint64_t, std::shared_ptr<view_socket>> viewers;
    uint64_t next_number = 1;
    uint16_t port = 0;
};

view_server::view_server(const view_address &where, std::string token, event_loop &loop, view_limits limits)
    : implementation_(std::make_shared<implementation>(loop, limits))
{
    const auto endpoint = endpoint_of(where);
    try
    {
        implementation_->listen(endpoint);
    }
    catch (const boost::system::system_error &failure)
    {
        throw error("Cannot listen on TCP port " + std::to_string(where.port) + " of " + where.host + ": " +
                    failure.code().message() + ". Choose another port or address.");
    }
    implementation_->port = implementation_->acceptor.local_endpoint().port();
    implementation_->rules.emplace(where.host, implementation_->port, std::move(token));
    implementation_->tick_later();
}

view_server::~view_server()
{
    implementation_->stop_listening();
    implementation_->drop_all();
}

void view_server::add_board(view_handler &handler)
{
    implementation_->handlers.push_back(&handler);
    if (!implementation_->accepting)
    {
        implementation_->accept_next();
    }
}

size_t view_server::boards() const noexcept
{
    return implementation_->handlers.size();
}

uint16_t view_server::port() const
{
    return implementation_->port;
}

std::string view_server::url() const
{
    return implementation_->rules->url();
}

bool view_server::reachable_from_outside() const
{
    return implementation_->rules->reachable_from_outside();
}

void view_server::send(uint64_t viewer, view_message kind, std::shared_ptr<const std::string> message)
{
    const auto found = implementation_->viewers.find(viewer);
    if (found != implementation_->viewers.end())
    {
        found->second->write(kind, std::move(message));
    }
}

void view_server::close(uint64_t viewer, const std::string &reason)
{
    const auto found = implementation_->viewers.find(viewer);
    if (found != implementation_->viewers.end())
    {
        found->second->close(view_socket::close_code::normal, reason);
    }
}

void view_server::end(const std::string &reason)
{
    implementation_->end(reason);
}

} // namespace vantor
