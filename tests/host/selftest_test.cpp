/** @file
 * Tests of `vantor selftest` with scripted servers; tests with a real server are in tests/end_to_end.
 */
#include "commands/selftest.h"

#include <functional>
#include <sstream>

#include <gmock/gmock.h>

#include "scripted_server.h"
#include "selftest/selftest.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using test::host_connection;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/** A server and its self-test. */
class selftest_test : public testing::Test
{
protected:
    /** Tests the server. */
    exit_code run()
    {
        return run_selftest(options, {out, err}, on);
    }

    /** Makes the server describe itself with different members. */
    void describe_with(const json &members)
    {
        server.on("identify", [=](host_connection &host, const json &) {
            auto identity = test::identity();
            identity.update(members);
            host.send(identity, "");
        });
    }

    /** Sends frames of a stream, one every 50 ms. */
    void send_frames(host_connection &host, int count)
    {
        const auto session = test::example_session();
        for (int i = 0; i < count; ++i)
        {
            server.pause(50ms);
            host.send(session.frame_header(number), session.frame_payload(number));
            ++number;
        }
    }

    /** How a case ended, from a run with --json. */
    json result(const std::string &name)
    {
        const auto document = json::parse(out.str());
        for (const auto &each : document.at("cases"))
        {
            if (each.at("case") == name)
            {
                return each;
            }
        }
        ADD_FAILURE() << "no case " << name;
        return {};
    }

    test::manual_clock clock;
    test::scripted_server server{clock};
    selftest::bench on{server.links(), {}, {}, std::make_shared<event_loop>(clock.source())};
    std::ostringstream out;
    std::ostringstream err;
    selftest_options options;

private:
    uint32_t number = 0; /**< of the next frame */
};

/** More frames than arrive within any time-out. */
constexpr int many_frames = 1000;

/** The answer that a command was executed, with additional members. */
json plain_answer(const json &command, const json &members = json::object())
{
    json answer = {{"status", "ok"}, {"command", command["command"]}, {"payload_size", 0}};
    answer.update(members);
    return answer;
}

/** A reaction that does nothing. */
void stay_silent(host_connection & /*host*/, const json & /*command*/)
{
}

TEST_F(selftest_test, waits_until_the_given_time_out)
{
    server.on("ping", stay_silent);
    server.on("configure", stay_silent);
    options.timeout = 60;
    options.json = true;
    selftest::bench slow(server.links(), {}, timeouts_of(options),
                         std::make_shared<event_loop>(clock.source()));
    EXPECT_EQ(run_selftest(options, {out, err}, slow), exit_code::failure);
    EXPECT_EQ(result("\"ping\" is answered").value("got", ""), "nothing within 60000 ms");
    EXPECT_EQ(result("frames are measured on demand").value("got", ""), "nothing within 60000 ms");
    EXPECT_EQ(timeouts_of(options).frame, 60s);
    EXPECT_EQ(timeouts_of({}).answer, 5s);
    EXPECT_EQ(timeouts_of({}).configure, 60s);
    EXPECT_EQ(timeouts_of({}).frame, 10s);
}

TEST_F(selftest_test, reports_equal_failures_in_one_line)
{
    EXPECT_EQ(run(), exit_code::failure);
    // The scripted server answers every command that it does not know.
    EXPECT_THAT(out.str(),
                HasSubstr("\nFAILED   \"stats\" counts what was sent and received: as the first case that "
                          "failed\n"));
    EXPECT_THAT(out.str(),
                EndsWith("\"several commands sent at once are answered in order\" failed first, and 1 "
                         "others in the same way: begin with it\n"));
}

