/** @file
 * Tests of the client: on a real TCP connection and a real serial line, and in virtual time.
 */
#include "vantor/client.h"

#include <atomic>
#include <cstdlib>
#include <future>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <termios.h>
#include <unistd.h>

#include "fake_server.h"
#include "scripted_server.h"
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
using testing::HasSubstr;
using testing::ThrowsMessage;

/** A client of a fake server. */
client connect(const fake_server &server, client_timeouts timeouts = patience)
{
    return client(parse_address(server.address()), timeouts);
}

TEST(client, finds_an_idle_server_and_identifies_it)
{
    const fake_server server;
    const auto host = connect(server);
    EXPECT_EQ(host.server().sensor, "k330");
    EXPECT_THAT(host.server().connected_sensors, ElementsAre(1, 2));
}

TEST(client, drops_messages_of_an_earlier_session)
{
    fake_server server;
    server.on("end", [](host_connection &host, const json &) {
        host.send("rest of a payload\nand more\n");
        host.send(example_session().frame_header(3), example_session().frame_payload(3));
        host.send({{"status", "error"}, {"code", "bad_json"}, {"message", "…"}, {"payload_size", 0}}, "");
        host.send({{"status", "ok"}, {"command", "end"}, {"payload_size", 0}}, "");
    });
    EXPECT_EQ(connect(server).server().sensor, "k330");
}

TEST(client, reports_that_the_server_is_busy)
{
    fake_server server;
    server.on("end", [](host_connection &host, const json &) {
        host.send({{"status", "error"}, {"code", "busy"}, {"message", "Wait."}, {"payload_size", 0}}, "");
        host.close();
    });
    EXPECT_THAT([&] { connect(server); }, ThrowsMessage<server_error>(HasSubstr("busy")));
}

TEST(client, refuses_another_protocol_version)
{
    fake_server server;
    server.on("identify", [](host_connection &host, const json &) {
        host.send({{"status", "ok"},
                   {"command", "identify"},
                   {"payload_size", 0},
                   {"server_version", "9"},
                   {"protocol_version", 2},
                   {"sensor", "k330"},
                   {"sensor_count", 0},
                   {"connected_sensors", json::array()},
                   {"ticks_per_second", 1},
                   {"max_baudrate", 0}},
                  "");
    });
    EXPECT_THAT([&] { connect(server); }, ThrowsMessage<protocol_error>(HasSubstr("version 2")));
}

TEST(client, reports_that_nothing_listens)
{
    std::string address;
    {
        const fake_server server;
        address = server.address();
    }
    EXPECT_THAT([&] { client host(parse_address(address)); },
                ThrowsMessage<connect_error>(HasSubstr("vantor_server")));
    EXPECT_THROW(client(parse_address("serial:/dev/does-not-exist")), connect_error);
}

TEST(client, runs_a_session)
{
    fake_server server;
    server.on("start", test::stream_frames(3));
    auto host = connect(server);
    const auto configuration = example_session().configuration;
    const auto metadata = host.configure(configuration);
    EXPECT_EQ(metadata->items.size(), 3U);
    host.start();
    for (uint32_t number = 0; number < 3; ++number)
    {
        const auto received = host.receive_frame(60s);
        ASSERT_TRUE(received);
        EXPECT_EQ(received->items()[0].tick, number * 20000);
    }
    host.stop();
    host.end();
    EXPECT_EQ(test::last_command(server.lines(), "configure")["configuration"], configuration);
}

TEST(client, measures_single_frames)
{
    const fake_server server;
    auto host = connect(server);
    host.configure(example_session().configuration);
    EXPECT_EQ(host.single_frame().items().size(), 3U);
}

TEST(client, passes_on_frames_before_the_answer_to_stop)
{
    fake_server server;
    server.on("start", test::stream_frames(5));
    auto host = connect(server);
    host.configure(example_session().configuration);
    host.start();
    std::vector<uint32_t> ticks;
    host.stop([&](frame &&received) { ticks.push_back(received.items()[0].tick); });
    EXPECT_THAT(ticks, ElementsAre(0, 20000, 40000, 60000, 80000));
    host.ping();
}

TEST(client, passes_on_log_lines)
{
    fake_server server;
    server.on("ping", [](host_connection &host, const json &command) {
        host.send({{"status", "log"},
                   {"level", "INFO"},
                   {"module", "core"},
                   {"message", "hello"},
                   {"payload_size", 0}},
                  "");
        host.send({{"status", "ok"}, {"command", command["command"]}, {"payload_size", 0}}, "");
    });
    auto host = connect(server);
    std::vector<std::string> seen;
    host.forward_log("INFO", [&](const log_line &line) {
        seen.push_back(line.level + " " + line.module + " " + line.text);
    });
    host.ping();
    EXPECT_THAT(seen, ElementsAre("INFO core hello"));
    EXPECT_EQ(test::last_command(server.lines(), "log"), json({{"command", "log"}, {"level", "INFO"}}));
}

TEST(client, reports_errors_of_the_server)
{
    fake_server server;
    server.on("configure", [](host_connection &host, const json &) {
        host.send({{"status", "error"},
                   {"code", "invalid_prf"},
                   {"message", "Choose another \"prf\"."},
                   {"payload_size", 0}},
                  "");
    });
    auto host = connect(server);
    try
    {
        host.configure(json::object());
        FAIL() << "not refused";
    }
    catch (const server_error &failure)
    {
        EXPECT_EQ(failure.code(), "invalid_prf");
        EXPECT_EQ(failure.message(), "Choose another \"prf\".");
        EXPECT_STREQ(failure.what(), "Choose another \"prf\". (invalid_prf)");
    }
    host.ping();
}

TEST(client, reports_an_error_that_ends_the_stream)
{
    fake_server server;
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(1)(host, command);
        host.send({{"status", "error"},
                   {"code", "nox_data"},
                   {"message", "The sensor is silent."},
                   {"payload_size", 0}},
                  "");
    });
    auto host = connect(server);
    host.configure(example_session().configuration);
    host.start();
    EXPECT_TRUE(host.receive_frame(60s));
    EXPECT_THROW(host.receive_frame(60s), server_error);
    host.end();
}

