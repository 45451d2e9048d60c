/** @file
 * Tests of serving a recording: a host gets the same samples at the same pace.
 */
#include "replay/replay_server.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <limits>
#include <thread>
#include <utility>

#include <gmock/gmock.h>

#include "client/tcp_listener.h"
#include "example_recording.h"
#include "replay/recorded_stream.h"
#include "scripted_line.h"
#include "server_script.h"
#include "temporary_directory.h"
#include "vantor/client.h"
#include "vantor/errors.h"
#include "vantor/recording_writer.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;

/** Serves a recording to one host in a thread. */
class replay_thread
{
public:
    explicit replay_thread(uint32_t frames)
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

    /** Its address. */
    [[nodiscard]] address where() const
    {
        return tcp_address{.host = "127.0.0.1", .port = listener_.port()};
    }

private:
    void serve()
    {
        recording_reader recording(directory_ / "out");
        const auto host = listener_.accept(1min);
        try
        {
            recorded_stream stream(recording, *loop_);
            replay_server(stream, *host, counts_).run([this] { return stop_.load(); });
        }
        catch (
            const connection_lost &) // NOLINT(bugprone-empty-catch): the host disconnects when the test ends
        {
        }
    }

    test::temporary_directory directory_;
    std::shared_ptr<event_loop> loop_ = std::make_shared<event_loop>();
    tcp_listener listener_{0, {}, loop_};
    replay_counts counts_;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

TEST(replay, identifies_as_the_recorded_server)
{
    const replay_thread server(1);
    client host(server.where());
    EXPECT_EQ(host.server().sensor, "k330");
    EXPECT_THAT(host.server().connected_sensors, testing::ElementsAre(1, 2));
    EXPECT_EQ(host.server().ticks_per_second, 1000000.0);
    EXPECT_EQ(host.server().configuration, test::example_session().configuration);
    EXPECT_EQ(host.configure(test::example_session().configuration)->document,
              test::example_session().metadata);
    EXPECT_EQ(host.stats()["frames"], 0);
}

TEST(replay, sends_the_recorded_frames)
{
    const replay_thread server(6);
    client host(server.where());
    host.configure(test::example_session().configuration);
    host.start();
    for (uint32_t number = 0; number < 6; ++number)
    {
        const auto received = host.receive_frame(60s);
        ASSERT_TRUE(received);
        const auto recorded = test::example_frame(number);
        EXPECT_THAT(received->samples(), testing::ElementsAreArray(recorded.samples()));
        EXPECT_EQ(received->items()[2].tick, recorded.items()[2].tick);
        EXPECT_EQ(received->items()[0].cca_value, recorded.items()[0].cca_value);
    }
    host.stop();
}

/** A host in virtual time, and the times at which it gets frames. */
class replay_pace : public testing::Test
{
protected:
    using moment = test::scripted_line::moment;

    /** Records a frame at each of the ticks, which are microseconds. */
    void record(const std::vector<uint32_t> &ticks)
    {
        const auto description = test::example_description();
        recording_writer writer(directory / "out", description);
        for (const auto tick : ticks)
        {
            message received;
            received.header = test::example_session().frame_header(0);
            received.header["result_info"][0][0]["tick"] = tick;
            received.payload.resize(test::example_session().frame_payload(0).size());
            writer.add(
                decode_frame(received, std::make_shared<const session_metadata>(description.metadata)));
        }
        writer.finish();
    }

    /** Serves the recording for a duration. */
    void serve(moment duration, double speed = 1.0)
    {
        recording_reader recording(directory / "out");
        replay_counts counts;
        recorded_stream stream(recording, loop,
                               {.speed = speed, .started_again = [this] { laps.push_back(clock.now()); }});
        replay_server server(stream, *host, counts);
        send(0ms, "configure");
        send(5ms, "start");
        server.run([&] {
            longest_pause = std::max(longest_pause, clock.now() - std::exchange(last_asked, clock.now()));
            return clock.now() >= duration;
        });
    }

    /** Makes the host send a command. */
    void send(moment when, const std::string &command)
    {
        json message = {{"command", command}};
        if (command == "configure")
        {
            message["configuration"] = test::example_session().configuration;
        }
        line.arrive(when, message.dump() + "\n");
    }

