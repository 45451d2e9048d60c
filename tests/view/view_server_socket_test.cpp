/** @file
 * Tests of the WebSockets of the live view's web server.
 */
#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "raw_client.h"
#include "running_server.h"
#include "view/view_answers.h"

namespace vantor
{
namespace
{

using ::testing::ElementsAre;

/** A client whose WebSocket is open. */
class open_client : public raw_client
{
public:
    explicit open_client(const running_server &server, int receive_buffer = 0)
        : raw_client(server.port(), receive_buffer)
    {
        EXPECT_EQ(open_stream(running_server::token).status, 101U);
    }
};

/** Expects a close frame and the end of the connection. */
void expect_close(raw_client &client, unsigned code, const std::string &reason)
{
    const raw_frame frame = client.receive_message();
    EXPECT_EQ(frame.kind, frame_kind::close);
    EXPECT_EQ(frame.close_code(), code);
    EXPECT_EQ(frame.close_reason(), reason);
    client.send_frame(frame_kind::close, frame.payload);
    EXPECT_EQ(client.receive_frame().kind, frame_kind::none);
}

/** Messages of a size that a viewer is sent, one after the other. */
class message_stream
{
public:
    message_stream(running_server &server, uint64_t viewer, size_t size, unsigned count)
        : server_(server), viewer_(viewer), message_(std::make_shared<const std::string>(size, 'x')),
          left_(count)
    {
        server.handler.when_sent = [this](uint64_t sent) {
            if (sent == viewer_)
            {
                ++sent_;
                send_next();
            }
        };
        server.on_loop([this](view_server &) { send_next(); });
    }

    /** The messages that are written. */
    unsigned sent()
    {
        unsigned count = 0;
        server_.on_loop([&](view_server &) { count = sent_; });
        return count;
    }

private:
    void send_next()
    {
        if (left_ > 0)
        {
            --left_;
            // On the loop, where the server is.
            server_.send_on_loop(viewer_, message_);
        }
    }

