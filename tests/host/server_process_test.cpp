/** @file
 * Tests of starting a server of one's own, with a stand-in for the program.
 */
#include "server_process.h"

#include <cstdlib>

#include <gmock/gmock.h>
#include <signal.h>

#include "vantor/client.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::ThrowsMessage;

TEST(server_process, starts_a_server_and_reads_where_it_listens)
{
    const server_process server(VANTOR_FAKE_PROGRAM, {}, 10s);
    EXPECT_THAT(server.address(), testing::StartsWith("tcp:127.0.0.1:"));
    const client host(parse_address(server.address()));
    EXPECT_EQ(host.server().sensor, "k330");
}

TEST(server_process, ends_the_server_with_itself)
{
    std::string address;
    {
        const server_process server(VANTOR_FAKE_PROGRAM, {}, 10s);
        address = server.address();
    }
    EXPECT_THROW(client(parse_address(address)), connect_error);
}

TEST(server_process, says_why_it_cannot_start)
{
    EXPECT_THAT([] { server_process("/does/not/exist", {}, 10s); },
                ThrowsMessage<connect_error>(HasSubstr("/does/not/exist")));
    EXPECT_THAT([] { server_process(VANTOR_FAKE_PROGRAM, {"refuse"}, 10s); },
                ThrowsMessage<connect_error>(HasSubstr("ended before it listened")));
    EXPECT_THAT([] { server_process(VANTOR_FAKE_PROGRAM, {"mumble"}, 10s); },
                ThrowsMessage<connect_error>(HasSubstr("\"hello\"")));
    EXPECT_THAT([] { server_process(VANTOR_FAKE_PROGRAM, {"mute"}, 200ms); },
                ThrowsMessage<connect_error>(HasSubstr("200 ms")));
}

TEST(server_process, is_found_where_the_environment_says)
{
    setenv("VANTOR_SERVER", VANTOR_FAKE_PROGRAM, 1);
    EXPECT_EQ(find_server_program(), VANTOR_FAKE_PROGRAM);
    const client host(parse_address("sim:"));
    EXPECT_EQ(host.server().sensor, "k330");
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