TEST_F(selftest_test, ends_when_the_server_can_no_longer_be_reached)
{
    server.on("ping", [this](host_connection &, const json &) { server.on("end", stay_silent); });
    EXPECT_EQ(run(), exit_code::failure);
    const auto cases = selftest::all_cases().size();
    EXPECT_THAT(out.str(), StartsWith("ok       \"identify\" describes the server\n"
                                      "FAILED   \"ping\" is answered\n"
                                      "           expected: the answer \"ok\" to {\"command\":\"ping\"}\n"
                                      "           got:      nothing within 5000 ms\n"));
    EXPECT_THAT(out.str(),
                HasSubstr("FAILED   several commands sent at once are answered in order\n"
                          "           expected: a server that still works after the previous case\n"));
    EXPECT_THAT(out.str(),
                HasSubstr("skipped  a session runs from \"configure\" to \"end\": the server can no "
                          "longer be reached\n"));
    EXPECT_THAT(out.str(), EndsWith("\n1 passed, 2 failed, " + std::to_string(cases - 3) + " skipped\n"));
    // One time-out each for an answer, an "end" and a new link.
    EXPECT_EQ(clock.now(), 15s);
}

TEST_F(selftest_test, reports_that_there_is_no_server)
{
    server.on("end", stay_silent);
    EXPECT_THROW(run(), timeout_error);
    EXPECT_EQ(out.str(), "");
}

TEST_F(selftest_test, does_not_wait_for_another_host_to_disconnect)
{
    int tries = 0;
    server.on("end", [&](host_connection &host, const json &) {
        ++tries;
        host.send({{"status", "error"}, {"code", "busy"}, {"message", "Wait."}, {"payload_size", 0}}, "");
    });
    EXPECT_THROW(run(), server_error);
    EXPECT_EQ(tries, 1);
}

TEST_F(selftest_test, continues_after_a_stream_that_does_not_stop)
{
    server.on("start", [this](host_connection &host, const json &command) {
        host.send(plain_answer(command), "");
        send_frames(host, 3);
    });
    server.on("stop", [this](host_connection &host, const json &) { send_frames(host, many_frames); });
    server.on("bing", [](host_connection &host, const json &) {
        host.send({{"status", "error"}, {"code", "unknown_command"}, {"payload_size", 0}}, "");
    });
    options.json = true;
    EXPECT_EQ(run(), exit_code::failure);
    const auto session = result("a session runs from \"configure\" to \"end\"");
    EXPECT_EQ(session.value("expected", ""), "the answer \"ok\" to \"stop\"");
    EXPECT_EQ(session.value("got", ""), "only frames within 5000 ms");
    EXPECT_EQ(result("frames are measured on demand")["result"], "ok");
}

TEST_F(selftest_test, fails_statistics_that_never_arrive_between_frames)
{
    server.on("stats", [](host_connection &host, const json &command) {
        host.send(plain_answer(command, {{"frames", 0}, {"frames_left_out", 0}}), "");
    });
    server.on("configure", [this](host_connection &host, const json &command) {
        auto metadata = test::example_session().metadata;
        metadata["tick_period"] = 100000;
        host.send(metadata, "");
        if (command["configuration"].contains("update_rate"))
        {
            server.on("start", [this](host_connection &streaming, const json &start) {
                streaming.send(plain_answer(start), "");
                server.on("stats", stay_silent);
                send_frames(streaming, many_frames);
            });
        }
    });
    server.on("frame", [this](host_connection &host, const json &) { send_frames(host, 1); });
    options.json = true;
    EXPECT_EQ(run(), exit_code::failure);
    const auto pace = result("frames keep the configured rate");
    EXPECT_EQ(pace.value("expected", ""), "the answer to \"stats\"");
    EXPECT_EQ(pace.value("got", ""), "only frames");
}

TEST_F(selftest_test, fails_an_answer_that_never_ends)
{
    server.on("start", [this](host_connection &host, const json &command) {
        host.send(plain_answer(command), "");
        send_frames(host, 1);
    });
    server.on("stop", [this](host_connection &host, const json &) {
        for (int i = 0; i < many_frames; ++i)
        {
            server.pause(50ms);
            host.send("x");
        }
    });
    selftest::bench network(server.links(), {.closes_with_host = true}, {},
                            std::make_shared<event_loop>(clock.source()));
    options.json = true;
    EXPECT_EQ(run_selftest(options, {out, err}, network), exit_code::failure);
    const auto lost = result("a session ends when its host disconnects");
    EXPECT_THAT(lost.value("expected", ""), StartsWith("the error \"wrong_state\" to \"stop\""));
    EXPECT_EQ(lost.value("got", ""), "no message within 5000 ms");
}