TEST(client, continues_after_a_damaged_message)
{
    fake_server server;
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(1)(host, command);
        host.send("{\"status\":\"ok\",\"payl\n");
        host.send(example_session().frame_header(2), example_session().frame_payload(2));
    });
    auto host = connect(server);
    host.configure(example_session().configuration);
    host.start();
    EXPECT_TRUE(host.receive_frame(60s));
    const auto position = host.bytes_received();
    try
    {
        host.receive_frame(60s);
        FAIL() << "no fault";
    }
    catch (const bad_message &fault)
    {
        EXPECT_GE(fault.position(), position);
        EXPECT_LT(fault.position(), position + 22);
    }
    EXPECT_EQ(host.receive_frame(60s)->items()[0].tick, 40000U);
}

/** The example frames before and after one with a damaged digit in its "payload_size". */
void stream_with_a_damaged_digit(host_connection &host, const json &command)
{
    test::stream_frames(1)(host, command);
    auto damaged = example_session().frame_header(1).dump();
    damaged[damaged.find("380")] = '9';
    host.send(damaged + "\n" + example_session().frame_payload(1));
    for (uint32_t number = 2; number < 20; ++number)
    {
        host.send(example_session().frame_header(number), example_session().frame_payload(number));
    }
}

TEST(client, loses_one_frame_to_a_damaged_digit_of_its_payload_size)
{
    fake_server server;
    server.on("start", stream_with_a_damaged_digit);
    auto host = connect(server);
    host.configure(example_session().configuration);
    host.start();
    EXPECT_TRUE(host.receive_frame(60s));
    EXPECT_THAT([&] { host.receive_frame(60s); },
                ThrowsMessage<bad_message>(HasSubstr("\"payload_size\" is 980, but every frame of this "
                                                     "session has 380 bytes of samples")));
    for (uint32_t number = 2; number < 20; ++number)
    {
        EXPECT_EQ(host.receive_frame(60s)->items()[0].tick, number * 20000);
    }
}

/** Sends frames with a wrong "payload_size". */
void send_damaged_frames(host_connection &host, uint32_t count)
{
    for (uint32_t number = 0; number < count; ++number)
    {
        auto header = example_session().frame_header(number);
        header["payload_size"] = 376;
        host.send(header.dump() + "\n" + example_session().frame_payload(number));
    }
}

/** A reaction to "configure": a session whose frames are measured as fast as possible. */
void configure_without_pace(host_connection &host, const json & /*command*/)
{
    auto metadata = example_session().metadata;
    metadata["tick_period"] = 0;
    host.send(metadata, "");
}

/** The example configuration without a rate. */
json configuration_without_pace()
{
    auto configuration = example_session().configuration;
    configuration.erase("update_rate");
    configuration.erase("max_update_rate");
    return configuration;
}

TEST(client, counts_every_damaged_message_if_no_rate_is_known)
{
    fake_server server;
    server.on("configure", configure_without_pace);
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(1)(host, command);
        send_damaged_frames(host, 3);
        host.send(example_session().frame_header(4), example_session().frame_payload(4));
    });
    auto host = connect(server);
    host.configure(configuration_without_pace());
    host.start();
    EXPECT_EQ(host.receive_frame(60s)->missing(), 0U);
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_THROW(host.receive_frame(60s), bad_message);
    }
    EXPECT_EQ(host.receive_frame(60s)->missing(), 3U);
}

/** Sends a frame before which some are missing, as its header says. */
void send_frame_after(host_connection &host, uint32_t missing, uint32_t number)
{
    auto header = example_session().frame_header(number);
    header["missing"] = missing;
    host.send(header, example_session().frame_payload(number));
}

/** A stream in which frames were lost on the way to the server, or damaged after it. */
void send_frames_with_losses(host_connection &host, const json &command)
{
    test::stream_frames(0)(host, command);
    send_frame_after(host, 2, 10);
    send_frame_after(host, 0, 11);
    send_frame_after(host, 3, 12);
    send_damaged_frames(host, 1);
    send_frame_after(host, 5, 13);
    host.send(example_session().frame_header(14), example_session().frame_payload(14));
}

/** How many frames are missing before each frame of that stream. */
std::vector<uint64_t> receive_missing(client &host)
{
    std::vector<uint64_t> missing;
    while (missing.size() < 5)
    {
        try
        {
            missing.push_back(host.receive_frame(60s).value().missing());
        }
        catch (const bad_message &) // NOLINT(bugprone-empty-catch): it counts as missing
        {
        }
    }
    return missing;
}

TEST(client, counts_frames_that_were_lost_before_the_server_if_no_rate_is_known)
{
    fake_server server;
    server.on("configure", configure_without_pace);
    server.on("start", send_frames_with_losses);
    auto host = connect(server);
    host.configure(configuration_without_pace());
    host.start();
    EXPECT_THAT(receive_missing(host), ElementsAre(2, 2, 5, 11, 11));
}

TEST(client, counts_frames_by_ticks_if_the_rate_is_known)
{
    fake_server server;
    server.on("start", send_frames_with_losses);
    auto host = connect(server);
    host.configure(example_session().configuration);
    host.start();
    // Only those before the first frame cannot be counted by ticks.
    EXPECT_THAT(receive_missing(host), ElementsAre(2, 2, 2, 2, 2));
}

TEST(client, sends_stop_once_although_messages_before_its_answer_are_damaged)
{
    fake_server server;
    server.on("configure", configure_without_pace);
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(1)(host, command);
        send_damaged_frames(host, 2);
        host.send(example_session().frame_header(3), example_session().frame_payload(3));
    });
    auto host = connect(server);
    host.configure(configuration_without_pace());
    host.start();
    std::vector<uint64_t> missing;
    const auto stop = [&] { host.stop([&](frame &&received) { missing.push_back(received.missing()); }); };
    EXPECT_THROW(stop(), bad_message);
    EXPECT_THROW(stop(), bad_message);
    stop();
    EXPECT_THAT(missing, ElementsAre(0, 2));
    EXPECT_THAT(server.lines(), testing::Contains(R"({"command":"stop"})").Times(1));
    host.ping();
}

TEST(client, refuses_a_frame_of_another_length)
{
    fake_server server;
    server.on("frame", [](host_connection &host, const json &) {
        auto header = example_session().frame_header(0);
        header["payload_size"] = 4;
        host.send(header, "abcd");
    });
    auto host = connect(server);
    host.configure(example_session().configuration);
    for (int i = 0; i < 2; ++i)
    {
        const auto position = host.bytes_received();
        try
        {
            host.single_frame();
            FAIL() << "not refused";
        }
        catch (const bad_message &fault)
        {
            // The payload of the first one is skipped with the second one.
            EXPECT_EQ(fault.position(), position + (i == 0 ? 0 : 4));
            EXPECT_THAT(fault.what(), HasSubstr("\"payload_size\" is 4,"));
            EXPECT_THAT(fault.what(), testing::EndsWith(" 380 bytes of samples."));
        }
    }
}