    running_server &server_;
    uint64_t viewer_;
    std::shared_ptr<const std::string> message_;
    unsigned left_;
    unsigned sent_ = 0;
};

} // namespace

TEST(view_server_socket, opens_with_the_accept_key_and_all_headers)
{
    running_server server;
    raw_client client(server.port());
    const auto answer = client.open_stream(running_server::token);
    EXPECT_EQ(answer.status, 101U);
    // The example of RFC 6455.
    EXPECT_EQ(answer.header("Sec-WebSocket-Accept"), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
    for (const auto &[name, value] : view_headers())
    {
        EXPECT_EQ(answer.header(std::string(name)), value);
    }
    server.handler.wait_for("opened 1");
}

TEST(view_server_socket, refuses_a_websocket_without_a_key)
{
    const running_server server;
    raw_client client(server.port());
    const auto answer = client.request("/stream?token=" + std::string(running_server::token),
                                       "Connection: Upgrade\r\nUpgrade: websocket\r\n");
    EXPECT_EQ(answer.status, 400U);
    EXPECT_EQ(answer.header("Cache-Control"), "no-store");
}

TEST(view_server_socket, reports_each_event_of_a_viewer)
{
    running_server server;
    {
        open_client client(server);
        server.handler.wait_for("opened 1");
        client.send_frame(frame_kind::text, "{\"a\":1}");
        server.handler.wait_for("received 1: {\"a\":1}");
        server.send(1, view_message::text, "hello");
        server.handler.wait_for("sent 1");
        EXPECT_EQ(client.receive_message().payload, "hello");
    }
    server.handler.wait_for("closed 1");
    EXPECT_THAT(server.handler.calls(),
                ElementsAre("opened 1", "received 1: {\"a\":1}", "sent 1", "closed 1"));
    const open_client next(server);
    server.handler.wait_for("opened 2");
}

TEST(view_server_socket, sends_messages_of_every_size_as_one_frame)
{
    running_server server;
    open_client client(server);
    server.handler.wait_for("opened 1");
    for (const size_t size : {0U, 1U, 125U, 126U, 65535U, 65536U})
    {
        const std::string bytes(size, static_cast<char>(0xff));
        server.send(1, view_message::binary, bytes);
        const raw_frame frame = client.receive_message();
        EXPECT_EQ(frame.kind, frame_kind::binary);
        EXPECT_TRUE(frame.payload == bytes) << size;
    }
    server.send(1, view_message::text, "text");
    EXPECT_EQ(client.receive_message().kind, frame_kind::text);
}

TEST(view_server_socket, receives_messages_of_every_size_and_in_fragments)
{
    running_server server;
    open_client client(server);
    for (const size_t size : {0U, 125U, 126U, 65536U, 1048576U})
    {
        client.send_frame(frame_kind::text, std::string(size, 'y'));
        server.handler.wait_for("received 1: " + std::string(size, 'y'));
    }
    client.send_frame(frame_kind::text, "\xc3", false);
    client.send_frame(frame_kind::ping, "between");
    client.send_frame(frame_kind::continuation, "\xa4", true);
    server.handler.wait_for("received 1: \xc3\xa4");
    const raw_frame pong = client.receive_frame();
    EXPECT_EQ(pong.kind, frame_kind::pong);
    EXPECT_EQ(pong.payload, "between");
}

TEST(view_server_socket, keeps_the_order_of_messages)
{
    running_server server;
    open_client client(server);
    for (int i = 0; i < 500; ++i)
    {
        client.send_frame(frame_kind::text, std::to_string(i));
    }
    server.handler.wait_for("received 1: 499");
    const auto calls = server.handler.calls();
    ASSERT_EQ(calls.size(), 501U);
    for (size_t i = 0; i < 500; ++i)
    {
        EXPECT_EQ(calls[i + 1], "received 1: " + std::to_string(i));
    }
}

TEST(view_server_socket, closes_a_viewer_that_sends_what_it_must_not)
{
    running_server server;
    {
        open_client binary(server);
        binary.send_frame(frame_kind::binary, "bytes");
        expect_close(binary, 1003, "A viewer can send only text messages.");
    }
    server.handler.wait_for("closed 1");
    {
        open_client invalid(server);
        invalid.send_frame(frame_kind::text, "\xff\xfe");
        expect_close(invalid, 1007, "");
    }
    server.handler.wait_for("closed 2");
    {
        open_client unmasked(server);
        unmasked.send("\x81\x01x");
        expect_close(unmasked, 1002, "");
    }
    server.handler.wait_for("closed 3");
    EXPECT_THAT(server.handler.calls(),
                ElementsAre("opened 1", "closed 1", "opened 2", "closed 2", "opened 3", "closed 3"));
}

TEST(view_server_socket, closes_a_viewer_whose_message_is_too_long)
{
    running_server server;
    {
        open_client client(server);
        client.send_frame(frame_kind::text, std::string(20000000, 'x'));
        expect_close(client, 1009, "The message is longer than 1048576 bytes.");
    }
    server.handler.wait_for("closed 1");
    open_client fragments(server);
    fragments.send_frame(frame_kind::text, std::string(1048576, 'x'), false);
    fragments.send_frame(frame_kind::continuation, "x", false);
    const raw_frame frame = fragments.receive_message();
    EXPECT_EQ(frame.close_code(), 1009U);
    EXPECT_THAT(server.handler.calls(), ElementsAre("opened 1", "closed 1", "opened 2"));
}

TEST(view_server_socket, turns_viewers_beyond_the_limit_away_with_a_reason)
{
    view_limits limits;
    limits.viewers = 2;
    running_server server(limits);
    std::optional<open_client> first(std::in_place, server);
    server.handler.wait_for("opened 1");
    const open_client second(server);
    server.handler.wait_for("opened 2");
    open_client third(server);
    expect_close(third, 1013, "2 viewers are connected, which is the limit. Close one of them.");
    first.reset();
    server.handler.wait_for("closed 1");
    const open_client fourth(server);
    server.handler.wait_for("opened 4");
    EXPECT_THAT(server.handler.calls(), ElementsAre("opened 1", "opened 2", "closed 1", "opened 4"));
}

TEST(view_server_socket, a_viewer_that_reads_nothing_stops_no_other_and_is_sent_little)
{
    running_server server;
    const open_client stalled(server, 4096);
    server.handler.wait_for("opened 1");
    open_client other(server);
    server.handler.wait_for("opened 2");
    constexpr size_t size = 16384;
    message_stream flood(server, 1, size, 1000);
    for (int i = 0; i < 300; ++i)
    {
        server.send(2, view_message::text, std::to_string(i));
        EXPECT_EQ(other.receive_message().payload, std::to_string(i));
    }
    // The kernel takes twice the size of the socket's buffers; on loopback, both are on this machine.
    EXPECT_LE(flood.sent() * size, 4U << 20U);
    EXPECT_GT(flood.sent(), 0U);
}

TEST(view_server_socket, closes_a_viewer_with_the_given_reason)
{
    running_server server;
    {
        open_client client(server);
        server.handler.wait_for("opened 1");
        server.on_loop([](view_server &running) {
            const auto late = std::make_shared<const std::string>("late");
            running.close(1, "Another session began.");
            running.close(1, "again");
            running.send(1, view_message::text, late);
            running.close(7, "nobody");
            running.send(7, view_message::text, late);
        });
        expect_close(client, 1000, "Another session began.");
    }
    server.handler.wait_for("closed 1");
    EXPECT_THAT(server.handler.calls(), ElementsAre("opened 1", "closed 1"));
}

TEST(view_server_socket, shortens_a_long_reason_between_characters)
{
    running_server server;
    open_client client(server);
    server.handler.wait_for("opened 1");
    const std::string start(122, 'a');
    server.on_loop([&](view_server &running) { running.close(1, start + "\xc3\xa4 and more"); });
    expect_close(client, 1000, start);
}

TEST(view_server_socket, drops_a_viewer_that_does_not_confirm_its_end)
{
    view_limits limits;
    limits.request = std::chrono::milliseconds(200);
    running_server server(limits);
    const open_client silent(server);
    server.handler.wait_for("opened 1");
    const open_client stalled(server, 4096);
    server.handler.wait_for("opened 2");
    server.on_loop([](view_server &running) {
        running.close(1, "silent");
        running.send(2, view_message::binary, std::make_shared<const std::string>(10000000, 'x'));
        running.close(2, "stalled");
    });
    server.handler.wait_for("closed 1");
    server.handler.wait_for("closed 2");
}

TEST(view_server_socket, drops_a_viewer_that_answers_no_ping_but_no_other)
{
    view_limits limits;
    limits.silence = std::chrono::milliseconds(400);
    running_server server(limits);
    const open_client gone(server);
    server.handler.wait_for("opened 1");
    server.handler.wait_for("closed 1");
    // A busy machine may not let the client answer in time, so this one has longer.
    limits.silence = std::chrono::seconds(3);
    running_server patient(limits);
    open_client client(patient);
    for (int i = 0; i < 3; ++i)
    {
        const raw_frame ping = client.receive_frame();
        ASSERT_EQ(ping.kind, frame_kind::ping);
        client.send_frame(frame_kind::pong, ping.payload);
    }
    EXPECT_THAT(patient.handler.calls(), ElementsAre("opened 1"));
}

TEST(view_server_socket, confirms_the_end_that_a_viewer_asks_for)
{
    view_limits limits;
    limits.request = std::chrono::milliseconds(200);
    running_server server(limits);
    {
        open_client client(server);
        client.send_frame(frame_kind::close, "\x03\xe8");
        const raw_frame frame = client.receive_frame();
        EXPECT_EQ(frame.kind, frame_kind::close);
        EXPECT_EQ(frame.close_code(), 1000U);
    }
    server.handler.wait_for("closed 1");
    // This one does not close its connection.
    open_client open(server);
    open.send_frame(frame_kind::close, "\x03\xe8");
    server.handler.wait_for("closed 2");
}

TEST(view_server_socket, says_why_it_ends_and_waits_only_a_moment)
{
    running_server server;
    open_client polite(server);
    server.handler.wait_for("opened 1");
    const open_client silent(server);
    server.handler.wait_for("opened 2");
    raw_client unfinished(server.port());
    EXPECT_EQ(unfinished.request("/icon.svg").status, 200U);
    server.on_loop([](view_server &running) { running.end("vantor view was stopped."); });
    const raw_frame frame = polite.receive_message();
    EXPECT_EQ(frame.close_code(), 1001U);
    EXPECT_EQ(frame.close_reason(), "vantor view was stopped.");
    EXPECT_EQ(unfinished.receive_all(), "");
    EXPECT_THROW(raw_client(server.port()), std::runtime_error) << "nothing listens any more";
    EXPECT_THAT(server.handler.calls(), ElementsAre("opened 1", "opened 2"));
}

TEST(view_server_socket, closes_everything_when_it_is_destroyed)
{
    auto server = std::make_unique<running_server>();
    open_client client(*server);
    server->handler.wait_for("opened 1");
    raw_client idle(server->port());
    EXPECT_EQ(idle.request("/icon.svg").status, 200U);
    server.reset();
    EXPECT_EQ(client.receive_frame().kind, frame_kind::none);
    EXPECT_EQ(idle.receive_all(), "");
}

TEST(view_server_socket, ticks_four_times_a_second)
{
    running_server server;
    const auto start = std::chrono::steady_clock::now();
    server.handler.wait_for_ticks(4);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(750));
}

TEST(view_server_socket, belongs_to_the_board_in_its_target)
{
    view_limits limits;
    limits.viewers = 1;
    noting_handler second;
    running_server server(limits);
    server.on_loop([&](view_server &served) {
        served.add_board(second);
        EXPECT_EQ(served.boards(), 2U);
    });
    const std::string token = running_server::token;
    raw_client viewer(server.port());
    EXPECT_EQ(viewer.open_stream(token + "&board=2").status, 101U);
    second.wait_for("opened 1");
    viewer.send_frame(frame_kind::text, "to the second");
    second.wait_for("received 1: to the second");
    // The other board has places for viewers of its own.
    const open_client first(server);
    server.handler.wait_for("opened 2");
    EXPECT_THAT(server.handler.calls(), ElementsAre("opened 2"));
    second.wait_for_ticks(2);
    for (const char *wrong : {"0", "3", "x"})
    {
        raw_client refused(server.port());
        EXPECT_EQ(refused.open_stream(token + "&board=" + wrong).status, 404U) << wrong;
    }
}

} // namespace vantor