TEST_F(selftest_test, finds_every_wrong_member_of_a_description)
{
    const json memory = {{"size", 9}, {"live", 3}, {"peak", 4}, {"largest_free", 6}, {"failures", 0}};
    const auto with = [](json object, const char *name, const json &value) {
        object[name] = value;
        return object;
    };
    const struct
    {
        json members;
        const char *expected;
    } faults[] = {
        {{{"sensor", ""}}, "\"sensor\": a string"},
        {{{"server_version", ""}}, "\"server_version\": a string"},
        {{{"connected_sensors", json::array()}}, "at least one"},
        {{{"connected_sensors", {2, 1}}}, "ascending"},
        {{{"connected_sensors", {1, 1}}}, "ascending"},
        {{{"ticks_per_second", 0.5}}, "\"ticks_per_second\": a whole number"},
        {{{"ticks_per_second", 4294967296}}, "\"ticks_per_second\": a whole number"},
        {{{"memory", with(memory, "live", 5)}}, "\"live\": a whole number from 0 to 4"},
        {{{"memory", with(memory, "peak", 10)}}, "\"peak\": a whole number from 0 to 9"},
        {{{"memory", with(memory, "largest_free", 7)}}, "\"largest_free\": a whole number from 0 to 6"},
        {{{"memory", with(memory, "size", 0)}}, "\"size\": a whole number from 1"},
        {{{"stack", {{"size", 9}, {"peak", 10}}}}, "\"peak\": a whole number from 1 to 9"},
    };
    options.json = true;
    for (const auto &[members, expected] : faults)
    {
        out.str({});
        describe_with(members);
        run();
        const auto identify = result("\"identify\" describes the server");
        EXPECT_EQ(identify["result"], "failed") << members;
        EXPECT_THAT(identify.value("expected", ""), HasSubstr(expected)) << members;
    }
    out.str({});
    describe_with({{"memory", memory}, {"stack", {{"size", 9}, {"peak", 9}}}, {"board", {{"name", ""}}}});
    run();
    EXPECT_EQ(result("\"identify\" describes the server")["result"], "ok");
}

TEST_F(selftest_test, fails_a_case_whose_answer_lacks_a_member)
{
    options.json = true;
    EXPECT_EQ(run(), exit_code::failure);
    // The script's "stats" counts nothing.
    const auto pace = result("1,000 frames arrive without a gap");
    EXPECT_EQ(pace["result"], "failed");
    EXPECT_THAT(pace.value("got", ""), HasSubstr("frames"));
}

TEST_F(selftest_test, skips_what_needs_a_sensor_when_none_is_connected)
{
    options.json = true;
    describe_with({{"connected_sensors", json::array()}});
    EXPECT_EQ(run(), exit_code::failure);
    EXPECT_EQ(result("frames are measured on demand"), json({{"case", "frames are measured on demand"},
                                                             {"result", "skipped"},
                                                             {"reason", "no sensor is connected"}}));
    EXPECT_EQ(result("\"ping\" is answered")["result"], "ok");
}

/** Only the case about the clock, with a server whose clock the test controls. */
class selftest_clock : public selftest_test
{
protected:
    using uptime_source = std::function<std::chrono::milliseconds()>;

    /** Makes the server report an uptime. */
    void report(const uptime_source &uptime)
    {
        server.on("stats", [=](host_connection &host, const json &command) {
            const auto seconds = static_cast<double>(uptime().count()) / 1000.0;
            host.send(plain_answer(command, {{"uptime_s", seconds}}), "");
        });
    }

    /** The uptime of a clock that runs at this many thousandths of the right rate. */
    uptime_source at_speed(int thousandths)
    {
        return [this, thousandths] {
            return std::chrono::floor<std::chrono::milliseconds>(clock.now() * thousandths / 1000);
        };
    }

    /** The outcome of the case, with the reason if it does not pass. */
    std::string outcome()
    {
        selftest::bench fresh(server.links(), {}, {}, std::make_shared<event_loop>(clock.source()));
        fresh.connect();
        return outcome(fresh);
    }

