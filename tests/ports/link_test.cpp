/** @file
 * Tests of the stream common to all links: how many calls of the system a message needs.
 */
#include "link.h"

#include <array>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace
{

/** Calls of sendmmsg in this program. */
int calls_with_pieces = 0;

} // namespace

// This replaces the function of the C library in this program.
extern "C" int sendmmsg(int descriptor, mmsghdr *messages, unsigned count, int flags)
{
    ++calls_with_pieces;
    return static_cast<int>(syscall(SYS_sendmmsg, descriptor, messages, count, flags));
}

namespace
{

/** A link whose host receives the data of each call of the system as one packet. */
class packet_link_t final : public link_t
{
public:
    packet_link_t()
    {
        // More than the largest message below.
        constexpr int buffer_size = 400000;
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends_.data()), 0);
        EXPECT_EQ(setsockopt(ends_[0], SOL_SOCKET, SO_SNDBUF, &buffer_size, sizeof(buffer_size)), 0);
        packet_link_t::accept_host();
    }

    ~packet_link_t() override
    {
        close(ends_[0]);
        close(ends_[1]);
    }

    std::string address() const override
    {
        return "packets";
    }

    bool accept_host() override
    {
        open(ends_[0], ends_[0]);
        return true;
    }

    void close_host() override
    {
        forget();
    }

    /** Returns the packets that the host has received. */
    std::vector<std::string> packets() const
    {
        std::vector<std::string> received;
        std::string packet(500000, '\0');
        for (ssize_t size = recv(ends_[1], packet.data(), packet.size(), 0); size > 0;
             size = recv(ends_[1], packet.data(), packet.size(), 0))
        {
            received.push_back(packet.substr(0, static_cast<size_t>(size)));
        }
        return received;
    }

private:
    std::array<int, 2> ends_{-1, -1};
};

/** Bytes that differ from their neighbours. */
std::string payload(size_t size)
{
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
    {
        bytes[i] = static_cast<char>(i % 251);
    }
    return bytes;
}

/** Writes a header as the server core does, and pieces of a payload; returns the message. */
std::string write_message(link_t &link, size_t pieces, size_t piece_size)
{
    std::string message;
    const auto write = [&](const std::string &piece) {
        message += piece;
        link.write(piece.data(), piece.size());
    };
    write(std::string(256, 'a'));
    write(std::string(40, 'b'));
    for (size_t i = 0; i < pieces; ++i)
    {
        write(payload(piece_size));
    }
    link.flush();
    return message;
}

TEST(link, sends_each_message_in_one_call)
{
    struct
    {
        size_t items;
        size_t piece_size;
    } const cases[] = {{1, 400}, {10, 7500}, {1, 300000}};
    for (const auto &[items, piece_size] : cases)
    {
        packet_link_t link;
        const std::string message = write_message(link, items, piece_size);
        EXPECT_EQ(link.packets(), std::vector{message}) << items << " items of " << piece_size << " bytes";
    }
}

TEST(link, sends_each_flushed_message_at_once)
{
    packet_link_t link;
    std::vector<std::string> messages;
    for (size_t i = 0; i < 3; ++i)
    {
        messages.push_back(write_message(link, 1, 100 + i));
    }
    EXPECT_EQ(link.packets(), messages);
}

/** A host that is connected to a link over a socket in the file system. */
class unix_link : public testing::Test
{
protected:
    unix_link()
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strcpy(static_cast<char *>(address.sun_path), path.c_str());
        EXPECT_EQ(connect(host, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        EXPECT_TRUE(link->accept_host());
    }

    ~unix_link() override
    {
        close(host);
        link.reset();
        std::filesystem::remove(std::filesystem::path(path).parent_path());
    }

    /** Reads a number of bytes. */
    std::string read(size_t size) const
    {
        std::string text(size, '\0');
        EXPECT_EQ(recv(host, text.data(), size, MSG_WAITALL), static_cast<ssize_t>(size));
        return text;
    }

    /** A path in a new directory. */
    static std::string new_path()
    {
        std::string directory = (std::filesystem::temp_directory_path() / "link_test.XXXXXX").string();
        EXPECT_NE(mkdtemp(directory.data()), nullptr);
        return directory + "/socket";
    }

    std::string path = new_path();
    std::unique_ptr<link_t> link = make_unix_link(path);
    int host = socket(AF_UNIX, SOCK_STREAM, 0);
};

TEST_F(unix_link, sends_a_message_in_one_call)
{
    for (const size_t size : {size_t{400}, size_t{65536}})
    {
        calls_with_pieces = 0;
        const std::string message = write_message(*link, 1, size);
        EXPECT_EQ(calls_with_pieces, 1) << size;
        EXPECT_EQ(read(message.size()), message);
    }
}

// A host that reads a little must not seem to have stalled.
TEST_F(unix_link, shows_the_system_each_4096_bytes_that_a_host_takes)
{
    write_message(*link, 1, 65536);
    int before = 0;
    ASSERT_EQ(ioctl(link->input(), TIOCOUTQ, &before), 0);
    for (int i = 0; i < 10; ++i)
    {
        read(4096);
        int after = 0;
        ASSERT_EQ(ioctl(link->input(), TIOCOUTQ, &after), 0);
        EXPECT_LT(after, before);
        before = after;
    }
}

} // namespace
