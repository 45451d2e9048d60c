/** @file
 * Tests of the times of frames by a server's clock, in virtual time.
 */
#include "hub/clock_watch.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <random>
#include <vector>

#include <gmock/gmock.h>

#include "scripted_server.h"
#include "vantor/session_source.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using std::chrono::duration_cast;
using std::chrono::microseconds;
using test::example_session;
using test::host_connection;
using duration = test::manual_clock::duration;

/** A server whose clock and links are scripted, and the session with it. */
class clock_watch_test : public testing::Test
{
protected:
    clock_watch_test()
    {
        server.on("ping", [this](host_connection &host, const json &) {
            asked.push_back(clock.now());
            answer_ping(host);
        });
        server.on("start", [this](host_connection &host, const json &) {
            host.send({{"status", "ok"}, {"command", "start"}, {"payload_size", 0}}, "");
            start = clock.now();
            stream(host);
        });
    }

    /** The tick of the server at a time. */
    [[nodiscard]] uint32_t tick_at(duration time) const
    {
        return static_cast<uint32_t>(duration_cast<microseconds>((time - start) * rate).count());
    }

    /** Answers "ping" after its way, and another way back. */
    void send_clock(host_connection &host, duration there, duration back)
    {
        const auto tick = tick_at(clock.now() + there);
        server.pause(there + back);
        host.send({{"status", "ok"}, {"command", "ping"}, {"payload_size", 0}, {"tick", tick}}, "");
    }

    /** Sends 500 frames, 20 ms after each other, which take some time to arrive. */
    void send_frames(host_connection &host, duration latency)
    {
        for (uint32_t number = 1; number <= 500; ++number)
        {
            server.pause(number == 1 ? 20ms + latency : duration(20ms));
            host.send(example_session().frame_header(number), example_session().frame_payload(number));
        }
    }

    /** Receives frames for some time. */
    void receive_for(duration span, json configuration = example_session().configuration)
    {
        client connected(server.links(), {}, std::make_shared<event_loop>(clock.source()));
        session_source source(connected, std::move(configuration), {.reconnect = true}, loop);
        source.start();
        const auto end = clock.now() + span;
        while (clock.now() < end)
        {
            ++calls;
            if (auto received = source.receive(100ms))
            {
                frames.push_back(std::move(*received));
            }
        }
    }

    /** How far the time of an item is from the true one; no value if it has no time. */
    [[nodiscard]] std::optional<duration> error(const frame_item &item) const
    {
        const auto true_time = start + duration_cast<duration>(microseconds(item.tick)) / rate;
        const auto zero = std::chrono::steady_clock::time_point(1h);
        return item.utc ? std::optional(std::chrono::abs(item.utc->moment - loop.utc(zero + true_time)))
                        : std::nullopt;
    }

    /** Checks that the items of the frames, from one on, have times within their bounds, and these a limit.
     */
    void expect_times(size_t first, duration limit) const
    {
        ASSERT_GT(frames.size(), first);
        for (size_t i = first; i < frames.size(); ++i)
        {
            for (const auto &item : frames[i].items())
            {
                ASSERT_TRUE(item.utc) << i;
                ASSERT_LE(error(item).value(), item.utc->bound) << i;
                ASSERT_LT(item.utc->bound, limit) << i;
            }
        }
    }

    test::manual_clock clock;
    test::manual_loop loop{clock};
    test::scripted_server server{clock};
    int rate = 1; /**< of the server's clock; that of the host is 1 */
    duration start{};
    std::function<void(host_connection &)> stream = [this](host_connection &host) {
        send_frames(host, 100us);
    };
    std::function<void(host_connection &)> answer_ping = [this](host_connection &host) {
        send_clock(host, 100us, 100us);
    };
    std::vector<duration> asked;
    std::vector<frame> frames;
    int calls = 0;
};

TEST_F(clock_watch_test, asks_once_a_second)
{
    receive_for(9900ms);
    EXPECT_EQ(asked.size(), 10U);
    expect_times(0, 400us);
}