TEST(client, refuses_metadata_of_another_number_of_items)
{
    fake_server server;
    server.on("configure", [](host_connection &host, const json &) {
        auto metadata = example_session().metadata;
        metadata["metadata"][0].push_back(metadata["metadata"][0][0]);
        host.send(metadata, "");
    });
    auto host = connect(server);
    EXPECT_THAT([&] { host.configure(example_session().configuration); },
                ThrowsMessage<protocol_error>(
                    HasSubstr("The session metadata describe 4 items, but the configuration has 3")));
}

TEST(client, refuses_metadata_of_other_subsweeps)
{
    for (const auto &lengths : {json{10, 14}, json{25}, json{5, 10, 10}})
    {
        fake_server server;
        server.on("configure", [&](host_connection &host, const json &) {
            auto metadata = example_session().metadata;
            auto &item = metadata["metadata"][0][1];
            item["subsweep_data_length"] = lengths;
            item["subsweep_data_offset"] = json::array();
            for (int offset = 0; const int length : lengths)
            {
                item["subsweep_data_offset"].push_back(std::exchange(offset, offset + length));
            }
            host.send(metadata, "");
        });
        auto host = connect(server);
        EXPECT_THAT([&] { host.configure(example_session().configuration); },
                    ThrowsMessage<protocol_error>(
                        HasSubstr("other sub-sweeps than the configuration requests, in group 1, item 2")));
    }
}

TEST(client, accepts_metadata_of_items_that_it_cannot_use)
{
    const fake_server server;
    auto host = connect(server);
    auto configuration = example_session().configuration;
    configuration["groups"][0][0]["config"] = nullptr;
    EXPECT_EQ(host.configure(configuration)->items.size(), 3U);
}

TEST(client, refuses_unexpected_messages)
{
    fake_server server;
    server.on("ping", [](host_connection &host, const json &) {
        host.send({{"status", "ok"}, {"command", "pong"}, {"payload_size", 0}}, "");
    });
    server.on("frame", [](host_connection &host, const json &) {
        host.send({{"status", "ok"}, {"command", "frame"}, {"payload_size", 0}}, "");
    });
    auto host = connect(server);
    EXPECT_THROW(host.ping(), protocol_error);
    EXPECT_THROW(host.single_frame(), protocol_error);
}

TEST(client, detects_a_closed_connection_and_reconnects)
{
    fake_server server;
    server.on("ping", [](host_connection &host, const json &) { host.close(); });
    auto host = connect(server);
    EXPECT_THROW(host.ping(), connection_lost);
    host.reconnect();
    EXPECT_EQ(host.configure(example_session().configuration)->items.size(), 3U);
}

/** A link that is not closed before it is released. */
class held_link : public link
{
public:
    held_link(std::unique_ptr<link> connection, std::shared_future<void> released)
        : connection_(std::move(connection)), released_(std::move(released))
    {
    }
    held_link(const held_link &) = delete;
    held_link &operator=(const held_link &) = delete;
    held_link(held_link &&) = delete;
    held_link &operator=(held_link &&) = delete;

    ~held_link() override
    {
        released_.wait();
    }

    size_t read_some(std::span<std::byte> buffer, std::chrono::milliseconds timeout) override
    {
        return connection_->read_some(buffer, timeout);
    }

    void write(std::span<const std::byte> bytes, std::chrono::milliseconds timeout) override
    {
        connection_->write(bytes, timeout);
    }

    uint32_t set_baudrate(uint32_t baudrate) override
    {
        return connection_->set_baudrate(baudrate);
    }

private:
    std::unique_ptr<link> connection_;
    std::shared_future<void> released_;
};

TEST(client, lets_other_tasks_go_on_while_its_link_is_closed)
{
    const fake_server server;
    const auto loop = std::make_shared<event_loop>();
    std::promise<void> release;
    const auto released = release.get_future().share();
    const auto open = [&] {
        return std::make_unique<held_link>(open_link(parse_address(server.address()), patience.connect, loop),
                                           released);
    };
    client host(open, patience, loop);
    loop->spawn([&] { host.reconnect(); });
    loop->spawn([&] { release.set_value(); });
    EXPECT_THAT(loop->run_tasks(), ElementsAre(nullptr, nullptr));
    EXPECT_EQ(host.server().sensor, "k330");
}

TEST(client, refuses_functions_without_a_connection_after_it_failed_to_reconnect)
{
    const fake_server server;
    bool reachable = true;
    client host([&] {
        if (!reachable)
        {
            throw connect_error("It is gone.");
        }
        return open_link(parse_address(server.address()), patience.connect, std::make_shared<event_loop>());
    });
    reachable = false;
    EXPECT_THROW(host.reconnect(), connect_error);
    EXPECT_THROW(host.ping(), connection_lost);
    EXPECT_THROW(host.end(), connection_lost);
    EXPECT_THROW(host.receive(0ms), connection_lost);
    EXPECT_THROW(static_cast<void>(host.descriptor()), connection_lost);
    EXPECT_NO_THROW(host.end_promptly());
    reachable = true;
    EXPECT_NO_THROW(host.reconnect());
}

TEST(client, does_not_throw_if_it_is_cancelled_while_it_ends_promptly)
{
    const fake_server server;
    auto host = connect(server);
    host.cancel();
    EXPECT_NO_THROW(host.end_promptly());
}

TEST(client, reports_a_path_that_is_too_long_for_a_socket)
{
    for (const size_t length : {107U, 108U, 109U, 110U, 111U})
    {
        EXPECT_THROW(client(parse_address("unix:" + std::string(length, 'x'))), connect_error) << length;
    }
}

TEST(client, loses_no_data_when_it_reads_slowly)
{
    std::atomic<uint32_t> sent = 0;
    fake_server server;
    server.on("start", [&](host_connection &host, const json &command) {
        test::stream_frames(0)(host, command);
        auto header = example_session().frame_header(0);
        const auto payload = example_session().frame_payload(0);
        for (int more = 100; more > 0; more -= server.full() ? 1 : 0)
        {
            header["result_info"][0][0]["tick"] = sent++;
            host.send(header, payload);
        }
    });
    auto host = connect(server);
    host.configure(example_session().configuration);
    host.start();
    server.wait_until_full();
    uint32_t number = 0;
    for (; number < 50; ++number)
    {
        const auto received = host.receive_frame(60s);
        ASSERT_TRUE(received);
        ASSERT_EQ(received->items()[0].tick, number);
        ASSERT_EQ(received->items()[0].samples[0], (sample{3, 0}));
    }
    host.stop([&](frame &&received) { EXPECT_EQ(received.items()[0].tick, number++); });
    EXPECT_EQ(number, sent);
}

