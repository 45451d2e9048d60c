/** @file
 * Tests of a server's session as a source of frames, in virtual time.
 */
#include "vantor/session_source.h"

#include <fstream>
#include <functional>

#include <gmock/gmock.h>

#include "example_truth.h"
#include "fake_server.h"
#include "scripted_server.h"
#include "temporary_directory.h"
#include "vantor/errors.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using test::example_session;
using test::host_connection;

/** A scripted server and the sessions with it. */
class session_source_test : public testing::Test
{
protected:
    session_source_test()
    {
        server.on("start", [this](host_connection &host, const json &) {
            host.send({{"status", "ok"}, {"command", "start"}, {"payload_size", 0}}, "");
            ++starts;
            on_start(host);
        });
    }

    /** Sends a frame, whose first item may ask for a calibration. */
    static void send_frame(host_connection &host, uint32_t number, bool calibration_needed = false)
    {
        auto header = example_session().frame_header(number);
        header["result_info"][0][0]["calibration_needed"] = calibration_needed;
        host.send(header, example_session().frame_payload(number));
    }

    /** Starts a stream with a policy, and receives frames for some time. */
    void receive_for(test::manual_clock::duration span, session_policy policy)
    {
        client connected(server.links(), {}, std::make_shared<event_loop>(clock.source()));
        session_source source(connected, configuration, policy, loop);
        source.start();
        const auto end = clock.now() + span;
        while (clock.now() < end)
        {
            if (auto received = source.receive(100ms))
            {
                ticks.push_back(received->items()[0].tick);
                missing.push_back(received->missing());
                segments.push_back(source.current_segment());
            }
        }
        damaged = source.damaged();
        source.end();
    }

    /** The number of commands that the server has received. */
    [[nodiscard]] long count(const std::string &command) const
    {
        const auto lines = server.lines();
        return std::count_if(lines.begin(), lines.end(), [&](const std::string &line) {
            return line.find("\"command\":\"" + command + "\"") != std::string::npos;
        });
    }

    test::manual_clock clock;
    test::manual_loop loop{clock};
    test::scripted_server server{clock};
    json configuration = example_session().configuration;
    int starts = 0;
    std::function<void(host_connection &)> on_start = [](host_connection &) {};
    std::vector<uint32_t> ticks;
    std::vector<uint64_t> missing;
    std::vector<segment> segments;
    uint64_t damaged = 0;
};

TEST_F(session_source_test, calibrates_again_when_a_sensor_asks)
{
    configuration["calibration_info"] = json::array();
    on_start = [this](host_connection &host) {
        send_frame(host, 10);
        send_frame(host, 12, starts == 1);
    };
    receive_for(3s, {.recalibrate = true});
    EXPECT_THAT(ticks, testing::ElementsAre(200000, 240000, 200000, 240000));
    EXPECT_THAT(missing, testing::ElementsAre(0, 1, 1, 2));
    EXPECT_EQ(segments[1].number, 0U);
    EXPECT_EQ(segments[2].number, 1U);
    EXPECT_EQ(segments[2].reason, "calibrated again");
    EXPECT_EQ(segments[2].calibration_temperatures.size(), 3U);
    EXPECT_EQ(count("configure"), 2);
    EXPECT_FALSE(
        test::last_command(server.lines(), "configure")["configuration"].contains("calibration_info"));
}

TEST_F(session_source_test, does_not_calibrate_without_the_policy)
{
    on_start = [](host_connection &host) { send_frame(host, 10, true); };
    receive_for(3s, {});
    EXPECT_EQ(count("configure"), 1);
}

TEST_F(session_source_test, does_not_calibrate_again_and_again_if_that_does_not_help)
{
    on_start = [](host_connection &host) {
        send_frame(host, 10, true);
        send_frame(host, 11, true);
    };
    receive_for(5s, {.recalibrate = true});
    EXPECT_EQ(count("configure"), 2);
    EXPECT_EQ(ticks.size(), 4U);
}

