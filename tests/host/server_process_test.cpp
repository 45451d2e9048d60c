/** @file
 * Tests of starting a private server, with a stand-in for the program.
 */
#include "client/server_process.h"

#include <cstdlib>
#include <optional>
#include <utility>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "server_script.h"
#include "vantor/client.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

using testing::HasSubstr;
using testing::ThrowsMessage;

/** The end of a server's socket. */
class socket_end
{
public:
    explicit socket_end(server_process &server) : descriptor_(server.take_link())
    {
    }
    socket_end(const socket_end &) = delete;
    socket_end &operator=(const socket_end &) = delete;
    socket_end(socket_end &&) = delete;
    socket_end &operator=(socket_end &&) = delete;

    ~socket_end()
    {
        close(descriptor_);
    }

    /** Reads a line; without a line feed if the stream ends first. */
    [[nodiscard]] std::string line() const
    {
        std::string text;
        for (char byte = 0; !text.ends_with('\n') && read(descriptor_, &byte, 1) == 1;)
        {
            text += byte;
        }
        return text;
    }

private:
    int descriptor_;
};

TEST(server_process, gives_the_server_time_to_exit)
{
    std::optional<server_process> server(std::in_place, VANTOR_FAKE_PROGRAM,
                                         std::vector<std::string>{"--stdio", "--farewell"},
                                         std::chrono::minutes(1));
    const socket_end link(*server);
    EXPECT_EQ(link.line(), "ready\n");
    server.reset();
    EXPECT_EQ(link.line(), "farewell\n");
    EXPECT_EQ(link.line(), "");
    // No child process is left.
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST(server_process, kills_a_server_that_does_not_exit)
{
    std::optional<server_process> server(std::in_place, VANTOR_FAKE_PROGRAM,
                                         std::vector<std::string>{"--stdio", "--deaf"},
                                         std::chrono::milliseconds(1));
    const socket_end link(*server);
    EXPECT_EQ(link.line(), "ready\n");
    server.reset();
    EXPECT_EQ(link.line(), "");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST(server_process, closes_an_unused_socket)
{
    const auto count = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto before = count();
    server_process(VANTOR_FAKE_PROGRAM, {"--stdio", "--farewell"});
    EXPECT_EQ(count(), before);
}

TEST(server_process, reports_why_it_cannot_start)
{
    EXPECT_THAT([] { server_process("/does/not/exist", {}); },
                ThrowsMessage<connect_error>(HasSubstr("/does/not/exist")));
}

TEST(server_process, is_found_at_the_path_in_the_environment)
{
    setenv("VANTOR_SERVER", VANTOR_FAKE_PROGRAM, 1);
    EXPECT_EQ(find_server_program(), VANTOR_FAKE_PROGRAM);
    const client host(parse_address("sim:"));
    EXPECT_EQ(host.server().sensor, "k330");
    unsetenv("VANTOR_SERVER");
}

TEST(server_process, reports_a_server_that_exits_immediately)
{
    setenv("VANTOR_SERVER", VANTOR_FAKE_PROGRAM, 1);
    EXPECT_THAT([] { client(parse_address("sim:--refuse")); },
                ThrowsMessage<connection_lost>(HasSubstr("see the message that it printed")));
    unsetenv("VANTOR_SERVER");
}

TEST(server_process, is_run_for_its_output)
{
    setenv("VANTOR_SERVER", VANTOR_FAKE_PROGRAM, 1);
    EXPECT_EQ(output_of_server({"--check-scene", "--json", "--scene", "visitor"}),
              "--check-scene --json --scene visitor\n");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    unsetenv("VANTOR_SERVER");
}

TEST(server_process, is_started_again_by_reconnecting)
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
    std::filesystem::create_directory_symlink("circle", directory / "circle");
    setenv("PATH", ("/does/not/exist:" + (directory / "circle").string() + ":" + directory.string()).c_str(),
           1);
    EXPECT_EQ(find_server_program(), directory / "vantor_server");
    setenv("PATH", "/does/not/exist", 1);
    EXPECT_THROW(find_server_program(), connect_error);
    setenv("PATH", path.c_str(), 1);
    std::filesystem::remove_all(directory);
}

} // namespace
} // namespace vantor