    /** The times at which the server started to write frames. */
    std::vector<moment> frames() const
    {
        std::vector<moment> moments;
        for (const auto &writing : line.written())
        {
            if (is_frame(writing.bytes))
            {
                moments.push_back(writing.when);
            }
        }
        return moments;
    }

    /** Whether bytes are a frame. */
    static bool is_frame(const std::string &bytes)
    {
        return bytes.starts_with("{\"result_info\"");
    }

    test::manual_clock clock;
    test::manual_loop loop{clock};
    test::scripted_line line{clock};
    std::unique_ptr<link> host = line.open();
    moment last_asked{};
    std::vector<moment> laps; /**< when the recording started again */
    moment longest_pause{};   /**< between two questions whether to stop */

private:
    test::temporary_directory directory;
};

TEST_F(replay_pace, is_that_of_the_recording)
{
    record({1000, 21000, 91000, 92000, 95000});
    serve(105ms);
    EXPECT_THAT(frames(), testing::ElementsAre(5ms, 25ms, 95ms, 96ms, 99ms));
}

TEST_F(replay_pace, is_never_early_between_milliseconds)
{
    record({0, 12500, 12999, 13001});
    serve(20ms);
    EXPECT_THAT(frames(), testing::ElementsAre(5ms, 18ms, 18ms, 19ms));
}

TEST_F(replay_pace, starts_again_after_the_last_frame)
{
    record({0, 20000, 40000});
    serve(130ms);
    EXPECT_THAT(frames(), testing::ElementsAre(5ms, 25ms, 45ms, 65ms, 85ms, 105ms, 125ms));
    EXPECT_THAT(laps, testing::ElementsAre(65ms, 125ms));
}

TEST_F(replay_pace, catches_up_after_a_host_that_was_slow)
{
    record({0, 20000, 40000, 60000, 80000, 100000});
    line.on_write([&](const std::string &bytes) {
        if (is_frame(bytes) && clock.now() == 25ms)
        {
            clock.advance(50ms);
        }
    });
    serve(106ms);
    EXPECT_THAT(frames(), testing::ElementsAre(5ms, 25ms, 75ms, 75ms, 85ms, 105ms));
}

TEST_F(replay_pace, is_multiplied_by_the_speed)
{
    record({0, 20000, 40000, 90000});
    serve(52ms, 2.0);
    EXPECT_THAT(frames(), testing::ElementsAre(5ms, 15ms, 25ms, 50ms));
}

TEST_F(replay_pace, is_slower_at_a_low_speed)
{
    record({0, 20000, 40000});
    serve(106ms, 0.4);
    EXPECT_THAT(frames(), testing::ElementsAre(5ms, 55ms, 105ms));
}

TEST_F(replay_pace, does_not_wait_at_infinite_speed)
{
    record({0, 20000, 60000000});
    line.on_write([&](const std::string &bytes) { clock.advance(is_frame(bytes) ? 1ms : 0ms); });
    serve(10ms, std::numeric_limits<double>::infinity());
    EXPECT_THAT(frames(), testing::ElementsAre(5ms, 6ms, 7ms, 8ms, 9ms));
}

TEST_F(replay_pace, is_not_changed_by_commands)
{
    record({0, 20000, 40000, 60000});
    send(11ms, "ping");
    send(25ms, "ping");
    send(30ms, "stats");
    serve(66ms);
    EXPECT_THAT(frames(), testing::ElementsAre(5ms, 25ms, 45ms, 65ms));
    EXPECT_EQ(line.written()[3].when, 11ms);
}

TEST_F(replay_pace, begins_again_with_every_start)
{
    record({0, 20000, 50000});
    send(30ms, "stop");
    send(200ms, "start");
    serve(240ms);
    EXPECT_THAT(frames(), testing::ElementsAre(5ms, 25ms, 200ms, 220ms));
}

TEST_F(replay_pace, can_be_stopped_ten_times_a_second)
{
    record({0, 10000000});
    serve(2s);
    EXPECT_EQ(longest_pause, 100ms);
    EXPECT_THAT(frames(), testing::ElementsAre(5ms));
}

TEST(replay, starts_again_with_continuing_ticks)
{
    const replay_thread server(3);
    client host(server.where());
    host.configure(test::example_session().configuration);
    for (uint32_t number = 0; number < 10; ++number)
    {
        EXPECT_EQ(host.single_frame().items()[0].tick, number * 20000U);
    }
}

TEST(replay, refuses_commands_like_a_server)
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
    host.configure(test::example_session().configuration);
    EXPECT_EQ(code_of([&] { host.configure(test::example_session().configuration); }), "wrong_state");
    EXPECT_EQ(code_of([&] { host.stop(); }), "wrong_state");
    EXPECT_EQ(code_of([&] { host.set_baudrate(9600); }), "baudrate_fixed");
    host.ping();
}

