/** @file
 * Listens for hosts on a TCP port of this machine.
 */
#include "client/tcp_listener.h"

#include <deque>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <poll.h>

#include "client/stream_link.h"

namespace vantor
{
namespace
{

using boost::asio::ip::tcp;

/** Number of connections that stay open for reading after they were turned away. */
constexpr size_t most_turned_away = 16;

/** When to try again after accepting has failed, for example because too many files are open. */
constexpr std::chrono::milliseconds accept_retry_interval{100};

/** Whether the other side of a connection has closed it. */
bool has_left(tcp::socket &connection)
{
    pollfd waiting{.fd = connection.native_handle(), .events = POLLRDHUP, .revents = 0};
    return poll(&waiting, 1, 0) > 0;
}

} // namespace

/** The port and its connections. What waits on the loop does not keep it alive. */
struct tcp_listener::implementation : std::enable_shared_from_this<implementation>
{
    implementation(std::string message, std::shared_ptr<event_loop> shared_loop)
        : loop(std::move(shared_loop)), busy_message(std::move(message))
    {
    }

    /** Accepts each host that connects while the loop runs. */
    void accept_next()
    {
        acceptor.async_accept([self = weak_from_this()](const auto &failure, tcp::socket connected) {
            const auto alive = self.lock();
            if (alive && failure)
            {
                alive->accept_later();
            }
            else if (alive)
            {
                alive->take(std::move(connected));
                alive->accept_next();
            }
        });
    }

    void accept_later()
    {
        retry.expires_after(accept_retry_interval);
        retry.async_wait([self = weak_from_this()](const auto & /*failure*/) {
            if (const auto alive = self.lock())
            {
                alive->accept_next();
            }
        });
    }

    /** Lets a host wait, or turns it away if it would have to wait for another one that is connected. */
    void take(tcp::socket &&connected)
    {
        if (served != nullptr && !has_left(*served) && !busy_message.empty())
        {
            turn_away(std::move(connected));
        }
        else
        {
            waiting.push_back(std::move(connected));
        }
    }

    void turn_away(tcp::socket &&other)
    {
        // A host that has already gone does not need the message. A new connection accepts it at once.
        boost::system::error_code gone;
        other.send(boost::asio::buffer(busy_message), 0, gone);
        other.shutdown(tcp::socket::shutdown_send, gone);
        turned_away.push_back(std::move(other));
        if (turned_away.size() > most_turned_away)
        {
            turned_away.pop_front();
        }
    }

    std::shared_ptr<event_loop> loop;
    std::string busy_message;
    tcp::acceptor acceptor{loop->context()};
    boost::asio::steady_timer retry{loop->context()};
    tcp::socket *served = nullptr; /**< the connection of the accepted host, if there is one */
    std::deque<tcp::socket> waiting;
    /** A connection that is closed with unread bytes would be reset, and the message could be lost. */
    std::deque<tcp::socket> turned_away;
};

/** A link to a connected host. */
class tcp_listener::accepted_link : public stream_link<tcp::socket>
{
public:
    /** Takes the host that has waited longest; the others have to wait for it. */
    explicit accepted_link(std::shared_ptr<implementation> listener)
        : stream_link(listener->loop), listener_(std::move(listener))
    {
        auto waiting = std::exchange(listener_->waiting, {});
        stream() = std::move(waiting.front());
        waiting.pop_front();
        // The host may have left.
        boost::system::error_code ignored;
        stream().set_option(tcp::no_delay(true), ignored);
        listener_->served = &stream();
        for (auto &other : waiting)
        {
            listener_->take(std::move(other));
        }
    }
    accepted_link(const accepted_link &) = delete;
    accepted_link &operator=(const accepted_link &) = delete;
    accepted_link(accepted_link &&) = delete;
    accepted_link &operator=(accepted_link &&) = delete;

    ~accepted_link() override
    {
        listener_->served = nullptr;
    }

    uint32_t set_baudrate(uint32_t /*baudrate*/) override
    {
        throw error("A TCP connection has no baud rate.");
    }

private:
    std::shared_ptr<implementation> listener_;
};

tcp_listener::tcp_listener(uint16_t port, std::string busy_message, std::shared_ptr<event_loop> loop)
    : implementation_(std::make_shared<implementation>(std::move(busy_message), std::move(loop)))
{
    auto &acceptor = implementation_->acceptor;
    try
    {
        acceptor.open(tcp::v4());
        acceptor.set_option(tcp::acceptor::reuse_address(true));
        acceptor.bind(tcp::endpoint(boost::asio::ip::address_v4::loopback(), port));
        acceptor.listen();
    }
    catch (const boost::system::system_error &failure)
    {
        throw error("Cannot listen on TCP port " + std::to_string(port) + ": " + failure.code().message() +
                    ". Choose another port.");
    }
    implementation_->accept_next();
}

tcp_listener::~tcp_listener() = default;

uint16_t tcp_listener::port() const
{
    return implementation_->acceptor.local_endpoint().port();
}

std::unique_ptr<link> tcp_listener::accept(std::chrono::milliseconds timeout)
{
    auto &loop = *implementation_->loop;
    const auto connected = [this] { return !implementation_->waiting.empty(); };
    if (!loop.run_until(connected, loop.now() + timeout))
    {
        loop.check_cancelled();
        return nullptr;
    }
    return std::make_unique<accepted_link>(implementation_);
}

} // namespace vantor