TEST_F(session_source_test, connects_again_after_a_lost_link)
{
    on_start = [this](host_connection &host) {
        send_frame(host, static_cast<uint32_t>(starts));
        if (starts == 1)
        {
            server.pause(700ms);
            host.close();
        }
    };
    receive_for(3s, {.reconnect = true});
    EXPECT_THAT(ticks, testing::ElementsAre(20000, 40000));
    ASSERT_EQ(segments.size(), 2U);
    EXPECT_EQ(segments[1].number, 1U);
    EXPECT_EQ(segments[1].reason, "connected again");
    EXPECT_NEAR(segments[1].gap, 0.8, 0.1);
}

TEST_F(session_source_test, connects_again_after_a_long_silence)
{
    on_start = [](host_connection &host) { send_frame(host, 1); };
    receive_for(25s, {.reconnect = true});
    EXPECT_EQ(starts, 3);
    ASSERT_EQ(segments.size(), 3U);
    EXPECT_NEAR(segments[2].gap, 10.1, 0.1);
}

TEST_F(session_source_test, ends_with_a_lost_link_without_the_policy)
{
    on_start = [](host_connection &host) { host.close(); };
    EXPECT_THROW(receive_for(3s, {}), connection_lost);
}

/** Sends a frame byte by byte, with a pause after each byte. */
void trickle_frame(test::scripted_server &server, host_connection &host, test::manual_clock::duration pause)
{
    const auto payload = example_session().frame_payload(1);
    auto header = example_session().frame_header(1);
    header["payload_size"] = payload.size();
    host.send(header.dump() + "\n");
    for (const char byte : payload)
    {
        server.pause(pause);
        host.send(std::string(1, byte));
    }
}

// After 10 s, and a second in which the server may answer to "end".
TEST_F(session_source_test, gives_up_a_frame_that_trickles_in)
{
    on_start = [this](host_connection &host) { trickle_frame(server, host, 110ms); };
    EXPECT_THROW(receive_for(60s, {}), timeout_error);
    EXPECT_NEAR(std::chrono::duration<double>(clock.now()).count(), 11.0, 0.1);
}

TEST_F(session_source_test, waits_for_a_frame_over_a_slow_line)
{
    on_start = [this](host_connection &host) { trickle_frame(server, host, 90ms); };
    const auto size = example_session().frame_payload(1).size();
    ASSERT_GT(size * 90ms, 15s);
    receive_for(size * 90ms, {});
    EXPECT_EQ(ticks.size(), 1U);
}

TEST_F(session_source_test, waits_for_a_busy_server)
{
    on_start = [this](host_connection &host) {
        if (starts == 1)
        {
            host.close();
            return;
        }
        send_frame(host, 1);
    };
    int refusals = 0;
    server.on("identify", [&](host_connection &host, const json &) {
        if (starts == 1 && ++refusals <= 3)
        {
            host.send({{"status", "error"}, {"code", "busy"}, {"message", "In use."}, {"payload_size", 0}},
                      "");
            return;
        }
        host.send(test::identity(), "");
    });
    receive_for(3s, {.reconnect = true});
    EXPECT_EQ(ticks.size(), 1U);
    EXPECT_GT(refusals, 3);
}

TEST_F(session_source_test, receives_what_was_measured_before_it_calibrates_again)
{
    on_start = [this](host_connection &host) {
        send_frame(host, 10, starts == 1);
        if (starts > 1)
        {
            send_frame(host, 60);
        }
    };
    server.on("stop", [](host_connection &host, const json &) {
        send_frame(host, 11, true);
        send_frame(host, 13);
        send_frame(host, 14, true);
        host.send({{"status", "ok"}, {"command", "stop"}, {"payload_size", 0}}, "");
    });
    receive_for(3s, {.recalibrate = true});
    EXPECT_THAT(ticks, testing::ElementsAre(200000, 220000, 260000, 280000, 200000, 1200000));
    EXPECT_THAT(missing, testing::ElementsAre(0, 0, 1, 1, 1, 50));
    EXPECT_EQ(segments[3].number, 0U);
    EXPECT_EQ(segments[4].number, 1U);
    EXPECT_EQ(count("configure"), 2);
}