    /** Like the function above, on a connected bench. */
    static std::string outcome(selftest::bench &bench)
    {
        try
        {
            selftest::clock_cases().front().run(bench);
            return "ok";
        }
        catch (const selftest::case_failed &failure)
        {
            return "expected " + failure.details().expected + ", got " + failure.details().got;
        }
        catch (const selftest::case_skipped &reason)
        {
            return std::string("skipped: ") + reason.what();
        }
    }
};

TEST_F(selftest_clock, compares_two_seconds_to_two_per_cent)
{
    for (const int thousandths : {980, 1000, 1020})
    {
        report(at_speed(thousandths));
        const auto begin = clock.now();
        EXPECT_EQ(outcome(), "ok") << thousandths;
        EXPECT_EQ(clock.now() - begin, 2s);
    }
    for (const int thousandths : {83, 978, 1022, 12000})
    {
        report(at_speed(thousandths));
        EXPECT_THAT(outcome(),
                    StartsWith("expected \"uptime_s\" that grows by 1.959000 s to 2.041000 s, got "))
            << thousandths;
    }
}

TEST_F(selftest_clock, allows_for_the_transfer_time)
{
    for (const auto &[growth, fits] : std::vector<std::pair<std::chrono::milliseconds, bool>>{
             {1957ms, false}, {1960ms, true}, {4080ms, true}, {4083ms, false}})
    {
        auto uptime = 10000ms - growth / 2;
        report([this, &uptime, growth = growth] {
            server.pause(1s);
            return uptime += growth / 2;
        });
        const auto result = outcome();
        EXPECT_EQ(result == "ok", fits) << growth.count() << " ms: " << result;
    }
}

TEST_F(selftest_clock, uses_the_time_since_the_first_statistics)
{
    for (const int thousandths : {960, 1000})
    {
        selftest::bench fresh(server.links(), {}, {}, std::make_shared<event_loop>(clock.source()));
        fresh.connect();
        report(at_speed(thousandths));
        fresh.statistics();
        clock.advance(1h);
        const auto begin = clock.now();
        const auto late = clock.now() * (1000 - thousandths) / 1000;
        report([this, late] { return std::chrono::floor<std::chrono::milliseconds>(clock.now() - late); });
        EXPECT_EQ(outcome(fresh) == "ok", thousandths == 1000);
        // The time that the bench waits while the server is idle.
        EXPECT_EQ(clock.now() - begin, 100ms);
    }
}

TEST_F(selftest_clock, forgets_the_clock_of_an_earlier_server)
{
    selftest::bench fresh(server.links(), {}, {}, std::make_shared<event_loop>(clock.source()));
    fresh.connect();
    report([] { return 7000000ms; });
    fresh.statistics();
    fresh.connect();
    report(at_speed(1000));
    EXPECT_EQ(outcome(fresh), "ok");
}

TEST_F(selftest_clock, fails_a_clock_that_has_stopped)
{
    report([] { return 7000ms; });
    EXPECT_EQ(outcome(), "expected \"uptime_s\" that grows while the server is idle, got it does not change");
}

TEST_F(selftest_clock, distinguishes_a_clock_that_stops_when_idle_from_a_virtual_one)
{
    for (const auto &[pause, expected] :
         std::vector<std::pair<std::chrono::milliseconds, std::string>>{{5s, "it does not change"},
                                                                        {2600ms, "it does not change"},
                                                                        {2400ms, "is virtual"},
                                                                        {50ms, "is virtual"}})
    {
        auto uptime = 7000ms;
        report([&] { return uptime; });
        server.on("frame", [this, &uptime, pause = pause](host_connection &host, const json &) {
            server.pause(pause - 50ms);
            send_frames(host, 1);
            uptime += 5s;
        });
        EXPECT_THAT(outcome(), EndsWith(expected)) << pause.count();
    }
    const auto configuration = test::last_command(server.lines(), "configure")["configuration"];
    EXPECT_EQ(configuration["groups"][0][0]["config"]["frame_rate"], 0.2);
}

TEST_F(selftest_clock, needs_a_clock_and_its_uptime)
{
    EXPECT_THAT(outcome(), StartsWith("expected \"uptime_s\": a number, got {"));
    describe_with({{"ticks_per_second", 999}});
    EXPECT_EQ(outcome(), "skipped: the server does not have a clock that is fast enough");
}

} // namespace
} // namespace vantor