TEST(replay, refuses_a_configuration_that_measures_something_else)
{
    const replay_thread server(1);
    client host(server.where());
    auto configuration = test::example_session().configuration;
    configuration["groups"][0][1]["config"]["subsweeps"][1]["start_point"] = 480;
    EXPECT_THAT([&] { host.configure(configuration); },
                testing::ThrowsMessage<server_error>(testing::AllOf(
                    testing::StartsWith("/groups/0/1/config/subsweeps/1/start_point is 480, but in the "
                                        "recording it is 200. "),
                    testing::EndsWith("(configuration_refused)"))));
    // The server is still idle.
    host.configure(test::example_session().configuration);
}

/** Waits for the next message. */
json next_message(link &connection)
{
    message_parser parser;
    std::vector<std::byte> bytes(4096);
    while (true)
    {
        parser.feed(std::span(bytes).first(connection.read_some(bytes, 60s)));
        if (const auto received = parser.next())
        {
            return received->header;
        }
    }
}

/** Sends a line and returns the answer. */
json answer_to(link &connection, std::string_view line)
{
    connection.write(std::as_bytes(std::span(line)), 60s);
    return next_message(connection);
}

/** Sends a line and returns the error code in the answer. */
std::string code_after(link &connection, std::string_view line)
{
    return answer_to(connection, line).value("code", "none");
}

TEST(replay, continues_after_invalid_input)
{
    const replay_thread server(1);
    const auto connection = open_link(server.where(), 60s);
    EXPECT_EQ(code_after(*connection, "nonsense\n"), "bad_json");
    const std::string deep(300000, '[');
    EXPECT_EQ(code_after(*connection, "{\"command\":\"configure\",\"configuration\":" + deep + "\n"),
              "bad_json");
    EXPECT_EQ(code_after(*connection, "{\"command\":\"configure\",\"configuration\":" + deep +
                                          std::string(deep.size(), ']') + "}\n"),
              "bad_json");
    EXPECT_EQ(code_after(*connection, "[]\n"), "bad_command");
    EXPECT_EQ(code_after(*connection, "{\"command\":1}\n"), "bad_command");
    EXPECT_EQ(code_after(*connection, "{\"command\":\"fly\"}\n"), "unknown_command");
    EXPECT_EQ(code_after(*connection, "{\"command\":\"configure\"}\n"), "bad_argument");
    EXPECT_EQ(code_after(*connection, "\r\n{\"command\":\"ping\"}\r\n"), "none");
}

TEST(replay, ends_a_connection_that_sends_http)
{
    const replay_thread server(1);
    const auto connection = open_link(server.where(), 60s);
    const std::string_view request =
        "\r\nPOST /{\"a\":1} HTTP/1.1\r\nHost: localhost\r\n\r\n{\"command\":\"ping\"}\n";
    EXPECT_EQ(code_after(*connection, request), "wrong_protocol");
    std::vector<std::byte> bytes(1);
    EXPECT_THROW(connection->read_some(bytes, 60s), connection_lost);
}

TEST(replay, accepts_a_first_command_that_contains_http)
{
    const replay_thread server(1);
    const auto connection = open_link(server.where(), 60s);
    EXPECT_EQ(code_after(*connection, "{\"command\": \"GET / HTTP/1.1\"}\n"), "unknown_command");
}