TEST_F(session_source_test, keeps_what_was_measured_in_its_segment_if_the_link_is_lost)
{
    on_start = [this](host_connection &host) {
        send_frame(host, 10, starts == 1);
        if (starts > 1)
        {
            send_frame(host, 12);
        }
    };
    server.on("stop", [this](host_connection &host, const json &) {
        send_frame(host, 11);
        send_frame(host, 13);
        host.close();
        server.on("stop", [](host_connection &later, const json &) {
            later.send({{"status", "ok"}, {"command", "stop"}, {"payload_size", 0}}, "");
        });
    });
    receive_for(3s, {.recalibrate = true, .reconnect = true});
    EXPECT_THAT(ticks, testing::ElementsAre(200000, 220000, 260000, 200000, 240000));
    EXPECT_THAT(missing, testing::ElementsAre(0, 0, 1, 1, 2));
    EXPECT_EQ(segments[2].number, 0U);
    EXPECT_EQ(segments[3].number, 1U);
    EXPECT_EQ(segments[3].reason, "connected again");
}

TEST_F(session_source_test, begins_with_the_first_segment_if_the_link_is_lost_before_the_first_frame)
{
    on_start = [this](host_connection &host) {
        if (starts == 1)
        {
            host.close();
            return;
        }
        send_frame(host, 1);
    };
    receive_for(3s, {.reconnect = true});
    ASSERT_EQ(segments.size(), 1U);
    EXPECT_EQ(segments[0].number, 0U);
}

TEST_F(session_source_test, calibrates_again_after_connecting_again)
{
    on_start = [this](host_connection &host) {
        send_frame(host, 10);
        if (starts == 1)
        {
            host.close();
            return;
        }
        send_frame(host, 11, starts == 2);
    };
    receive_for(3s, {.recalibrate = true, .reconnect = true});
    EXPECT_EQ(count("configure"), 3);
}

TEST_F(session_source_test, calibrates_again_if_the_first_frame_after_connecting_again_asks)
{
    on_start = [this](host_connection &host) {
        send_frame(host, 10, starts == 2);
        if (starts == 1)
        {
            host.close();
        }
    };
    receive_for(3s, {.recalibrate = true, .reconnect = true});
    EXPECT_EQ(count("configure"), 3);
}

TEST_F(session_source_test, takes_the_span_of_a_calibration_from_the_clock_of_the_server)
{
    on_start = [this](host_connection &host) { send_frame(host, starts == 1 ? 10 : 60, starts == 1); };
    server.on("stop", [this](host_connection &host, const json &) {
        server.pause(3s);
        host.send({{"status", "ok"}, {"command", "stop"}, {"payload_size", 0}}, "");
    });
    receive_for(6s, {.recalibrate = true});
    ASSERT_EQ(segments.size(), 2U);
    EXPECT_DOUBLE_EQ(segments[1].gap, 1.0);
}

TEST_F(session_source_test, does_not_know_what_was_due_if_the_server_does_not_answer_in_time)
{
    on_start = [](host_connection &host) { send_frame(host, 10); };
    server.on("stop", [](host_connection &host, const json &) { send_frame(host, 11); });
    client connected(server.links(), {}, std::make_shared<event_loop>(clock.source()));
    session_source source(connected, configuration, {}, loop);
    source.start();
    EXPECT_TRUE(source.receive(100ms));
    EXPECT_TRUE(source.end_known());
    const auto before = clock.now();
    source.end_promptly();
    EXPECT_FALSE(source.end_known());
    EXPECT_EQ(source.due_at_end(), 0U);
    EXPECT_LE(clock.now() - before, 2s);
}