TEST(client, reads_the_clock_with_a_ping)
{
    fake_server server;
    std::chrono::steady_clock::time_point executed;
    server.on("ping", [&](host_connection &host, const json &) {
        executed = std::chrono::steady_clock::now();
        host.send({{"status", "ok"}, {"command", "ping"}, {"payload_size", 0}, {"tick", 4294967295}}, "");
    });
    auto host = connect(server);
    const auto reading = host.ping();
    ASSERT_TRUE(reading);
    EXPECT_EQ(reading->tick, 4294967295);
    EXPECT_LE(reading->sent, executed);
    EXPECT_GE(reading->received, executed);
}

TEST(client, knows_no_tick_of_a_server_that_reports_none)
{
    fake_server server;
    EXPECT_FALSE(connect(server).ping());
    server.on("ping", [](host_connection &host, const json &) {
        host.send({{"status", "ok"}, {"command", "ping"}, {"payload_size", 0}, {"tick", 4294967296}}, "");
    });
    EXPECT_THROW(connect(server).ping(), protocol_error);
}

TEST(client, remembers_when_it_sent_a_ping_whose_answer_follows_a_damaged_message)
{
    fake_server server;
    std::chrono::steady_clock::time_point executed;
    server.on("start", test::stream_frames(1));
    server.on("ping", [&](host_connection &host, const json &) {
        executed = std::chrono::steady_clock::now();
        host.send("damaged\n");
        host.send(example_session().frame_header(1), example_session().frame_payload(1));
        host.send({{"status", "ok"}, {"command", "ping"}, {"payload_size", 0}, {"tick", 5}}, "");
    });
    auto host = connect(server);
    host.configure(example_session().configuration);
    host.start();
    int frames = 0;
    const auto count = [&](frame &&) { ++frames; };
    EXPECT_THROW(host.ping(count), bad_message);
    const auto reading = host.ping(count);
    ASSERT_TRUE(reading);
    EXPECT_LE(reading->sent, executed);
    EXPECT_EQ(frames, 2);
}

/** Answers "ping" with a tick. */
void send_clock(host_connection &host, uint32_t tick)
{
    host.send({{"status", "ok"}, {"command", "ping"}, {"payload_size", 0}, {"tick", tick}}, "");
}

TEST(client, takes_the_clock_from_the_stream)
{
    fake_server server;
    std::chrono::steady_clock::time_point executed;
    server.on("start", test::stream_frames(1));
    server.on("ping", [&](host_connection &host, const json &) {
        executed = std::chrono::steady_clock::now();
        send_clock(host, 7);
        host.send(example_session().frame_header(1), example_session().frame_payload(1));
    });
    auto host = connect(server);
    host.configure(example_session().configuration);
    host.start();
    EXPECT_FALSE(host.clock_asked());
    host.ask_clock();
    EXPECT_TRUE(host.clock_asked());
    EXPECT_FALSE(host.take_clock());
    ASSERT_TRUE(host.receive_frame(10s));
    ASSERT_TRUE(host.receive_frame(10s));
    EXPECT_FALSE(host.clock_asked());
    const auto reading = host.take_clock();
    ASSERT_TRUE(reading);
    EXPECT_EQ(reading->tick, 7);
    EXPECT_LE(reading->sent, executed);
    EXPECT_GE(reading->received, executed);
    EXPECT_FALSE(host.take_clock());
}

TEST(client, keeps_the_clock_while_it_waits_for_another_answer)
{
    fake_server server;
    uint32_t tick = 0;
    server.on("ping", [&](host_connection &host, const json &) { send_clock(host, ++tick); });
    auto host = connect(server);
    host.ask_clock();
    host.stats();
    EXPECT_EQ(host.take_clock().value().tick, 1);
    host.ask_clock();
    EXPECT_EQ(host.ping().value().tick, 3);
    EXPECT_EQ(host.take_clock().value().tick, 2);
}

TEST(client, drops_the_clock_after_giving_it_up)
{
    fake_server server;
    std::vector<uint32_t> late;
    server.on("ping", [&](host_connection &, const json &) { late.push_back(7); });
    server.on("stats", [&](host_connection &host, const json &) {
        for (const auto tick : std::exchange(late, {}))
        {
            send_clock(host, tick);
        }
        host.send({{"status", "ok"}, {"command", "stats"}, {"payload_size", 0}}, "");
    });
    auto host = connect(server);
    host.ask_clock();
    host.give_up_clock();
    EXPECT_FALSE(host.clock_asked());
    host.stats();
    EXPECT_FALSE(host.take_clock());
}

TEST(client, takes_an_error_for_the_answer_to_a_damaged_question)
{
    for (const char *code : {"bad_json", "unknown_command", "bad_argument", "line_too_long"})
    {
        fake_server server;
        server.on("ping", [&](host_connection &host, const json &) {
            host.send({{"status", "error"}, {"code", code}, {"message", "What?"}, {"payload_size", 0}}, "");
        });
        auto host = connect(server);
        host.ask_clock();
        host.stats();
        EXPECT_FALSE(host.clock_asked());
        EXPECT_FALSE(host.take_clock());
        EXPECT_THROW(host.ping(), server_error) << code;
    }
}

TEST(client, forgets_at_the_end_of_a_session_that_it_asked_for_the_clock)
{
    fake_server server;
    server.on("ping", [](host_connection &, const json &) {});
    auto host = connect(server);
    host.ask_clock();
    host.end();
    EXPECT_FALSE(host.clock_asked());
    server.on("ping", [](host_connection &other, const json &) { send_clock(other, 5); });
    EXPECT_EQ(host.ping().value().tick, 5);
    EXPECT_FALSE(host.take_clock());
}

TEST(client, takes_no_clock_from_a_server_that_reports_none)
{
    fake_server server;
    auto host = connect(server);
    host.ask_clock();
    host.stats();
    EXPECT_FALSE(host.clock_asked());
    EXPECT_FALSE(host.take_clock());
    for (const json &tick : {json(-1), json(4294967296), json(1.5), json("7"), json()})
    {
        server.on("ping", [&](host_connection &other, const json &) {
            other.send({{"status", "ok"}, {"command", "ping"}, {"payload_size", 0}, {"tick", tick}}, "");
        });
        host.ask_clock();
        host.stats();
        EXPECT_FALSE(host.clock_asked());
        EXPECT_FALSE(host.take_clock()) << tick;
    }
}