TEST(replay, executes_nothing_for_clients_that_are_not_hosts)
{
    const std::string commands = "\n{\"command\":\"ping\"}\n";
    for (const std::string &request :
         {std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11) + commands,
          std::string("POST /x\r\n\r\n") + commands, std::string("POST /x http/1.1\r\n") + commands,
          std::string("\r\n\r\n POST / HTTP/1.1\r\n") + commands,
          std::string("POST\t/x\tHTTP/1.1\r\n") + commands,
          std::string("CONNECT a.b:443 HTTP/1.1\r\n") + commands,
          std::string("GET http://127.0.0.1/ \r\n") + commands, std::string("get  HttpS:x") + commands,
          std::string("OPTIONS * x\n") + commands, "GET " + std::string(1 << 21, 'x') + commands})
    {
        SCOPED_TRACE(request.substr(0, 40));
        const replay_thread server(1);
        const auto connection = open_link(server.where(), 60s);
        EXPECT_EQ(code_after(*connection, request), "wrong_protocol");
        std::vector<std::byte> bytes(1);
        EXPECT_THROW(connection->read_some(bytes, 60s), connection_lost);
    }
}

TEST(replay, answers_hosts_that_send_invalid_input_first)
{
    for (const std::string text :
         {"\x16", "\x16\x02\x03", "POST", "POST x", "GET ftp://x", "{\"a\": http://x", "{ / http:", "(x) /"})
    {
        const replay_thread server(1);
        const auto connection = open_link(server.where(), 60s);
        EXPECT_EQ(code_after(*connection, text + "\n"), "bad_json") << text;
    }
}

TEST(replay, recognises_clients_that_send_single_bytes)
{
    const std::string request = "POST x HTTP/";
    for (size_t length = 1; length < request.size(); ++length)
    {
        EXPECT_EQ(recognise_client(request.substr(0, length)), client_kind::unknown) << length;
    }
    EXPECT_EQ(recognise_client(request), client_kind::not_a_host);
    EXPECT_EQ(recognise_client(request.substr(0, 7) + "\nHTTP/"), client_kind::host);
    EXPECT_EQ(recognise_client("\x16"), client_kind::unknown);
    EXPECT_EQ(recognise_client("{"), client_kind::host);
}

TEST(replay, discards_the_rest_of_a_line_that_is_too_long)
{
    const replay_thread server(1);
    const auto connection = open_link(server.where(), 60s);
    const std::string ping = "{\"command\":\"ping\"}";
    EXPECT_EQ(code_after(*connection, "{" + std::string(1 << 20, ' ') + ping + "\n"), "line_too_long");
    EXPECT_EQ(answer_to(*connection, "{\"command\":\"stats\"}\n")["command"], "stats");
}

TEST(replay, refuses_wrong_members_of_commands)
{
    const replay_thread server(1);
    const auto connection = open_link(server.where(), 60s);
    for (const char *const command :
         {R"("ping","x":1)", R"("identify","sensor":1)", R"("log")", R"("log","level":"NONSENSE")",
          R"("log","level":1)", R"("log","level":"INFO","x":1)", R"("stats","x":1)", R"("start","x":1)",
          R"("stop","x":1)", R"("frame","x":1)", R"("end","x":1)", R"("baudrate")",
          R"("baudrate","baudrate":"x")", R"("configure")", R"("configure","configuration":[])",
          R"("configure","configuration":{},"x":1)"})
    {
        EXPECT_EQ(code_after(*connection, std::string("{\"command\":") + command + "}\n"), "bad_argument")
            << command;
    }
    EXPECT_EQ(code_after(*connection, "{\"command\":\"log\",\"level\":\"OFF\"}\n"), "none");
    EXPECT_EQ(code_after(*connection, "{\"command\":\"baudrate\",\"baudrate\":9600}\n"), "baudrate_fixed");
}

TEST_F(replay_pace, starts_with_the_first_frame_in_each_session)
{
    record({0, 20000, 40000});
    send(30ms, "end");
    send(31ms, "configure");
    send(35ms, "start");
    serve(94ms);
    EXPECT_THAT(frames(), testing::ElementsAre(5ms, 25ms, 35ms, 55ms, 75ms));
    EXPECT_THAT(laps, testing::IsEmpty());
}