TEST_F(clock_watch_test, knows_the_time_within_the_shortest_round_trips)
{
    std::mt19937 random(1);
    const auto any_way = [&] { return 100us + microseconds(random() % 20'000); };
    answer_ping = [&](host_connection &host) { send_clock(host, any_way(), any_way()); };
    receive_for(9900ms);
    // The first frames overtake the first answer.
    expect_times(2, 20ms);
}

TEST_F(clock_watch_test, asks_before_a_frame_of_sensors_that_pace_is_due)
{
    auto configuration = example_session().configuration;
    configuration.erase("max_update_rate");
    configuration["groups"] = json::array({configuration["groups"][1]});
    configuration["groups"][0][0]["config"]["frame_rate"] = 50;
    server.on("configure", [](host_connection &host, const json &command) {
        auto metadata = test::metadata_for(command["configuration"]);
        metadata["tick_period"] = 0;
        host.send(metadata, "");
    });
    // A command waits until the next frame has been measured, and takes 3 ms to arrive.
    answer_ping = [this](host_connection &host) {
        const auto arrival = clock.now() - start + 3ms;
        const auto executed = (arrival / 20ms + 1) * 20ms;
        send_clock(host, executed - (clock.now() - start), 100us);
    };
    stream = [this](host_connection &host) {
        for (uint32_t number = 1; number <= 500; ++number)
        {
            server.pause(number == 1 ? 20ms + 100us : duration(20ms));
            json header = {{"status", "ok"}, {"payload_size", 120}};
            header["result_info"] = json::array({json::array({{{"tick", number * 20'000}}})});
            header["result_info"][0][0].update({{"temperature", 25},
                                                {"data_saturated", false},
                                                {"calibration_needed", false},
                                                {"frame_delayed", false}});
            host.send(header, std::string(120, '\0'));
        }
    };
    receive_for(9900ms, configuration);
    expect_times(0, 12ms);
    expect_times(300, 2500us);
    const auto phase = (asked.back() - start) % 20ms;
    EXPECT_GE(phase, 15ms);
    EXPECT_LE(phase, 17ms);
}

TEST_F(clock_watch_test, does_not_ask_a_server_without_a_clock)
{
    server.on("identify", [](host_connection &host, const json &) {
        auto identity = test::identity();
        identity["ticks_per_second"] = 0;
        host.send(identity, "");
    });
    receive_for(2s);
    EXPECT_EQ(asked.size(), 0U);
    EXPECT_FALSE(frames.back().items()[0].utc);
    EXPECT_LT(calls, 200);
}

TEST_F(clock_watch_test, knows_no_time_of_a_server_that_does_not_report_its_clock)
{
    answer_ping = [](host_connection &host) {
        host.send({{"status", "ok"}, {"command", "ping"}, {"payload_size", 0}}, "");
    };
    receive_for(2s);
    EXPECT_FALSE(frames.back().items()[0].utc);
}

/** Sends frames, some of whose items have a time that was measured elsewhere. */
class times_of_the_server : public clock_watch_test
{
protected:
    /** Sends a frame each 20 ms, with a time of the given items. */
    void send_timed_frames(host_connection &host, uint32_t count, const std::vector<size_t> &timed)
    {
        for (uint32_t i = 0; i < count; ++i)
        {
            server.pause(number == 0 ? duration(20ms + 100us) : duration(20ms));
            auto header = example_session().frame_header(++number);
            std::array<json *, 3> items = {&header["result_info"][0][0], &header["result_info"][0][1],
                                           &header["result_info"][1][0]};
            for (const auto place : timed)
            {
                (*items[place])["utc_s"] = 1e9 + number;
                (*items[place])["utc_bound_s"] = 0.25;
            }
            host.send(header, example_session().frame_payload(number));
        }
    }

    /** Checks the time that the server gave to an item. */
    static void expect_time_of_server(const frame_item &item)
    {
        const auto sent = std::chrono::seconds(1000000000 + item.tick / 20000);
        ASSERT_TRUE(item.utc);
        EXPECT_EQ(item.utc->moment, std::chrono::sys_time<std::chrono::seconds>(sent));
        EXPECT_EQ(item.utc->bound, 250ms);
    }

    uint32_t number = 0;
};

TEST_F(times_of_the_server, are_kept_and_it_is_not_asked_for_others)
{
    stream = [this](host_connection &host) { send_timed_frames(host, 400, {0, 1, 2}); };
    receive_for(8s);
    EXPECT_EQ(asked.size(), 1U);
    ASSERT_EQ(frames.size(), 400U);
    for (const auto &received : frames)
    {
        expect_time_of_server(received.items()[0]);
    }
}

TEST_F(times_of_the_server, are_kept_beside_those_that_the_host_knows)
{
    stream = [this](host_connection &host) { send_timed_frames(host, 100, {1}); };
    receive_for(2s);
    EXPECT_GT(asked.size(), 1U);
    ASSERT_GT(frames.size(), 90U);
    for (const auto &received : frames)
    {
        expect_time_of_server(received.items()[1]);
        EXPECT_LE(error(received.items()[0]).value(), received.items()[0].utc->bound);
        EXPECT_LE(error(received.items()[2]).value(), received.items()[2].utc->bound);
    }
}

TEST_F(times_of_the_server, are_missed_when_they_stop)
{
    stream = [this](host_connection &host) {
        send_timed_frames(host, 100, {0, 1, 2});
        send_timed_frames(host, 100, {});
    };
    receive_for(4s);
    ASSERT_GT(asked.size(), 2U);
    EXPECT_EQ(asked[1] - start, 2020ms + 100us);
    expect_times(100, 1ms);
}

TEST_F(clock_watch_test, asks_again_after_a_lost_answer)
{
    answer_ping = [this](host_connection &host) {
        if (asked.size() == 2)
        {
            host.send("damaged\n");
            return;
        }
        send_clock(host, 100us, 100us);
    };
    receive_for(9900ms);
    ASSERT_GT(asked.size(), 3U);
    EXPECT_GE(asked[2] - asked[1], 4999ms);
    EXPECT_GE(asked[3] - asked[2], 999ms);
    expect_times(0, 2600us);
    EXPECT_LT(frames.back().items()[0].utc->bound, 500us);
}

TEST_F(clock_watch_test, goes_on_after_a_damaged_question)
{
    answer_ping = [this](host_connection &host) {
        if (asked.size() == 2)
        {
            host.send({{"status", "error"}, {"code", "bad_json"}, {"message", "What?"}, {"payload_size", 0}},
                      "");
            return;
        }
        send_clock(host, 100us, 100us);
    };
    receive_for(9900ms);
    ASSERT_GT(asked.size(), 3U);
    expect_times(0, 2600us);
}

TEST_F(clock_watch_test, waits_for_answers_that_are_very_late)
{
    answer_ping = [this](host_connection &host) { send_clock(host, 100us, asked.size() == 2 ? 6s : 0s); };
    receive_for(9900ms);
    ASSERT_GT(asked.size(), 3U);
    EXPECT_GE(asked[2] - asked[1], 6s);
    expect_times(0, 2600us);
}

TEST_F(clock_watch_test, knows_no_time_of_a_clock_at_another_rate)
{
    rate = 2;
    receive_for(4s);
    EXPECT_FALSE(frames.back().items()[0].utc);
}

TEST_F(clock_watch_test, forgets_the_clock_of_a_server_that_may_have_started_again)
{
    stream = [this](host_connection &host) {
        send_frames(host, 100us);
        if (asked.size() < 3)
        {
            host.close();
        }
    };
    receive_for(2s);
    EXPECT_EQ(asked.size(), 3U);
}

// So that it does not wait behind the frame.
TEST_F(clock_watch_test, does_not_ask_while_a_frame_arrives)
{
    stream = [this](host_connection &host) {
        server.pause(900ms);
        host.send(example_session().frame_header(1), "");
        const auto payload = example_session().frame_payload(1);
        host.send(payload.substr(1));
        server.pause(500ms);
        host.send(payload.substr(0, 1));
    };
    receive_for(2s);
    ASSERT_EQ(frames.size(), 1U);
    ASSERT_EQ(asked.size(), 2U);
    EXPECT_EQ(asked[1] - start, 1400ms);
    EXPECT_LT(calls, 100);
}

} // namespace
} // namespace vantor
