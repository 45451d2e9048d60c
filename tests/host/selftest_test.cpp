/** @file
 * Tests of `vantor selftest` against servers that do not get far; those with a real server are in
 * tests/end_to_end.
 */
#include "commands/selftest.h"

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

/** A server and a self-test of it. */
class selftest_test : public testing::Test
{
protected:
    /** Tests the server. */
    exit_code run()
    {
        return run_selftest(options, {out, err}, on);
    }

    /** Has the server describe itself with other members. */
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
    selftest::bench on{server.links(), {}, {}, clock.source()};
    std::ostringstream out;
    std::ostringstream err;
    selftest_options options;

private:
    std::uint32_t number = 0; // of the next frame
};

/** More frames than come within any time-out. */
constexpr int many = 1000;

/** An answer that says that a command was executed, and perhaps more. */
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

TEST_F(selftest_test, waits_as_long_as_it_is_told)
{
    server.on("ping", stay_silent);
    server.on("configure", stay_silent);
    options.timeout = 60;
    options.json = true;
    selftest::bench slow(server.links(), {}, timeouts_of(options), clock.source());
    EXPECT_EQ(run_selftest(options, {out, err}, slow), exit_code::failure);
    EXPECT_EQ(result("ping is answered").value("got", ""), "nothing within 60000 ms");
    EXPECT_EQ(result("frames come on demand").value("got", ""), "nothing within 60000 ms");
    EXPECT_EQ(timeouts_of(options).frame, 60s);
    EXPECT_EQ(timeouts_of({}).answer, 5s);
    EXPECT_EQ(timeouts_of({}).configure, 60s);
    EXPECT_EQ(timeouts_of({}).frame, 10s);
}

TEST_F(selftest_test, ends_when_the_server_cannot_be_reached_any_more)
{
    server.on("ping", [this](host_connection &, const json &) { server.on("end", stay_silent); });
    EXPECT_EQ(run(), exit_code::failure);
    const auto cases = selftest::all_cases().size();
    EXPECT_THAT(out.str(), StartsWith("ok       identify describes the server\n"
                                      "FAILED   ping is answered\n"
                                      "           expected: the answer \"ok\" to {\"command\":\"ping\"}\n"
                                      "           got:      nothing within 5000 ms\n"));
    EXPECT_THAT(out.str(), HasSubstr("FAILED   commands sent ahead are answered in their order\n"
                                     "           expected: a server that works on after the case before\n"));
    EXPECT_THAT(out.str(), HasSubstr("skipped  a session runs from configure to end: the server cannot be "
                                     "reached any more\n"));
    EXPECT_THAT(out.str(), EndsWith("\n1 passed, 2 failed, " + std::to_string(cases - 3) + " skipped\n"));
    EXPECT_EQ(clock.now(), 15s); // an answer, an "end", and a new link
}

TEST_F(selftest_test, says_that_there_is_no_server)
{
    server.on("end", stay_silent);
    EXPECT_THROW(run(), timeout_error);
    EXPECT_EQ(out.str(), "");
}

TEST_F(selftest_test, does_not_wait_for_another_host_to_go)
{
    int tries = 0;
    server.on("end", [&](host_connection &host, const json &) {
        ++tries;
        host.send({{"status", "error"}, {"code", "busy"}, {"message", "Wait."}, {"payload_size", 0}}, "");
    });
    EXPECT_THROW(run(), server_error);
    EXPECT_EQ(tries, 1);
}

TEST_F(selftest_test, fails_a_stream_that_does_not_stop_and_goes_on)
{
    server.on("start", [this](host_connection &host, const json &command) {
        host.send(plain_answer(command), "");
        send_frames(host, 3);
    });
    server.on("stop", [this](host_connection &host, const json &) { send_frames(host, many); });
    options.json = true;
    EXPECT_EQ(run(), exit_code::failure);
    const auto session = result("a session runs from configure to end");
    EXPECT_EQ(session.value("expected", ""), "the answer \"ok\" to \"stop\"");
    EXPECT_EQ(session.value("got", ""), "only frames within 5000 ms");
    EXPECT_EQ(result("frames come on demand")["result"], "ok");
}

TEST_F(selftest_test, fails_an_answer_that_never_comes_between_frames)
{
    server.on("configure", [this](host_connection &host, const json &) {
        auto metadata = test::example_session().metadata;
        metadata["tick_period"] = 100000;
        host.send(metadata, "");
        server.on("stats", [](host_connection &other, const json &command) {
            other.send(plain_answer(command, {{"frames", 0}, {"frames_left_out", 0}}), "");
        });
    });
    server.on("frame", [this](host_connection &host, const json &) { send_frames(host, 1); });
    server.on("start", [this](host_connection &host, const json &command) {
        host.send(plain_answer(command), "");
        server.on("stats", stay_silent);
        send_frames(host, many);
    });
    options.json = true;
    EXPECT_EQ(run(), exit_code::failure);
    const auto pace = result("frames keep the pace");
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
        for (int i = 0; i < many; ++i)
        {
            server.pause(50ms);
            host.send("x");
        }
    });
    selftest::bench network(server.links(), {.closes_with_host = true}, {}, clock.source());
    options.json = true;
    EXPECT_EQ(run_selftest(options, {out, err}, network), exit_code::failure);
    const auto lost = result("the session of a lost host ends");
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
        {{{"sensor", ""}}, "\"sensor\": a text"},
        {{{"server_version", ""}}, "\"server_version\": a text"},
        {{{"connected_sensors", json::array()}}, "at least one"},
        {{{"connected_sensors", {2, 1}}}, "rising"},
        {{{"connected_sensors", {1, 1}}}, "rising"},
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
        const auto identify = result("identify describes the server");
        EXPECT_EQ(identify["result"], "failed") << members;
        EXPECT_THAT(identify.value("expected", ""), HasSubstr(expected)) << members;
    }
    out.str({});
    describe_with({{"memory", memory}, {"stack", {{"size", 9}, {"peak", 9}}}, {"board", {{"name", ""}}}});
    run();
    EXPECT_EQ(result("identify describes the server")["result"], "ok");
}

TEST_F(selftest_test, fails_a_case_whose_answer_lacks_a_member)
{
    options.json = true;
    EXPECT_EQ(run(), exit_code::failure);
    const auto pace = result("1,000 frames come without a gap"); // the script's "stats" counts nothing
    EXPECT_EQ(pace["result"], "failed");
    EXPECT_THAT(pace.value("got", ""), HasSubstr("frames"));
}

TEST_F(selftest_test, skips_what_needs_a_sensor_when_none_is_connected)
{
    options.json = true;
    describe_with({{"connected_sensors", json::array()}});
    EXPECT_EQ(run(), exit_code::failure);
    EXPECT_EQ(result("frames come on demand"), json({{"case", "frames come on demand"},
                                                     {"result", "skipped"},
                                                     {"reason", "no sensor is connected"}}));
    EXPECT_EQ(result("ping is answered")["result"], "ok");
}

} // namespace
} // namespace vantor