TEST_F(replay_pace, is_counted)
{
    record({0, 20000, 40000});
    line.arrive(30ms, "nonsense\n");
    send(35ms, "stop");
    send(36ms, "stats");
    serve(40ms);
    const auto answers = line.written();
    ASSERT_EQ(answers.size(), 7U);
    EXPECT_EQ(json::parse(answers[5].bytes)["frames_left_out"], 0);
    auto stats = json::parse(answers[6].bytes);
    uint64_t sent = 0;
    for (size_t i = 0; i < 6; ++i)
    {
        sent += answers[i].bytes.size();
    }
    EXPECT_EQ(stats["bytes_sent"], sent);
    EXPECT_EQ(stats["bytes_received"],
              json({{"command", "configure"}, {"configuration", test::example_session().configuration}})
                      .dump()
                      .size() +
                  std::string("\n{\"command\":\"start\"}\nnonsense\n{\"command\":\"stop\"}\n"
                              "{\"command\":\"stats\"}\n")
                      .size());
    EXPECT_EQ(stats["frames"], 2);
    EXPECT_EQ(stats["frames_left_out"], 0);
    EXPECT_EQ(stats["errors"], json({{"bad_json", 1}}));
    EXPECT_EQ(stats["hosts_dropped"], 0);
}

/** The lines of each conversation with a replay in docs/protocol.md. */
std::vector<std::vector<std::string>> documented_conversations()
{
    std::ifstream document(VANTOR_PROTOCOL_DOCUMENT);
    std::vector<std::vector<std::string>> conversations;
    bool inside = false;
    for (std::string line; std::getline(document, line);)
    {
        if (line.starts_with("```"))
        {
            inside = line == "```conversation replay";
            conversations.resize(conversations.size() + (inside ? 1 : 0));
        }
        else if (inside)
        {
            conversations.back().push_back(line);
        }
    }
    return conversations;
}

/** Records the frame of the session in these conversations: one item of 100 points. */
void record_documented_session(const std::filesystem::path &directory)
{
    auto description = test::example_description();
    description.configuration = {{"groups", {{{{"sensor_id", 1}, {"config", {{"num_points", 100}}}}}}}};
    auto document = test::example_session().metadata;
    document["tick_period"] = 0;
    document["calibration_info"][0]["data"] = "9a010000" + std::string(472, '5');
    auto layout = document["metadata"][0][0];
    layout.update({{"frame_data_length", 100},
                   {"sweep_data_length", 100},
                   {"subsweep_data_offset", {0}},
                   {"subsweep_data_length", {100}}});
    document["metadata"] = {{layout}};
    description.metadata = decode_metadata(document);
    message received;
    auto item = test::example_session().frame_header(0)["result_info"][0][1];
    item.update(
        {{"tick", 48213}, {"temperature", 27}, {"utc_s", 1795455600.123457}, {"utc_bound_s", 0.000211}});
    received.header = test::example_session().frame_header(0);
    received.header["result_info"] = {{item}};
    received.payload.resize(400);
    recording_writer writer(directory, description);
    writer.add(decode_frame(received, std::make_shared<const session_metadata>(description.metadata)));
    writer.finish();
}

/** A message whose texts are shortened where those of an expected one end with an ellipsis. */
json shortened_like(const json &expected, json message)
{
    const std::string ellipsis = "…";
    const auto values = expected.flatten();
    for (const auto &[place, value] : values.items())
    {
        const auto text = value.is_string() ? value.get<std::string>() : "";
        if (text.ends_with(ellipsis))
        {
            auto &shortened = message.at(json::json_pointer(place));
            shortened = shortened.get<std::string>().substr(0, text.size() - ellipsis.size()) + ellipsis;
        }
    }
    return message;
}