TEST(client, requests_statistics)
{
    fake_server server;
    server.on("stats", [](host_connection &host, const json &) {
        host.send({{"status", "ok"}, {"command", "stats"}, {"payload_size", 0}, {"frames", 7}}, "");
    });
    EXPECT_EQ(connect(server).stats()["frames"], 7);
}

TEST(client, passes_on_the_frames_that_arrive_before_statistics)
{
    fake_server server;
    server.on("start", test::stream_frames(2));
    server.on("stats", [](host_connection &host, const json &) {
        host.send(example_session().frame_header(3), example_session().frame_payload(3));
        host.send({{"status", "ok"}, {"command", "stats"}, {"payload_size", 0}, {"frames", 7}}, "");
    });
    auto host = connect(server);
    host.configure(example_session().configuration);
    host.start();
    std::vector<std::pair<uint32_t, uint64_t>> received;
    const auto answer =
        host.stats([&](frame &&early) { received.emplace_back(early.items()[0].tick, early.missing()); });
    EXPECT_EQ(answer["frames"], 7);
    EXPECT_THAT(received, ElementsAre(testing::Pair(0, 0), testing::Pair(20000, 0), testing::Pair(60000, 1)));
}

/** A server on a pseudo-terminal that answers every command, up to a ping, with the identity of a server. */
class serial_server
{
public:
    serial_server() : master_(posix_openpt(O_RDWR | O_NOCTTY))
    {
        grantpt(master_);
        unlockpt(master_);
        device_ = open(ptsname(master_), O_RDWR | O_NOCTTY);
        cfmakeraw(&settings_);
        tcsetattr(device_, TCSANOW, &settings_);
        thread_ = std::thread([this] { run(); });
    }
    serial_server(const serial_server &) = delete;
    serial_server &operator=(const serial_server &) = delete;
    serial_server(serial_server &&) = delete;
    serial_server &operator=(serial_server &&) = delete;

    ~serial_server()
    {
        thread_.join();
        close(device_);
        close(master_);
    }

    /** Its address. */
    std::string address() const
    {
        return std::string("serial:") + ptsname(master_) + "@9600";
    }

    /** The baud rate to which the host has set the line. */
    speed_t baudrate()
    {
        tcgetattr(device_, &settings_);
        return cfgetospeed(&settings_);
    }

    /** The baud rate at which the host sent its ping. */
    std::atomic<speed_t> baudrate_of_ping = B0;

private:
    void run()
    {
        std::string line;
        for (char byte = 0; baudrate_of_ping == B0 && read(master_, &byte, 1) == 1;)
        {
            line += byte;
            if (byte == '\n')
            {
                answer(line);
                line.clear();
            }
        }
    }

