/** @file
 * Tests of the form of states.
 */
#include "bridge/board_state.h"

#include <gmock/gmock.h>

#include "bridge/batch.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using testing::HasSubstr;
using testing::ThrowsMessage;

/** When the example is reported. */
constexpr std::chrono::sys_time<std::chrono::nanoseconds> moment{1795435220s + 543210987ns};

/** The state of a board that measures. */
board_state measuring()
{
    server_info server;
    server.server_version = "0.1.0";
    server.board =
        board_info{.name = "Ceiling", .id = "A17", .reset_cause = {}, .last_fault = {}, .sensors = {}};
    return {.board = "door",
            .address = "tcp:10.0.0.5:6110",
            .online = true,
            .fault = "",
            .server = server,
            .sessions = 2,
            .frames = 400,
            .lost = 3,
            .dropped = 4,
            .waiting = 5,
            .rate = 19.5,
            .temperature = -7,
            .calibration_needed = true};
}

/** The state of a board that has not been reached. */
board_state away()
{
    return {.board = "door",
            .address = "tcp:10.0.0.5:6110",
            .fault = "Nobody is there.",
            .server = {},
            .temperature = {}};
}

/** A state as it is reported. */
std::string encoded(const board_state &state)
{
    return encode_state(state, {.site = "hall", .bridge = "cellar", .now = moment, .interval = 5s});
}

/** Expects that a state with a changed member is refused. */
void expect_refused(const char *name, const json &value)
{
    auto document = json::parse(encoded(measuring()));
    document[name] = value;
    EXPECT_THROW(decode_state(document.dump()), bad_batch) << document.dump();
}

TEST(state_of_a_board, is_a_line)
{
    EXPECT_EQ(
        encoded(measuring()),
        R"({"vantor_state":1,"site":"hall","board":"door","bridge":"cellar","utc_s":1795435220.543,"interval_s":5,"online":true,)"
        R"("address":"tcp:10.0.0.5:6110","sessions":2,"frames":400,"rate":19.5,"lost":3,"dropped":4,"waiting":5,)"
        R"("calibration_needed":true,"temperature":-7,"server_version":"0.1.0","board_name":"Ceiling",)"
        R"("board_id":"A17"})"
        "\n");
    EXPECT_EQ(
        encoded(away()),
        R"({"vantor_state":1,"site":"hall","board":"door","bridge":"cellar","utc_s":1795435220.543,"interval_s":5,"online":false,)"
        R"("address":"tcp:10.0.0.5:6110","sessions":0,"frames":0,"rate":0.0,"lost":0,"dropped":0,"waiting":0,)"
        R"("calibration_needed":false,"fault":"Nobody is there."})"
        "\n");
}

TEST(state_of_a_board, keeps_every_member)
{
    const auto read = decode_state(encoded(measuring()));
    EXPECT_EQ(read.site, "hall");
    EXPECT_EQ(read.utc_s, 1795435220.543);
    EXPECT_EQ(read.interval_s, 5.0);
    EXPECT_EQ(read.state.board, "door");
    EXPECT_EQ(read.state.address, "tcp:10.0.0.5:6110");
    EXPECT_TRUE(read.state.online);
    EXPECT_EQ(read.state.fault, "");
    ASSERT_TRUE(read.state.server.has_value());
    EXPECT_EQ(read.state.server->server_version, "0.1.0");
    EXPECT_EQ(read.state.server->board.value().name, "Ceiling");
    EXPECT_EQ(read.state.server->board.value().id, "A17");
    EXPECT_EQ(read.state.sessions, 2U);
    EXPECT_EQ(read.state.frames, 400U);
    EXPECT_EQ(read.state.lost, 3U);
    EXPECT_EQ(read.state.dropped, 4U);
    EXPECT_EQ(read.state.waiting, 5U);
    EXPECT_EQ(read.state.rate, 19.5);
    EXPECT_EQ(read.state.temperature, -7);
    EXPECT_TRUE(read.state.calibration_needed);
}

TEST(state_of_a_board, keeps_what_is_not_known)
{
    const auto read = decode_state(encoded(away()));
    EXPECT_FALSE(read.state.online);
    EXPECT_EQ(read.state.fault, "Nobody is there.");
    EXPECT_FALSE(read.state.server.has_value());
    EXPECT_FALSE(read.state.temperature.has_value());
    EXPECT_FALSE(read.state.calibration_needed);
}

TEST(state_of_a_board, replaces_text_that_is_not_utf_8)
{
    auto state = away();
    state.fault = "lost \xff";
    EXPECT_EQ(decode_state(encoded(state)).state.fault, "lost \xef\xbf\xbd");
}

TEST(state_of_a_board, needs_its_members)
{
    for (const char *name :
         {"vantor_state", "site", "board", "utc_s", "interval_s", "online", "address", "sessions", "frames",
          "rate", "lost", "dropped", "waiting", "calibration_needed"})
    {
        auto document = json::parse(encoded(measuring()));
        document.erase(name);
        EXPECT_THAT([&] { decode_state(document.dump()); }, ThrowsMessage<bad_batch>(HasSubstr(name)));
    }
}

TEST(state_of_a_board, refuses_members_of_another_type)
{
    for (const auto &value : json::array({nullptr, 1, true, "", "a b", json::array(), json::object()}))
    {
        expect_refused("site", value);
        expect_refused("board", value);
    }
    for (const auto &value : json::array({nullptr, 1, true, json::array(), json::object()}))
    {
        for (const char *name : {"address", "fault", "server_version", "board_name", "board_id"})
        {
            expect_refused(name, value);
        }
    }
    for (const auto &value : json::array({nullptr, 1, "x", json::array()}))
    {
        expect_refused("online", value);
        expect_refused("calibration_needed", value);
    }
    for (const auto &value : json::array({nullptr, true, "1", json::array()}))
    {
        for (const char *name : {"vantor_state", "utc_s", "interval_s", "sessions", "frames", "rate", "lost",
                                 "dropped", "waiting", "temperature"})
        {
            expect_refused(name, value);
        }
    }
}

TEST(state_of_a_board, refuses_members_out_of_range)
{
    for (const char *name : {"sessions", "frames", "lost", "dropped", "waiting"})
    {
        expect_refused(name, -1);
        expect_refused(name, 1.5);
        expect_refused(name, uint64_t{1} << 62U);
    }
    expect_refused("temperature", 40'000);
    expect_refused("vantor_state", 2);
}

TEST(state_of_a_board, refuses_what_is_not_an_object)
{
    for (const char *text : {"", "{", "null", "[]", "1", "\"x\"", "{}", "{} {}", "\xff"})
    {
        EXPECT_THROW(decode_state(text), bad_batch) << text;
    }
    EXPECT_THROW(decode_state(std::string(100'000, '[')), bad_batch);
}

TEST(state_of_a_board, ignores_members_that_it_does_not_know)
{
    auto document = json::parse(encoded(measuring()));
    document["later"] = {1, 2};
    EXPECT_EQ(decode_state(document.dump()).state.frames, 400U);
}

} // namespace
} // namespace vantor
