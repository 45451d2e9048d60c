/** @file
 * Tests of the link over a pseudo-terminal: what happens between two hosts.
 */
#include <array>
#include <fcntl.h>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>

#include <gtest/gtest.h>

#include "link.h"

#include "zet_integration_log.h"

void zet_integration_log(zet_log_level_t /*level*/, const char * /*module*/, const char * /*format*/, ...)
{
}

namespace
{

class serial_link : public testing::Test
{
protected:
    /** Opens the terminal as a host does. */
    int open_host() const
    {
        const int host =
            open(link->address().substr(std::string_view("serial:").size()).c_str(), O_RDWR | O_NOCTTY);
        EXPECT_GE(host, 0);
        return host;
    }

    static void write_as(int host, std::string_view text)
    {
        EXPECT_EQ(write(host, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    /** Reads what the host has written, until it is all there. A lost byte is detected after ten seconds. */
    std::string read(size_t size) const
    {
        std::string text;
        std::array<char, 100> piece;
        while (text.size() < size && wait_for(link->input(), POLLIN, 10000000) == wait_result_t::ready)
        {
            text.append(piece.data(), link->read(piece.data(), piece.size()));
        }
        return text;
    }

    std::unique_ptr<link_t> link = make_pty_link();
};

TEST_F(serial_link, keeps_what_the_next_host_writes_before_the_last_one_is_missed)
{
    for (int i = 0; i < 100; ++i)
    {
        const int first = open_host();
        ASSERT_TRUE(link->accept_host());
        write_as(first, "first");
        EXPECT_EQ(read(5), "first");
        close(first);
        const int second = open_host();
        write_as(second, "second");
        link->close_host();
        ASSERT_TRUE(link->accept_host());
        ASSERT_EQ(read(6), "second");
        link->close_host();
        close(second);
    }
}

} // namespace