    void answer(const std::string &line)
    {
        if (line.find("ping") != std::string::npos)
        {
            baudrate_of_ping = baudrate();
            const std::string pong = R"({"status":"ok","command":"pong","payload_size":0})"
                                     "\n";
            EXPECT_EQ(write(master_, pong.data(), pong.size()), static_cast<ssize_t>(pong.size()));
            return;
        }
        json reply = {{"status", "ok"},
                      {"payload_size", 0},
                      {"server_version", "0.1.0"},
                      {"protocol_version", 1},
                      {"sensor", "k330"},
                      {"sensor_count", 0},
                      {"connected_sensors", json::array()},
                      {"ticks_per_second", 1},
                      {"max_baudrate", 921600}};
        if (line != "\n")
        {
            reply["command"] = json::parse(line)["command"];
            const auto text = reply.dump() + "\n";
            EXPECT_EQ(write(master_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        }
    }

    int master_;
    int device_ = -1;
    termios settings_{};
    std::thread thread_;
};

TEST(client, changes_the_baud_rate_of_a_serial_line_and_restores_it)
{
    serial_server server;
    client host(parse_address(server.address()), patience);
    EXPECT_EQ(server.baudrate(), static_cast<speed_t>(B9600));
    EXPECT_THROW(host.set_baudrate(115200), protocol_error);
    EXPECT_EQ(server.baudrate_of_ping, static_cast<speed_t>(B115200));
    EXPECT_EQ(server.baudrate(), static_cast<speed_t>(B9600));
}

TEST(client, reconnects_over_a_serial_line_at_its_first_baud_rate)
{
    serial_server server;
    client host(parse_address(server.address()), patience);
    host.reconnect();
    EXPECT_EQ(host.server().sensor, "k330");
    EXPECT_THROW(host.ping(), protocol_error);
    EXPECT_EQ(server.baudrate_of_ping, static_cast<speed_t>(B9600));
}

TEST(client, does_not_change_the_baud_rate_of_a_network)
{
    const fake_server server;
    auto host = connect(server);
    EXPECT_THAT([&] { host.set_baudrate(921600); }, ThrowsMessage<error>(HasSubstr("no baud rate")));
}

/** Tests in virtual time, on the clock of the scripted server. */
class client_time : public testing::Test
{
protected:
    client connect(client_timeouts timeouts = {})
    {
        return client(server.links(), timeouts, std::make_shared<event_loop>(clock.source()));
    }

    /** The duration of an action that ends with a time-out. */
    template <typename action_t> test::manual_clock::duration time_until_given_up(action_t action)
    {
        const auto before = clock.now();
        EXPECT_THROW(action(), timeout_error);
        return clock.now() - before;
    }

    /** A reaction that answers after a delay. */
    test::reaction answer_after(std::chrono::milliseconds span)
    {
        return [this, span](host_connection &host, const json &command) {
            server.pause(span);
            host.send({{"status", "ok"}, {"command", command["command"]}, {"payload_size", 0}}, "");
        };
    }

    test::manual_clock clock;
    test::scripted_server server{clock};
};

/** The line that ends a session. */
constexpr const char *end_line = R"({"command":"end"})";

/** A reaction that does nothing. */
void stay_silent(host_connection & /*host*/, const json & /*command*/)
{
}

TEST_F(client_time, starts_by_ending_any_session)
{
    connect();
    EXPECT_THAT(server.lines(), ElementsAre(end_line, R"({"command":"identify"})"));
    EXPECT_EQ(server.line().written().at(0).bytes, std::string("\n") + end_line + "\n");
    EXPECT_EQ(clock.now(), 0s);
}

TEST_F(client_time, finds_a_server_that_is_still_starting)
{
    const struct
    {
        std::chrono::milliseconds start;
        std::chrono::milliseconds found;
    } servers[] = {{500ms, 1s}, {1000ms, 1s}, {1001ms, 2s}, {3000ms, 3s}, {9500ms, 10s}};
    for (const auto &[start, found] : servers)
    {
        const auto beginning = clock.now();
        const auto lines = server.lines().size();
        server.on("end", [&, this, start = start](host_connection &host, const json &command) {
            if (clock.now() - beginning >= start)
            {
                answer_after(0ms)(host, command);
            }
        });
        auto host = connect({.answer = 11s});
        EXPECT_EQ(clock.now() - beginning, found);
        EXPECT_EQ(server.lines().size() - lines, static_cast<size_t>(found / 1s) + 2);
        host.ping();
        host.configure(example_session().configuration);
        clock.advance(1h);
        host.ping();
        EXPECT_EQ(server.lines().back(), R"({"command":"ping"})");
    }
}

TEST_F(client_time, sends_end_every_second_until_the_server_answers)
{
    server.on("end", [this](host_connection &host, const json &command) {
        if (clock.now() >= 3s)
        {
            server.pause(400ms);
            answer_after(0ms)(host, command);
        }
    });
    connect();
    std::vector<test::manual_clock::duration> moments;
    for (const auto &[when, bytes] : server.line().written())
    {
        moments.push_back(when);
    }
    // The last one is "identify".
    EXPECT_THAT(moments, ElementsAre(0s, 1s, 2s, 3s, 3400ms));
}

TEST_F(client_time, does_not_mistake_a_late_answer_to_end_for_a_new_one)
{
    std::vector<json> ends;
    server.on("end", [&, this](host_connection &host, const json &command) {
        ends.push_back(command);
        if (clock.now() < 3s)
        {
            return;
        }
        for (const auto &end : ends)
        {
            host.send({{"status", "error"}, {"code", "bad_json"}, {"message", "…"}, {"payload_size", 0}}, "");
            host.send({{"status", "ok"}, {"command", end["command"]}, {"payload_size", 0}}, "");
        }
        ends.clear();
    });
    auto host = connect();
    EXPECT_EQ(clock.now(), 3s);
    EXPECT_EQ(host.server().sensor, "k330");
    host.ping();
    EXPECT_EQ(host.configure(example_session().configuration)->items.size(), 3U);
    host.end();
    host.ping();
    EXPECT_EQ(clock.now(), 3s);
}

TEST_F(client_time, accepts_late_answers_to_repeated_ends)
{
    server.on("end", answer_after(3500ms));
    server.on("identify", [this](host_connection &connection, const json &) {
        server.pause(3500ms);
        connection.send(test::identity(), "");
    });
    auto host = connect();
    EXPECT_EQ(host.server().sensor, "k330");
    EXPECT_EQ(clock.now(), 7s);
    host.ping();
    server.on("end", stay_silent);
    EXPECT_EQ(time_until_given_up([&] { host.end(); }), 5s);
}

TEST_F(client_time, skips_answers_to_the_ends_of_earlier_hosts)
{
    server.on("end", [](host_connection &connection, const json &command) {
        for (int i = 0; i < 20; ++i)
        {
            connection.send({{"status", "ok"}, {"command", command["command"]}, {"payload_size", 0}}, "");
        }
    });
    auto host = connect();
    EXPECT_EQ(host.server().sensor, "k330");
    host.ping();
    EXPECT_EQ(clock.now(), 0s);
}

TEST_F(client_time, gives_up_on_a_server_that_answers_only_end)
{
    server.on("identify", [this](host_connection &connection, const json &) {
        for (int i = 0; i < 600; ++i)
        {
            server.pause(10ms);
            connection.send({{"status", "ok"}, {"command", "end"}, {"payload_size", 0}}, "");
        }
    });
    EXPECT_EQ(time_until_given_up([&] { connect(); }), 5s);
}

TEST_F(client_time, does_not_mistake_the_answer_to_an_abandoned_end_for_a_new_one)
{
    auto host = connect();
    server.on("end", answer_after(6s));
    EXPECT_EQ(time_until_given_up([&] { host.end(); }), 5s);
    server.on("end", answer_after(2s));
    host.end();
    EXPECT_EQ(host.configure(example_session().configuration)->items.size(), 3U);
    host.ping();
}

TEST_F(client_time, reports_a_damaged_command_after_all_ends_are_answered)
{
    auto host = connect();
    server.on("ping", [](host_connection &connection, const json &) {
        connection.send({{"status", "error"}, {"code", "bad_json"}, {"message", "…"}, {"payload_size", 0}},
                        "");
    });
    EXPECT_THROW(host.ping(), server_error);
}

TEST_F(client_time, gives_up_on_a_server_that_never_answers)
{
    server.on("end", stay_silent);
    for (const auto timeout : {500ms, 999ms, 1000ms, 5000ms, 9500ms})
    {
        EXPECT_EQ(time_until_given_up([&] { connect({.answer = timeout}); }), timeout);
    }
    const auto lines = server.lines().size();
    EXPECT_THAT([&] { connect({.answer = 2s}); },
                ThrowsMessage<timeout_error>(
                    "The server sent no answer in time. Check the connection and its baud rate, that no "
                    "other program uses the server, and that the board does not restart (see its log)."));
    EXPECT_EQ(server.lines().size(), lines + 2);
}

TEST_F(client_time, does_not_repeat_end_after_it_gave_up)
{
    auto host = connect();
    server.on("end", stay_silent);
    EXPECT_EQ(time_until_given_up([&] { host.reconnect(); }), 5s);
    const auto lines = server.lines().size();
    server.on("ping", answer_after(4s));
    host.ping();
    EXPECT_EQ(server.lines().size(), lines + 1);
}

TEST_F(client_time, waits_for_each_kind_of_answer_until_its_time_out)
{
    const client_timeouts timeouts{.answer = 3s, .configure = 7s, .frame = 4s};
    auto host = connect(timeouts);
    host.configure(example_session().configuration);
    for (const char *command : {"ping", "configure", "frame", "stop", "end"})
    {
        server.on(command, stay_silent);
    }
    // A command may have to wait for frames; the period is 20 ms.
    EXPECT_EQ(time_until_given_up([&] { host.ping(); }), 3060ms);
    EXPECT_EQ(time_until_given_up([&] { host.configure(json::object()); }), 7s);
    EXPECT_EQ(time_until_given_up([&] { host.single_frame(); }), 4060ms);
    EXPECT_EQ(time_until_given_up([&] { host.stop(); }), 3060ms);
    EXPECT_EQ(time_until_given_up([&] { host.end(); }), 3060ms);
    EXPECT_EQ(time_until_given_up([&] { host.reconnect(); }), 3s);
}

/** A reaction to "configure": a session with a frame every 20 s. */
void configure_slow_frames(host_connection &host, const json & /*command*/)
{
    auto metadata = example_session().metadata;
    metadata["tick_period"] = 20'000'000;
    host.send(metadata, "");
}

TEST_F(client_time, waits_three_periods_longer_in_a_session_of_slow_frames)
{
    server.on("configure", configure_slow_frames);
    auto host = connect();
    host.configure(example_session().configuration);
    for (const char *command : {"ping", "frame", "stop", "end"})
    {
        server.on(command, stay_silent);
    }
    EXPECT_EQ(time_until_given_up([&] { host.ping(); }), 65s);
    EXPECT_EQ(time_until_given_up([&] { host.single_frame(); }), 70s);
    EXPECT_EQ(time_until_given_up([&] { host.stop(); }), 65s);
    EXPECT_EQ(time_until_given_up([&] { host.end(); }), 65s);
}

TEST_F(client_time, stops_a_stream_of_slow_frames)
{
    server.on("configure", configure_slow_frames);
    auto host = connect();
    host.configure(example_session().configuration);
    host.start();
    server.on("stop", answer_after(20s));
    host.stop();
    EXPECT_EQ(clock.now(), 20s);
    host.end();
    server.on("ping", stay_silent);
    EXPECT_EQ(time_until_given_up([&] { host.ping(); }), 5s);
}

TEST_F(client_time, ends_a_session_within_a_given_time)
{
    server.on("configure", configure_slow_frames);
    auto host = connect();
    host.configure(example_session().configuration);
    server.on("end", stay_silent);
    EXPECT_EQ(time_until_given_up([&] { host.end(1s); }), 1s);
    server.on("end", [](host_connection &connection, const json &) {
        connection.send(example_session().frame_header(1).dump() + "\n");
    });
    EXPECT_EQ(time_until_given_up([&] { host.end(1s); }), 1s);
    server.on("end", answer_after(999ms));
    EXPECT_NO_THROW(host.reconnect());
}

TEST_F(client_time, names_a_device_that_sends_other_data)
{
    server.on("end", [](host_connection &connection, const json &) {
        connection.send(std::string("\x7f\0\xff<garbage>\nand more", 21));
    });
    EXPECT_THAT([&] { connect(); },
                ThrowsMessage<protocol_error>(
                    "The data received are not messages of a Vantor server; they start with 7f 00 ff 3c 67 "
                    "61 72 62 61 67 65 3e 0a 61 6e 64. The baud rate may be wrong, or it may be another "
                    "device."));
    EXPECT_EQ(clock.now(), 5s);
}

TEST_F(client_time, names_a_device_that_never_stops_sending_other_data)
{
    server.on("end", [this](host_connection &connection, const json &) {
        for (int i = 0; i < 2000; ++i)
        {
            connection.send("$GPGGA,\n");
            server.pause(7ms);
        }
    });
    EXPECT_THAT([&] { connect(); },
                ThrowsMessage<protocol_error>(HasSubstr("start with 24 47 50 47 47 41 2c 0a")));
    EXPECT_EQ(clock.now(), 5s);
}

/** The header of a frame of the example session at a time. */
json header_at(uint32_t tick)
{
    auto header = example_session().frame_header(0);
    uint32_t later = 0;
    for (auto &group : header["result_info"])
    {
        for (auto &item : group)
        {
            item["tick"] = tick + later;
            later += 250'000;
        }
    }
    return header;
}

TEST_F(client_time, gives_the_time_since_the_first_frame)
{
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(0)(host, command);
        // The ticks wrap around after the first frame.
        for (const uint32_t tick : {4'294'000'000U, 4'294'500'000U, 532'704U, 3'000'532'704U})
        {
            host.send(header_at(tick), example_session().frame_payload(0));
        }
    });
    auto host = connect();
    host.configure(example_session().configuration);
    for (int stream = 0; stream < 2; ++stream)
    {
        host.start();
        for (const double time_s : {0.0, 0.5, 1.5, 3001.5})
        {
            const auto received = host.receive_frame(0ms).value();
            EXPECT_DOUBLE_EQ(received.items()[0].seconds, time_s);
            EXPECT_DOUBLE_EQ(received.items()[1].seconds, time_s + 0.25);
            EXPECT_DOUBLE_EQ(received.items()[2].seconds, time_s + 0.5);
        }
    }
}

