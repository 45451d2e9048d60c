/** @file
 * Tests that waiting for a server can be cancelled, and that it can be done outside the client.
 */
#include <thread>

#include <gmock/gmock.h>
#include <poll.h>

#include "client/tcp_listener.h"
#include "fake_server.h"
#include "manual_clock.h"
#include "vantor/client.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using test::example_session;
using test::fake_server;
using test::host_connection;
using test::patience;
using testing::ElementsAre;

TEST(cancel, ends_a_wait_that_has_begun)
{
    fake_server server;
    client *waiting = nullptr;
    // On the thread of the server. The client sent the command and waits, or is about to.
    server.on("ping", [&](host_connection &, const json &) { waiting->cancel(); });
    client host(parse_address(server.address()), patience);
    waiting = &host;
    EXPECT_THROW(host.ping(), cancelled);
    host.end();
    EXPECT_EQ(host.identify().sensor, "k330");
}

TEST(cancel, ends_the_next_wait_once_and_loses_no_frame)
{
    fake_server server;
    server.on("start", test::stream_frames(2));
    client host(parse_address(server.address()), patience);
    host.configure(example_session().configuration);
    host.start();
    host.cancel();
    std::vector<uint32_t> ticks;
    unsigned cancellations = 0;
    while (ticks.size() < 2)
    {
        try
        {
            ticks.push_back(host.receive_frame(60s).value().items()[0].tick);
        }
        catch (const cancelled &)
        {
            ++cancellations;
        }
    }
    EXPECT_THAT(ticks, ElementsAre(0, 20000));
    EXPECT_LE(cancellations, 1U);
    if (cancellations == 0)
    {
        // The frames had arrived together, so that there was no wait.
        EXPECT_THROW(host.receive_frame(60s), cancelled);
    }
    EXPECT_FALSE(host.receive_frame(0s));
}

TEST(cancel, does_not_end_a_wait_of_another_client_of_the_loop)
{
    const fake_server server;
    const fake_server other_server;
    const auto loop = std::make_shared<event_loop>();
    client host(parse_address(server.address()), patience, loop);
    client other(parse_address(other_server.address()), patience, loop);
    host.cancel();
    other.ping();
    EXPECT_THROW(host.ping(), cancelled);
    other.ping();
}

TEST(cancel, by_the_loop_ends_connecting)
{
    fake_server server;
    const auto loop = std::make_shared<event_loop>();
    server.on("end", [&](host_connection &, const json &) { loop->cancel(); });
    EXPECT_THROW(client(parse_address(server.address()), patience, loop), cancelled);
}

TEST(cancel, by_the_loop_ends_writing_to_a_server_that_does_not_read)
{
    const auto loop = std::make_shared<event_loop>();
    const tcp_listener listener(0);
    const auto connection = open_link(tcp_address{"127.0.0.1", listener.port()}, 60s, loop);
    loop->cancel();
    const std::vector<std::byte> bytes(size_t{1} << 26);
    EXPECT_THROW(connection->write(bytes, 60s), cancelled);
}

TEST(cancel, moves_no_clock)
{
    test::manual_clock clock;
    event_loop loop(clock.source());
    loop.cancel();
    EXPECT_FALSE(loop.run_until([] { return false; }, loop.now() + 1h));
    EXPECT_THROW(loop.check_cancelled(), cancelled);
    EXPECT_NO_THROW(loop.check_cancelled());
    EXPECT_EQ(clock.now(), 0s);
}

TEST(cancel, does_not_end_what_must_be_completed)
{
    event_loop loop;
    bool complete = false;
    loop.cancel();
    loop.post([&] { complete = true; });
    loop.run_to_end([&] { return complete; });
    EXPECT_TRUE(complete);
    EXPECT_THROW(loop.check_cancelled(), cancelled);
}

TEST(cancel, ends_only_waits_in_the_scope_of_its_flag)
{
    event_loop loop;
    bool requested = true;
    bool ran = false;
    loop.post([&] { ran = true; });
    {
        const event_loop::cancel_scope scope(loop, requested);
        EXPECT_FALSE(loop.run_until([&] { return ran; }, event_loop::time_point::max()));
    }
    EXPECT_NO_THROW(loop.check_cancelled());
    EXPECT_TRUE(loop.run_until([&] { return ran; }, event_loop::time_point::max()));
    const event_loop::cancel_scope scope(loop, requested);
    EXPECT_THROW(loop.check_cancelled(), cancelled);
    EXPECT_FALSE(requested);
}

TEST(descriptor, becomes_readable_when_a_frame_arrives)
{
    fake_server server;
    server.on("start", test::stream_frames(20));
    client host(parse_address(server.address()), patience);
    host.configure(example_session().configuration);
    host.start();
    for (uint32_t frames = 0; frames < 20;)
    {
        while (host.receive_frame(0s))
        {
            ++frames;
        }
        pollfd input{.fd = host.descriptor(), .events = POLLIN, .revents = 0};
        ASSERT_EQ(poll(&input, 1, frames < 20 ? 60000 : 0), frames < 20 ? 1 : 0);
    }
}

} // namespace
} // namespace vantor