TEST_F(session_source_test, does_not_end_as_if_nothing_had_happened_while_the_link_is_lost)
{
    on_start = [this](host_connection &host) {
        send_frame(host, 1);
        server.on("identify", [](host_connection &later, const json &) { later.close(); });
        host.close();
    };
    EXPECT_THAT([this] { receive_for(2s, {.reconnect = true}); },
                testing::ThrowsMessage<connection_lost>(testing::HasSubstr("before the end")));
    EXPECT_EQ(ticks.size(), 1U);
}

/** The answer to "stats". */
json statistics()
{
    return {{"status", "ok"}, {"command", "stats"}, {"payload_size", 0}, {"frames", 7}};
}

/** Sends a frame whose header is damaged. */
void send_damaged_frame(host_connection &host)
{
    auto header = example_session().frame_header(12);
    header["payload_size"] = 3;
    host.send(header, "abc");
}

/** A session that the test controls step by step. */
class controlled_session : public session_source_test
{
protected:
    /** Begins a stream with a policy. */
    void start(session_policy policy)
    {
        connected.emplace(server.links(), client_timeouts{}, std::make_shared<event_loop>(clock.source()));
        source.emplace(*connected, configuration, policy, loop);
        source->start();
    }

    /** Receives frames until none has arrived for some time, or the link is lost. */
    void receive_all()
    {
        for (int empty = 0; empty < 3;)
        {
            if (auto received = source->receive(100ms))
            {
                ticks.push_back(received->items()[0].tick);
                missing.push_back(received->missing());
                segments.push_back(source->current_segment());
                empty = 0;
            }
            else
            {
                ++empty;
            }
        }
    }

    std::optional<client> connected;
    std::optional<session_source> source;
};

TEST_F(controlled_session, calibrates_again_on_request)
{
    configuration["calibration_info"] = json::array();
    on_start = [](host_connection &host) {
        send_frame(host, 10);
        send_frame(host, 11);
    };
    start({});
    EXPECT_TRUE(source->configuration().contains("calibration_info"));
    EXPECT_TRUE(source->receive(100ms));
    source->request_calibration();
    receive_all();
    EXPECT_THAT(ticks, testing::ElementsAre(220000, 200000, 220000));
    EXPECT_EQ(segments[0].number, 0U);
    EXPECT_EQ(segments[1].number, 1U);
    EXPECT_EQ(segments[1].reason, "calibrated again");
    EXPECT_EQ(count("configure"), 2);
    EXPECT_EQ(count("stop"), 1);
    EXPECT_FALSE(
        test::last_command(server.lines(), "configure")["configuration"].contains("calibration_info"));
    EXPECT_FALSE(source->configuration().contains("calibration_info"));
}

TEST_F(controlled_session, calibrates_again_on_a_request_made_while_it_waits)
{
    server.on("log", [](host_connection &host, const json &) {
        host.send({{"status", "ok"}, {"command", "log"}, {"payload_size", 0}}, "");
    });
    on_start = [this](host_connection &host) {
        if (starts == 1)
        {
            host.send({{"status", "log"},
                       {"level", "INFO"},
                       {"module", "test"},
                       {"message", "now"},
                       {"payload_size", 0}},
                      "");
        }
        send_frame(host, 10);
    };
    connected.emplace(server.links(), client_timeouts{}, std::make_shared<event_loop>(clock.source()));
    connected->forward_log("INFO", [this](const log_line &) { source->request_calibration(); });
    source.emplace(*connected, configuration, session_policy{}, loop);
    source->start();
    receive_all();
    EXPECT_EQ(count("configure"), 2);
    ASSERT_EQ(segments.size(), 2U);
    EXPECT_EQ(segments[1].reason, "calibrated again");
}

