/** @file
 * A scripted server on a real TCP connection.
 */
#include "fake_server.h"

#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/connect.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

namespace vantor::test
{
namespace
{

/** The TCP connection of one host. */
class tcp_connection : public host_connection
{
public:
    tcp_connection(boost::asio::ip::tcp::socket socket, std::atomic<bool> &full)
        : socket_(std::move(socket)), full_(full)
    {
    }

    using host_connection::send;

    void send(const std::string &bytes) override
    {
        // Ignored: the host may have disconnected.
        boost::system::error_code failure;
        const auto count = socket_.send(boost::asio::buffer(bytes), MSG_DONTWAIT, failure);
        if (count < bytes.size())
        {
            full_ = true;
            full_.notify_all();
        }
        boost::asio::write(socket_, boost::asio::buffer(bytes) + count, failure);
    }

    void close() override
    {
        boost::system::error_code ignored;
        socket_.shutdown(boost::asio::ip::tcp::socket::shutdown_both, ignored);
        socket_.close(ignored);
    }

    /** Reads the next line; false if the host has disconnected. */
    bool read_line(std::string &line)
    {
        boost::system::error_code failure;
        const auto length =
            boost::asio::read_until(socket_, boost::asio::dynamic_buffer(buffer_), '\n', failure);
        if (failure)
        {
            return false;
        }
        line = buffer_.substr(0, length - 1);
        buffer_.erase(0, length);
        return true;
    }

private:
    boost::asio::ip::tcp::socket socket_;
    std::atomic<bool> &full_;
    std::string buffer_;
};

/** Listens on a free port; connections have small buffers, so that they fill up soon when they are not read.
 */
boost::asio::ip::tcp::acceptor listen(boost::asio::io_context &io)
{
    boost::asio::ip::tcp::acceptor acceptor(
        io, boost::asio::ip::tcp::endpoint(boost::asio::ip::address_v4::loopback(), 0));
    acceptor.set_option(boost::asio::socket_base::send_buffer_size(1 << 14));
    return acceptor;
}

} // namespace

fake_server::fake_server() : acceptor_(listen(io_)), thread_([this] { run(); })
{
}

fake_server::~fake_server()
{
    ending_ = true;
    boost::asio::io_context io;
    // Makes accept() return.
    boost::asio::ip::tcp::socket wake(io);
    boost::system::error_code ignored;
    wake.connect(acceptor_.local_endpoint(), ignored);
    wake.close(ignored);
    thread_.join();
}

void fake_server::on(const std::string &command, reaction what)
{
    script_.on(command, std::move(what));
}

std::string fake_server::address() const
{
    return "tcp:127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port());
}

std::vector<std::string> fake_server::lines() const
{
    return script_.lines();
}

/** Serves one host after the other until the server is destroyed. */
void fake_server::run()
{
    while (true)
    {
        tcp_connection host(acceptor_.accept(), full_);
        if (ending_)
        {
            return;
        }
        for (std::string line; host.read_line(line);)
        {
            script_.react(host, line);
        }
    }
}

} // namespace vantor::test