/** Replays a recording to a host that sends the lines with >, and expects those with <. */
void expect_conversation(const std::filesystem::path &directory, const std::vector<std::string> &lines)
{
    test::manual_clock clock;
    test::manual_loop loop(clock);
    test::scripted_line line(clock);
    const auto host = line.open();
    std::vector<json> expected;
    for (const auto &text : lines)
    {
        if (text.starts_with("> "))
        {
            line.arrive(0ms, text.substr(2) + "\n");
        }
        else if (text != "< (400 bytes)")
        {
            expected.push_back(json::parse(text.substr(2)));
        }
    }
    recording_reader recording(directory);
    replay_counts counts;
    recorded_stream stream(recording, loop);
    replay_server(stream, *host, counts).run([&] { return clock.now() > 0ms; });
    const auto written = line.written();
    ASSERT_EQ(written.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i)
    {
        const auto header = written[i].bytes.substr(0, written[i].bytes.find('\n') + 1);
        const auto message = json::parse(header);
        EXPECT_EQ(shortened_like(expected[i], message), expected[i]);
        EXPECT_EQ(written[i].bytes.size() - header.size(), message["payload_size"]);
    }
}

TEST(replay, converses_as_documented)
{
    const test::temporary_directory directory;
    record_documented_session(directory / "out");
    const auto conversations = documented_conversations();
    EXPECT_EQ(conversations.size(), 2U);
    for (const auto &lines : conversations)
    {
        expect_conversation(directory / "out", lines);
    }
}

TEST(tcp_listener, reports_that_a_port_is_in_use)
{
    const tcp_listener first(0);
    EXPECT_THROW(tcp_listener(first.port()), error);
}

constexpr const char *busy = "{\"status\":\"error\",\"code\":\"busy\",\"payload_size\":0}\n";

/** A listener on the same loop as the hosts that connect to it. */
class busy_listener : public testing::Test
{
protected:
    /** Connects a host. */
    std::unique_ptr<link> connect()
    {
        return open_link(where, 60s, loop);
    }

    std::shared_ptr<event_loop> loop = std::make_shared<event_loop>();
    tcp_listener listener{0, busy, loop};
    tcp_address where{.host = "127.0.0.1", .port = listener.port()};
    std::vector<std::byte> bytes = std::vector<std::byte>(100);
};

TEST_F(busy_listener, keeps_a_host_that_connects_after_the_first_one_has_left)
{
    auto first = connect();
    const auto served = listener.accept(60s);
    first.reset();
    const auto second = connect();
    EXPECT_THROW(served->read_some(bytes, 60s), connection_lost);
    EXPECT_NE(listener.accept(60s), nullptr);
}

TEST_F(busy_listener, turns_other_hosts_away_with_a_message)
{
    const auto first = connect();
    const auto second = connect();
    const auto served = listener.accept(60s);
    second->write(std::as_bytes(std::span(std::string_view("{\"command\":\"ping\"}\n"))), 60s);
    EXPECT_EQ(next_message(*second)["code"], "busy");
    EXPECT_THROW(second->read_some(bytes, 60s), connection_lost);
    EXPECT_EQ(first->read_some(bytes, 0s), 0U);
}

TEST_F(busy_listener, turns_them_away_while_the_first_one_does_not_read)
{
    auto first = open_link(where, 60s);
    const auto served = listener.accept(60s);
    std::thread writer([&] {
        const std::vector<std::byte> much(size_t{1} << 26);
        EXPECT_THROW(served->write(much, 600s), connection_lost);
    });
    const auto second = open_link(where, 60s);
    EXPECT_EQ(next_message(*second)["code"], "busy");
    first.reset();
    writer.join();
}

TEST(tcp_listener, lets_a_host_wait_without_a_message)
{
    const auto loop = std::make_shared<event_loop>();
    tcp_listener listener(0, {}, loop);
    const tcp_address where{.host = "127.0.0.1", .port = listener.port()};
    const auto first = open_link(where, 60s, loop);
    const auto second = open_link(where, 60s, loop);
    auto served = listener.accept(60s);
    first->write(std::as_bytes(std::span(std::string_view("first"))), 60s);
    std::vector<std::byte> bytes(100);
    EXPECT_EQ(served->read_some(bytes, 60s), 5U);
    served.reset();
    served = listener.accept(60s);
    second->write(std::as_bytes(std::span(std::string_view("second"))), 60s);
    EXPECT_EQ(served->read_some(bytes, 60s), 6U);
}

} // namespace
} // namespace vantor