TEST_F(controlled_session, calibrates_once_for_a_request_while_it_is_about_to)
{
    on_start = [](host_connection &host) { send_frame(host, 10); };
    server.on("stop", [](host_connection &host, const json &) {
        send_frame(host, 11);
        send_frame(host, 12);
        host.send({{"status", "ok"}, {"command", "stop"}, {"payload_size", 0}}, "");
    });
    start({});
    source->request_calibration();
    EXPECT_TRUE(source->receive(100ms));
    source->request_calibration();
    receive_all();
    EXPECT_EQ(count("configure"), 2);
}

TEST_F(controlled_session, calibrates_on_request_when_it_connects_again)
{
    configuration["calibration_info"] = json::array();
    on_start = [this](host_connection &host) {
        send_frame(host, 10);
        if (starts == 1)
        {
            host.close();
        }
    };
    start({.reconnect = true});
    EXPECT_TRUE(source->receive(100ms));
    EXPECT_FALSE(source->receive(100ms));
    EXPECT_TRUE(source->lost());
    source->request_calibration();
    receive_all();
    EXPECT_EQ(count("configure"), 2);
    EXPECT_FALSE(source->configuration().contains("calibration_info"));
    ASSERT_EQ(segments.size(), 1U);
    EXPECT_EQ(segments[0].reason, "connected again");
}

TEST_F(controlled_session, calibrates_again_although_a_message_is_damaged)
{
    on_start = [](host_connection &host) { send_frame(host, 10); };
    server.on("stop", [](host_connection &host, const json &) {
        send_frame(host, 11);
        send_damaged_frame(host);
        host.send({{"status", "ok"}, {"command", "stop"}, {"payload_size", 0}}, "");
    });
    start({});
    EXPECT_TRUE(source->receive(100ms));
    source->request_calibration();
    receive_all();
    EXPECT_THAT(ticks, testing::ElementsAre(220000, 200000));
    EXPECT_EQ(source->damaged(), 1U);
    EXPECT_EQ(count("stop"), 1);
}

TEST_F(controlled_session, asks_for_statistics_without_losing_a_frame)
{
    on_start = [](host_connection &host) { send_frame(host, 10); };
    server.on("stats", [](host_connection &host, const json &) {
        send_frame(host, 11);
        send_frame(host, 13);
        host.send(statistics(), "");
        send_frame(host, 14);
    });
    start({});
    EXPECT_EQ(source->stats().value()["frames"], 7);
    receive_all();
    EXPECT_THAT(ticks, testing::ElementsAre(200000, 220000, 260000, 280000));
    EXPECT_THAT(missing, testing::ElementsAre(0, 0, 1, 1));
    EXPECT_EQ(source->damaged(), 0U);
    EXPECT_EQ(source->stats().value()["frames"], 7);
}

TEST_F(controlled_session, asks_for_statistics_although_a_message_is_damaged)
{
    on_start = [](host_connection &host) { send_frame(host, 10); };
    server.on("stats", [](host_connection &host, const json &) {
        send_frame(host, 11);
        send_damaged_frame(host);
        host.send(statistics(), "");
        send_frame(host, 13);
    });
    start({});
    EXPECT_EQ(source->stats().value()["frames"], 7);
    EXPECT_EQ(count("stats"), 1);
    receive_all();
    EXPECT_THAT(ticks, testing::ElementsAre(200000, 220000, 260000));
    EXPECT_THAT(missing, testing::ElementsAre(0, 0, 1));
    EXPECT_EQ(source->damaged(), 1U);
}

TEST_F(controlled_session, does_not_keep_any_number_of_frames_instead_of_an_answer)
{
    constexpr uint32_t most = 1U << 15U;
    on_start = [](host_connection &host) { send_frame(host, 10); };
    server.on("stats", [](host_connection &host, const json &) {
        const auto text =
            example_session().frame_header(11).dump() + "\n" + example_session().frame_payload(11);
        for (uint32_t i = 0; i <= most; ++i)
        {
            host.send(text);
        }
    });
    start({});
    EXPECT_THROW(source->stats(), timeout_error);
}

