/** @file
 * Tests of connecting to a socket in the file system whose server accepts no connection.
 */
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <gmock/gmock.h>

#include "manual_clock.h"
#include "temporary_directory.h"
#include "vantor/errors.h"
#include "vantor/link.h"

namespace vantor
{
namespace
{

using testing::HasSubstr;
using testing::ThrowsMessage;

/** A socket in the file system on which a server listens, but accepts no connection unless told to. */
class busy_socket
{
public:
    explicit busy_socket(const std::filesystem::path &path)
    {
        std::strncpy(address_.sun_path, path.c_str(), sizeof(address_.sun_path) - 1);
        EXPECT_EQ(bind(listener_, where(), sizeof(address_)), 0);
        EXPECT_EQ(listen(listener_, 0), 0);
        while (connect(sockets_.emplace_back(open_socket()), where(), sizeof(address_)) == 0)
        {
            ++waiting_;
        }
        EXPECT_EQ(errno, EAGAIN);
    }
    busy_socket(const busy_socket &) = delete;
    busy_socket &operator=(const busy_socket &) = delete;
    busy_socket(busy_socket &&) = delete;
    busy_socket &operator=(busy_socket &&) = delete;

    ~busy_socket()
    {
        for (const int one : sockets_)
        {
            close(one);
        }
        close(listener_);
    }

    /** Accepts the host that has waited longest, so that another one can wait; returns the connection. */
    int accept_one()
    {
        --waiting_;
        return sockets_.emplace_back(accept(listener_, nullptr, nullptr));
    }

    /** Accepts all hosts that waited first, and then another one; returns its connection. */
    int accept_another()
    {
        while (waiting_ > 0)
        {
            accept_one();
        }
        return accept_one();
    }

private:
    static int open_socket()
    {
        return socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    }

    [[nodiscard]] const sockaddr *where() const
    {
        return reinterpret_cast<const sockaddr *>(&address_);
    }

    sockaddr_un address_{.sun_family = AF_UNIX, .sun_path = {}};
    int listener_ = open_socket();
    std::vector<int> sockets_; /**< of hosts, and accepted ones */
    int waiting_ = 0;          /**< hosts that were not accepted yet */
};

TEST(unix_link, ends_at_the_time_out_if_the_server_accepts_no_connection)
{
    const test::temporary_directory directory;
    const busy_socket server(directory / "radar");
    test::manual_clock clock;
    const auto loop = std::make_shared<test::manual_loop>(clock);
    EXPECT_THAT([&] { open_link(unix_address{directory / "radar"}, std::chrono::milliseconds(1234), loop); },
                ThrowsMessage<connect_error>(HasSubstr("timed out")));
    EXPECT_EQ(clock.now(), std::chrono::milliseconds(1234));
}

TEST(unix_link, connects_when_the_server_accepts_again)
{
    const test::temporary_directory directory;
    busy_socket server(directory / "radar");
    const auto loop = std::make_shared<event_loop>();
    int accepted = -1;
    loop->post([&] { accepted = server.accept_one(); });
    const auto link = open_link(unix_address{directory / "radar"}, std::chrono::minutes(1), loop);
    EXPECT_GE(accepted, 0);
    std::array<std::byte, 3> sent{std::byte{1}, std::byte{2}, std::byte{3}};
    link->write(sent, std::chrono::minutes(1));
    std::array<std::byte, 8> received{};
    EXPECT_EQ(read(server.accept_another(), received.data(), received.size()), 3);
}

TEST(unix_link, can_be_cancelled_while_it_connects)
{
    const test::temporary_directory directory;
    const busy_socket server(directory / "radar");
    const auto loop = std::make_shared<event_loop>();
    loop->cancel();
    EXPECT_THROW(open_link(unix_address{directory / "radar"}, std::chrono::minutes(1), loop), cancelled);
}

TEST(unix_link, reads_into_two_buffers_at_once)
{
    const test::temporary_directory directory;
    busy_socket server(directory / "radar");
    const auto loop = std::make_shared<event_loop>();
    loop->post([&] { server.accept_one(); });
    const auto link = open_link(unix_address{directory / "radar"}, std::chrono::minutes(1), loop);
    const int host = server.accept_another();
    ASSERT_EQ(send(host, "abcdef", 6, 0), 6);
    std::array<char, 8> first{};
    std::array<char, 8> second{};
    const auto part = std::as_writable_bytes(std::span(first)).first(2);
    EXPECT_EQ(link->read_both(part, std::as_writable_bytes(std::span(second)), std::chrono::minutes(1)), 6U);
    EXPECT_STREQ(first.data(), "ab");
    EXPECT_STREQ(second.data(), "cdef");
    EXPECT_EQ(link->read_both({}, std::as_writable_bytes(std::span(second)), std::chrono::milliseconds(0)),
              0U);
    shutdown(host, SHUT_RDWR);
    EXPECT_THROW(link->read_both(part, part, std::chrono::minutes(1)), connection_lost);
}

} // namespace
} // namespace vantor