TEST_F(client_time, gives_the_time_of_frames_before_the_answer_to_stop)
{
    server.on("start", test::stream_frames(4));
    auto host = connect();
    host.configure(example_session().configuration);
    host.start();
    EXPECT_TRUE(host.receive_frame(0ms));
    std::vector<double> times_s;
    host.stop([&](frame &&received) { times_s.push_back(received.items()[0].seconds); });
    EXPECT_THAT(times_s, ElementsAre(0.02, 0.04, 0.06));
}

TEST_F(client_time, gives_distances_with_every_frame)
{
    server.on("start", test::stream_frames(1));
    auto host = connect();
    host.configure(example_session().configuration);
    host.start();
    const auto received = host.receive_frame(0ms).value();
    EXPECT_DOUBLE_EQ(received.items()[0].distances(0)[7], 0.32);
    EXPECT_DOUBLE_EQ(received.items()[1].distances(1)[0], 0.5);
}

TEST_F(client_time, waits_for_a_frame_until_the_given_time_out)
{
    server.on("start", [this](host_connection &host, const json &command) {
        test::stream_frames(1)(host, command);
        server.pause(100ms);
        host.send(example_session().frame_header(1), example_session().frame_payload(1));
    });
    auto host = connect();
    host.configure(example_session().configuration);
    host.start();
    EXPECT_TRUE(host.receive_frame(0ms));
    EXPECT_EQ(clock.now(), 0s);
    EXPECT_FALSE(host.receive_frame(99ms));
    EXPECT_EQ(clock.now(), 99ms);
    EXPECT_TRUE(host.receive_frame(1ms));
    EXPECT_FALSE(host.receive_frame(20ms));
    EXPECT_EQ(clock.now(), 120ms);
}