TEST_F(controlled_session, has_no_statistics_while_the_link_is_lost)
{
    on_start = [](host_connection &host) { send_frame(host, 10); };
    server.on("stats", [](host_connection &host, const json &) {
        send_frame(host, 11);
        host.close();
    });
    start({.reconnect = true});
    EXPECT_FALSE(source->stats());
    EXPECT_TRUE(source->lost());
    EXPECT_FALSE(source->stats());
    EXPECT_EQ(count("stats"), 1);
    receive_all();
    EXPECT_FALSE(source->lost());
    EXPECT_THAT(ticks, testing::ElementsAre(200000, 220000, 200000));
    EXPECT_EQ(segments[1].number, 0U);
    EXPECT_EQ(segments[2].reason, "connected again");
}

TEST_F(controlled_session, connects_again_if_statistics_do_not_arrive)
{
    on_start = [](host_connection &host) { send_frame(host, 10); };
    server.on("stats", [](host_connection &, const json &) {});
    start({.reconnect = true});
    EXPECT_FALSE(source->stats());
    EXPECT_TRUE(source->lost());
    receive_all();
    // The first frame arrived before the time-out.
    EXPECT_THAT(ticks, testing::ElementsAre(200000, 200000));
    EXPECT_EQ(segments[0].number, 0U);
    EXPECT_EQ(segments[1].reason, "connected again");
}

TEST_F(controlled_session, ends_if_the_link_is_lost_while_it_asks_for_statistics)
{
    server.on("stats", [](host_connection &host, const json &) { host.close(); });
    start({});
    EXPECT_THROW(source->stats(), connection_lost);
}

TEST_F(controlled_session, begins_one_session_if_the_link_is_lost_before_it_calibrates)
{
    on_start = [](host_connection &host) { send_frame(host, 10); };
    server.on("stop", [](host_connection &host, const json &) {
        send_frame(host, 11);
        host.send({{"status", "ok"}, {"command", "stop"}, {"payload_size", 0}}, "");
    });
    server.on("stats", [](host_connection &host, const json &) { host.close(); });
    start({.reconnect = true});
    source->request_calibration();
    EXPECT_TRUE(source->receive(100ms));
    EXPECT_FALSE(source->stats());
    receive_all();
    EXPECT_EQ(count("configure"), 2);
    EXPECT_THAT(ticks, testing::ElementsAre(220000, 200000));
}

/** What a server says of itself and of a session after connecting again. */
struct other_server
{
    const char *name;
    std::function<void(json &identity, json &metadata)> change;
};

class another_server : public session_source_test, public testing::WithParamInterface<other_server>
{
};

TEST_P(another_server, is_refused_after_connecting_again)
{
    on_start = [](host_connection &host) { host.close(); };
    server.on("identify", [this](host_connection &host, const json &) {
        auto identity = test::identity();
        auto metadata = example_session().metadata;
        if (starts > 0)
        {
            GetParam().change(identity, metadata);
        }
        host.send(identity, "");
    });
    server.on("configure", [this](host_connection &host, const json &) {
        auto identity = test::identity();
        auto metadata = example_session().metadata;
        if (starts > 0)
        {
            GetParam().change(identity, metadata);
        }
        host.send(metadata, "");
    });
    EXPECT_THAT(
        [this] { receive_for(3s, {.reconnect = true}); },
        testing::ThrowsMessage<protocol_error>(testing::HasSubstr("another server at the same address")));
}

