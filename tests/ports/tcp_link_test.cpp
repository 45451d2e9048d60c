/** @file
 * Tests of the link over TCP: how the system watches the connection.
 */
#include <arpa/inet.h>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "link.h"

namespace
{

class tcp_link : public testing::Test
{
protected:
    ~tcp_link() override
    {
        close(host);
    }

    /** Connects a host. */
    void connect_host() const
    {
        const std::string where = link->address();
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(std::stoul(where.substr(where.rfind(':') + 1))));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(connect(host, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        ASSERT_TRUE(link->accept_host());
    }

    /** Returns an option of the server's side of the connection. */
    int option(int level, int name) const
    {
        int value = -1;
        socklen_t size = sizeof(value);
        EXPECT_EQ(getsockopt(link->input(), level, name, &value, &size), 0);
        return value;
    }

    std::unique_ptr<link_t> link = make_tcp_link("127.0.0.1", 0);
    int host = socket(AF_INET, SOCK_STREAM, 0);
};

TEST_F(tcp_link, disconnects_an_idle_host_a_minute_after_its_machine_has_vanished)
{
    connect_host();
    EXPECT_NE(option(SOL_SOCKET, SO_KEEPALIVE), 0);
    const int idle = option(IPPROTO_TCP, TCP_KEEPIDLE);
    EXPECT_EQ(idle + option(IPPROTO_TCP, TCP_KEEPCNT) * option(IPPROTO_TCP, TCP_KEEPINTVL), 60);
}

TEST_F(tcp_link, disconnects_a_host_a_minute_after_its_machine_has_vanished_with_data)
{
    link->set_stall_limit(10000000);
    connect_host();
    EXPECT_EQ(option(IPPROTO_TCP, TCP_USER_TIMEOUT), 60000);
}

TEST_F(tcp_link, lets_the_system_not_disconnect_a_host_that_may_accept_nothing_for_longer)
{
    for (const int64_t limit_us : {int64_t{0}, int64_t{30000001}})
    {
        link->set_stall_limit(limit_us);
        connect_host();
        EXPECT_EQ(option(IPPROTO_TCP, TCP_USER_TIMEOUT), 0);
        link->close_host();
        close(host);
        host = socket(AF_INET, SOCK_STREAM, 0);
    }
}

} // namespace
