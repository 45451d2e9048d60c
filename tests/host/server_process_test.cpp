/** @file
 * Tests of starting a server of one's own, with a stand-in for the program.
 */
#include "server_process.h"

#include <cstdlib>

#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include "fake_server.h"
#include "vantor/client.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

using testing::HasSubstr;
using testing::ThrowsMessage;

/** Waits for the end of a stream of bytes. */
bool ends(int descriptor)
{
    pollfd waiting{.fd = descriptor, .events = POLLIN, .revents = 0};
    char byte = 0;
    return poll(&waiting, 1, 10000) == 1 && read(descriptor, &byte, 1) == 0;
}

TEST(server_process, ends_the_server_with_itself)
{
    int link = -1;
    {
        server_process server(VANTOR_FAKE_PROGRAM, {});
        link = server.take_link();
    }
    EXPECT_TRUE(ends(link));
    close(link);
}

TEST(server_process, says_why_it_cannot_start)
{
    EXPECT_THAT([] { server_process("/does/not/exist", {}); },
                ThrowsMessage<connect_error>(HasSubstr("/does/not/exist")));
}

TEST(server_process, is_found_where_the_environment_says)
{
    setenv("VANTOR_SERVER", VANTOR_FAKE_PROGRAM, 1);
    EXPECT_EQ(find_server_program(), VANTOR_FAKE_PROGRAM);
    const client host(parse_address("sim:"));
    EXPECT_EQ(host.server().sensor, "k330");
    unsetenv("VANTOR_SERVER");
}

TEST(server_process, a_server_that_ends_at_once_has_said_why)
{
    setenv("VANTOR_SERVER", VANTOR_FAKE_PROGRAM, 1);
    EXPECT_THAT([] { client(parse_address("sim:--refuse")); },
                ThrowsMessage<connection_lost>(HasSubstr("its own message says why")));
    unsetenv("VANTOR_SERVER");
}

TEST(server_process, a_new_one_is_started_by_reconnecting)
{
    setenv("VANTOR_SERVER", VANTOR_FAKE_PROGRAM, 1);
    client host(parse_address("sim:"));
    host.configure(test::example_session().configuration);
    host.reconnect();
    EXPECT_EQ(host.configure(test::example_session().configuration)->items.size(), 3U);
    unsetenv("VANTOR_SERVER");
}

TEST(server_process, is_found_in_path_or_not_at_all)
{
    const std::string path = std::getenv("PATH");
    const auto directory =
        std::filesystem::temp_directory_path() / ("vantor-path-" + std::to_string(getpid()));
    std::filesystem::create_directories(directory);
    std::filesystem::create_symlink(VANTOR_FAKE_PROGRAM, directory / "vantor_server");
    setenv("PATH", ("/does/not/exist:" + directory.string()).c_str(), 1);
    EXPECT_EQ(find_server_program(), directory / "vantor_server");
    setenv("PATH", "/does/not/exist", 1);
    EXPECT_THROW(find_server_program(), connect_error);
    setenv("PATH", path.c_str(), 1);
    std::filesystem::remove_all(directory);
}

} // namespace
} // namespace vantor