INSTANTIATE_TEST_SUITE_P(
    changes, another_server,
    testing::Values(
        other_server{"length",
                     [](json &, json &metadata) { metadata["metadata"][0][0]["frame_data_length"] = 80; }},
        other_server{
            "subsweep",
            [](json &, json &metadata) { metadata["metadata"][0][0]["subsweep_data_length"][0] = 1; }},
        other_server{
            "base_step",
            [](json &, json &metadata) { metadata["metadata"][0][0]["base_step_length_m"] = 0.005; }},
        other_server{"period", [](json &, json &metadata) { metadata["tick_period"] = 40000; }},
        other_server{"sensor", [](json &identity, json &) { identity["sensor"] = "k331"; }},
        other_server{"board",
                     [](json &identity, json &) {
                         identity["board"] = {{"id", "2"}};
                     }},
        other_server{"clock", [](json &identity, json &) { identity["ticks_per_second"] = 32768; }}),
    [](const auto &change) { return change.param.name; });

/** A server that writes the truth. */
class session_with_truth : public session_source_test
{
protected:
    session_with_truth()
    {
        server.on("configure", [this](host_connection &host, const json &command) {
            ++sessions;
            if (sessions <= sessions_with_truth)
            {
                append(test::session_line(sessions));
            }
            test::describe_configuration(host, command);
        });
        on_start = [this](host_connection &host) {
            for (uint32_t number = 0; number < 3; ++number)
            {
                write_rows(number);
                send_frame(host, number, sessions == 1 && number == 2);
            }
        };
    }

    /** Appends a line to the file. */
    void append(const std::string &line) const
    {
        std::ofstream(path, std::ios::app) << line;
    }

    /** Writes the truth of a frame, without the second item of the second frame. */
    void write_rows(uint32_t number) const
    {
        const auto received = test::frame_with_truth(number);
        for (size_t i = 0; i < 3; ++i)
        {
            auto row = *received.truth()->items[i];
            row.time_s = sessions;
            if (number != 1 || i != 1)
            {
                append(test::row_line(sessions, row));
            }
        }
    }

    /** Receives all frames, and notes the time of the truth of each item; 0 if it is unknown. */
    void receive_truth(session_policy policy)
    {
        client connected(server.links(), {}, std::make_shared<event_loop>(clock.source()));
        session_source source(connected, configuration, policy, loop, &truth);
        EXPECT_EQ(source.scene(), test::example_scene());
        source.start();
        for (const auto end = clock.now() + 2s; clock.now() < end;)
        {
            const auto received = source.receive(100ms);
            for (size_t i = 0; received && i < 3; ++i)
            {
                const auto &item = received->truth()->items.at(i);
                times.push_back(item ? item->time_s : 0.0);
            }
        }
        missing_rows = source.truth_missing();
        fault = source.truth_fault();
        source.end();
    }

    test::temporary_directory directory;
    std::filesystem::path path = directory.write("truth.jsonl", "");
    truth_file truth{path};
    int sessions = 0;
    int sessions_with_truth = 2;
    std::vector<double> times;
    uint64_t missing_rows = 0;
    std::string fault;
};

TEST_F(session_with_truth, adds_it_to_the_frames_of_each_session)
{
    receive_truth({.recalibrate = true});
    EXPECT_THAT(times, testing::ElementsAre(1, 1, 1, 1, 0, 1, 1, 1, 1, 2, 2, 2, 2, 0, 2, 2, 2, 2));
    EXPECT_EQ(missing_rows, 2U);
    EXPECT_EQ(fault, "");
}

TEST_F(session_with_truth, goes_on_without_it_if_a_later_session_has_none)
{
    sessions_with_truth = 1;
    receive_truth({.recalibrate = true});
    EXPECT_THAT(times, testing::ElementsAre(1, 1, 1, 1, 0, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(missing_rows, 1U + 9U);
    EXPECT_THAT(fault, testing::HasSubstr("does not have the truth of this session"));
}

TEST_F(session_with_truth, is_refused_without_it)
{
    sessions_with_truth = 0;
    EXPECT_THAT([this] { receive_truth({}); },
                testing::ThrowsMessage<bad_recording>(testing::HasSubstr("truth.jsonl")));
}

} // namespace
} // namespace vantor