TEST_F(client_time, works_again_after_giving_up_on_a_silent_server)
{
    server.on("ping", stay_silent);
    auto host = connect();
    EXPECT_THAT([&] { host.ping(); },
                ThrowsMessage<timeout_error>(HasSubstr("The server sent no answer to \"ping\" in time.")));
    EXPECT_EQ(clock.now(), 5s);
    host.identify();
}

TEST_F(client_time, accepts_an_answer_at_the_last_moment)
{
    auto host = connect();
    server.on("ping", answer_after(5000ms));
    host.ping();
    EXPECT_EQ(clock.now(), 5s);
    server.on("ping", answer_after(5001ms));
    EXPECT_EQ(time_until_given_up([&] { host.ping(); }), 5s);
}

TEST_F(client_time, accepts_an_answer_in_pieces_in_the_last_millisecond)
{
    server.on("ping", [this](host_connection &connection, const json &) {
        server.pause(4999ms);
        for (const char byte : std::string(R"({"status":"ok","command":"ping","payload_size":0})"
                                           "\n"))
        {
            server.pause(10us);
            connection.send(std::string(1, byte));
        }
    });
    connect().ping();
    EXPECT_GT(clock.now(), 4999ms);
    EXPECT_LT(clock.now(), 5s);
}

TEST_F(client_time, gives_up_on_a_line_that_is_never_silent)
{
    server.on("ping", [this](host_connection &host, const json &) {
        for (int i = 0; i < 2000; ++i)
        {
            host.send("$GPGGA,");
            server.pause(7ms);
        }
    });
    auto host = connect();
    EXPECT_EQ(time_until_given_up([&] { host.ping(); }), 5s);
}

TEST_F(client_time, gives_up_on_invalid_data_when_it_ends_a_session)
{
    auto host = connect();
    server.on("end", [this](host_connection &connection, const json &) {
        for (int i = 0; i < 2000; ++i)
        {
            connection.send("$GPGGA,\n");
            server.pause(7ms);
        }
    });
    EXPECT_EQ(time_until_given_up([&] { host.end(); }), 5s);
}

TEST_F(client_time, gives_up_on_an_endless_series_of_messages)
{
    const auto send_frames = [this](host_connection &host, const json &) {
        for (uint32_t i = 0; i < 120; ++i)
        {
            server.pause(50ms);
            host.send(example_session().frame_header(i), example_session().frame_payload(i));
        }
    };
    server.on("end", send_frames);
    EXPECT_EQ(time_until_given_up([&] { connect(); }), 5s);
    server.on("end", answer_after(0ms));
    server.on("ping", send_frames);
    auto host = connect();
    EXPECT_EQ(time_until_given_up([&] { host.ping(); }), 5s);
}

TEST_F(client_time, gives_up_on_a_server_that_sends_messages_faster_than_it_reads_them)
{
    client host(server.links(), {}, std::make_shared<event_loop>([this] {
                    clock.advance(50ms);
                    return clock.source()();
                }));
    const auto send_frames = [](host_connection &connection, const json &) {
        for (uint32_t i = 0; i < 400; ++i)
        {
            connection.send(example_session().frame_header(i), example_session().frame_payload(i));
        }
    };
    server.on("ping", send_frames);
    EXPECT_LE(time_until_given_up([&] { host.ping(); }), 5100ms);
    server.on("end", send_frames);
    EXPECT_LE(time_until_given_up([&] { host.end(); }), 5100ms);
}

TEST_F(client_time, waits_for_a_message_while_its_bytes_arrive)
{
    server.on("end", [this](host_connection &host, const json &command) {
        const auto payload = example_session().frame_payload(1);
        host.send(example_session().frame_header(1).dump() + "\n" + payload.substr(0, 50));
        for (size_t place = 50; place < payload.size(); place += 50)
        {
            server.pause(4900ms);
            host.send(payload.substr(place, 50));
        }
        answer_after(0ms)(host, command);
    });
    EXPECT_EQ(connect().server().sensor, "k330");
    EXPECT_EQ(clock.now(), 7 * 4900ms);
}

TEST_F(client_time, gives_up_on_a_message_whose_bytes_arrive_too_slowly)
{
    auto host = connect();
    host.configure(example_session().configuration);
    for (const int count : {1, 49})
    {
        server.on("ping", [this, count](host_connection &connection, const json &) {
            connection.send(example_session().frame_header(1).dump() + "\n");
            for (const char byte : example_session().frame_payload(1).substr(0, 150))
            {
                server.pause(5000ms / count);
                connection.send(std::string(1, byte));
            }
        });
        // The first bytes of a message may also take longer.
        EXPECT_EQ(time_until_given_up([&] { host.ping(); }), 10060ms) << count;
        host.reconnect();
        host.configure(example_session().configuration);
    }
}

TEST_F(client_time, refuses_an_answer_with_a_payload_immediately)
{
    server.on("identify", [this](host_connection &connection, const json &) {
        auto identity = test::identity();
        identity["payload_size"] = 1 << 26;
        connection.send(identity.dump() + "\n");
        for (int i = 0; i < 1000; ++i)
        {
            server.pause(1s);
            connection.send("x");
        }
    });
    EXPECT_THAT([&] { connect(); }, ThrowsMessage<bad_message>(HasSubstr("only a frame can have a payload")));
    EXPECT_EQ(clock.now(), 0s);
}

TEST_F(client_time, gives_up_on_a_message_that_stops_arriving)
{
    server.on("end", [this](host_connection &host, const json &) {
        host.send(example_session().frame_header(1).dump() + "\n");
        server.pause(6s);
        host.send(std::string(60, 'x'));
    });
    // More bytes arrived during two time-outs, none during the third.
    EXPECT_EQ(time_until_given_up([&] { connect(); }), 15s);
}

TEST_F(client_time, restores_the_baud_rate_when_the_server_does_not_answer_at_the_new_one)
{
    auto host = connect();
    server.on("ping", [this](host_connection &connection, const json &command) {
        if (server.line().baudrate() == 9600)
        {
            answer_after(0ms)(connection, command);
        }
    });
    EXPECT_EQ(time_until_given_up([&] { host.set_baudrate(115200); }), 5s);
    EXPECT_EQ(server.line().baudrate(), 9600U);
    host.ping();
}

TEST_F(client_time, keeps_the_new_baud_rate_when_the_server_answers_at_it)
{
    connect().set_baudrate(115200);
    EXPECT_EQ(server.line().baudrate(), 115200U);
    EXPECT_EQ(clock.now(), 0s);
}

} // namespace
} // namespace vantor
