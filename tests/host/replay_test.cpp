/** @file
 * Tests of serving a recording: a host that records it gets the same samples.
 */
#include "replay/replay_server.h"

#include <atomic>
#include <thread>

#include <gmock/gmock.h>

#include "example_recording.h"
#include "fake_server.h"
#include "tcp_listener.h"
#include "temporary_directory.h"
#include "vantor/client.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;

/** A recording that is served to one host in a thread. */
class replay_thread
{
public:
    explicit replay_thread(std::uint32_t frames)
    {
        test::write_example_recording(directory_ / "out", frames);
        thread_ = std::thread([this] { serve(); });
    }
    replay_thread(const replay_thread &) = delete;
    replay_thread &operator=(const replay_thread &) = delete;

    ~replay_thread()
    {
        stop_ = true;
        thread_.join();
    }

    /** Where it listens. */
    [[nodiscard]] address where() const
    {
        return tcp_address{.host = "127.0.0.1", .port = listener_.port()};
    }

private:
    void serve()
    {
        session_reader recording(directory_ / "out");
        const auto host = listener_.accept();
        try
        {
            replay_server(recording, *host).run([this] { return stop_.load(); });
        }
        catch (const connection_lost &) // NOLINT(bugprone-empty-catch): the host goes when the test ends
        {
        }
    }

    test::temporary_directory directory_;
    tcp_listener listener_{0};
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

TEST(replay, says_what_the_recording_was_made_with)
{
    const replay_thread server(1);
    client host(server.where());
    EXPECT_EQ(host.server().sensor, "k330");
    EXPECT_THAT(host.server().connected_sensors, testing::ElementsAre(1, 2));
    EXPECT_EQ(host.server().ticks_per_second, 1000000.0);
    EXPECT_EQ(host.configure(json::object())->document, test::example_session().metadata);
    EXPECT_EQ(host.stats()["frames"], 0);
}

TEST(replay, sends_the_recorded_frames_at_their_pace)
{
    const replay_thread server(6);
    client host(server.where());
    host.configure(json::object());
    const auto begin = std::chrono::steady_clock::now();
    host.start();
    for (std::uint32_t number = 0; number < 6; ++number)
    {
        const auto received = host.receive_frame(5s);
        ASSERT_TRUE(received);
        const auto recorded = test::example_frame(number);
        EXPECT_THAT(received->samples(), testing::ElementsAreArray(recorded.samples()));
        EXPECT_EQ(received->items()[2].tick, recorded.items()[2].tick);
        EXPECT_EQ(received->items()[0].cca_value, recorded.items()[0].cca_value);
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
    host.stop();
}

TEST(replay, starts_over_with_ticks_that_go_on)
{
    const replay_thread server(3);
    client host(server.where());
    host.configure(json::object());
    for (std::uint32_t number = 0; number < 10; ++number)
    {
        EXPECT_EQ(host.single_frame().items()[0].tick, number * 20000U);
    }
}

TEST(replay, refuses_what_a_server_refuses)
{
    const replay_thread server(2);
    client host(server.where());
    const auto code_of = [](const auto &action) -> std::string {
        try
        {
            action();
        }
        catch (const server_error &failure)
        {
            return failure.code();
        }
        return "none";
    };
    EXPECT_EQ(code_of([&] { host.start(); }), "wrong_state");
    EXPECT_EQ(code_of([&] { host.single_frame(); }), "wrong_state");
    host.configure(json::object());
    EXPECT_EQ(code_of([&] { host.configure(json::object()); }), "wrong_state");
    EXPECT_EQ(code_of([&] { host.stop(); }), "wrong_state");
    EXPECT_EQ(code_of([&] { host.set_baudrate(9600); }), "baudrate_fixed");
    host.ping();
}

/** Sends a line and returns the code of the error that comes back. */
std::string code_after(link &connection, std::string_view line)
{
    connection.write(std::as_bytes(std::span(line)), 5s);
    message_parser parser;
    std::vector<std::byte> bytes(4096);
    while (true)
    {
        parser.feed(std::span(bytes).first(connection.read_some(bytes, 5s)));
        if (const auto received = parser.next())
        {
            return received->header.value("code", "none");
        }
    }
}

TEST(replay, goes_on_after_nonsense)
{
    const replay_thread server(1);
    const auto connection = open_link(server.where(), 5s);
    EXPECT_EQ(code_after(*connection, "nonsense\n"), "bad_json");
    EXPECT_EQ(code_after(*connection, "[]\n"), "bad_command");
    EXPECT_EQ(code_after(*connection, "{\"command\":1}\n"), "bad_command");
    EXPECT_EQ(code_after(*connection, "{\"command\":\"fly\"}\n"), "unknown_command");
    EXPECT_EQ(code_after(*connection, "{\"command\":\"configure\"}\n"), "bad_argument");
    EXPECT_EQ(code_after(*connection, "\r\n{\"command\":\"ping\"}\r\n"), "none");
}

TEST(tcp_listener, says_that_a_port_is_taken)
{
    const tcp_listener first(0);
    EXPECT_THROW(tcp_listener(first.port()), connect_error);
}

} // namespace
} // namespace vantor
