/** @file
 * Tests of `vantor record` against a scripted server.
 */
#include "commands/record.h"

#include <atomic>
#include <csignal>
#include <sstream>

#include <gmock/gmock.h>

#include "calibration_file.h"
#include "configuration.h"
#include "fake_server.h"
#include "recording/recording_error.h"
#include "temporary_directory.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using test::example_session;
using test::fake_server;
using test::host_connection;
using test::read_file;
using testing::ContainsRegex;
using testing::HasSubstr;

/** A directory, a configuration in it, and what the command prints. */
struct record_fixture
{
    test::temporary_directory directory;
    std::ostringstream out;
    std::ostringstream err;
    record_options options;

    explicit record_fixture(const fake_server &server)
    {
        options.configuration = directory.write("config.json", example_session().configuration.dump());
        options.connect = server.address();
        options.output = directory / "out";
    }

    exit_code run()
    {
        return record(options, {out, err});
    }

    /** The document of the session's first item. */
    json first_item() const
    {
        return json::parse(read_file(directory / "out/group-1-item-1.sigmf-meta"));
    }
};

TEST(record, records_frames_and_prints_what_they_hold)
{
    fake_server server;
    server.on("start", test::stream_frames(15));
    record_fixture fixture(server);
    fixture.options.frames = 10;
    EXPECT_EQ(fixture.run(), exit_code::success);
    const auto text = fixture.out.str();
    EXPECT_THAT(text, HasSubstr("strongest echo\n"));
    // Point 7 of each sweep is the strong one: (100 + 7 × 4), (60 + 7 × 2) and (-41 + 7) steps of 2.5 mm.
    EXPECT_THAT(text, ContainsRegex("1 +1 +1 +1 +40 +10 +[0-9.]+ +0\\.320 m"));
    EXPECT_THAT(text, ContainsRegex("1 +2 +2 +2 +25 +10 +[0-9.]+ +0\\.185 m"));
    EXPECT_THAT(text, ContainsRegex("2 +1 +2 +1 +30 +10 +[0-9.]+ +-0\\.085 m"));
    EXPECT_THAT(text, HasSubstr("10 frames, 3.8 kB in "));
    EXPECT_THAT(text, HasSubstr("recording: " + fixture.options.output.string()));
    EXPECT_EQ(read_file(fixture.directory / "out/group-1-item-1.sigmf-data").size(), 1600U);
    EXPECT_EQ(server.lines().back(), R"({"command":"end"})");
}

TEST(record, prints_json_for_programs)
{
    fake_server server;
    server.on("start", test::stream_frames(3));
    record_fixture fixture(server);
    fixture.options.frames = 3;
    fixture.options.json = true;
    EXPECT_EQ(fixture.run(), exit_code::success);
    const auto about = json::parse(fixture.out.str());
    EXPECT_EQ(about["frames"], 3);
    EXPECT_EQ(about["bytes"], 3 * 380);
    EXPECT_EQ(about["interrupted"], false);
    ASSERT_EQ(about["items"].size(), 3U);
    EXPECT_NEAR(about["items"][0]["strongest_echo_m"].get<double>(), 0.32, 1e-9);
}

TEST(record, hands_calibrations_of_a_file_to_the_server)
{
    fake_server server;
    server.on("start", test::stream_frames(1));
    record_fixture fixture(server);
    fixture.options.frames = 1;
    fixture.options.calibration = fixture.directory.write(
        "cal.json", calibration_text({{.sensor_id = 2, .temperature = 20, .data = std::string(480, 'd')}}));
    EXPECT_EQ(fixture.run(), exit_code::success);
    const auto sent = json::parse(server.lines()[2])["configuration"];
    EXPECT_EQ(sent["calibration_info"][0]["data"], std::string(480, 'd'));
}

TEST(record, shows_progress_when_asked_to)
{
    fake_server server;
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(1)(host, command);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        host.send(example_session().frame_header(1), example_session().frame_payload(1));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        host.send(example_session().frame_header(2), example_session().frame_payload(2));
    });
    record_fixture fixture(server);
    fixture.options.frames = 3;
    fixture.options.progress = true;
    EXPECT_EQ(fixture.run(), exit_code::success);
    EXPECT_THAT(fixture.err.str(), HasSubstr("\r2 of 3 frames, "));
    EXPECT_THAT(fixture.err.str(), testing::EndsWith(" \r"));
}

TEST(record, ends_after_some_seconds)
{
    fake_server server;
    server.on("start", test::stream_frames(4));
    record_fixture fixture(server);
    fixture.options.seconds = 0.3;
    EXPECT_EQ(fixture.run(), exit_code::success);
    EXPECT_EQ(fixture.first_item()["global"]["vantor:frames"], 4);
}

TEST(record, keeps_what_came_when_the_server_goes)
{
    fake_server server;
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(3)(host, command);
        host.send("{\"result_info\":");
        host.close();
    });
    record_fixture fixture(server);
    fixture.options.frames = 10;
    EXPECT_THROW(fixture.run(), connection_lost);
    EXPECT_EQ(fixture.first_item()["global"]["vantor:frames"], 3);
    EXPECT_THAT(fixture.out.str(), HasSubstr("3 frames"));
}

TEST(record, keeps_what_came_when_the_server_reports_an_error)
{
    fake_server server;
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(2)(host, command);
        host.send({{"status", "error"}, {"code", "nox_data"}, {"message", "No data."}, {"payload_size", 0}},
                  "");
    });
    record_fixture fixture(server);
    EXPECT_THROW(fixture.run(), server_error);
    EXPECT_EQ(fixture.first_item()["global"]["vantor:frames"], 2);
}

TEST(record, goes_on_after_a_disturbance_and_says_where_it_was)
{
    fake_server server;
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(2)(host, command);
        host.send("#&%$\n");
        const auto session = example_session();
        host.send(session.frame_header(5), session.frame_payload(5));
    });
    record_fixture fixture(server);
    fixture.options.frames = 3;
    EXPECT_EQ(fixture.run(), exit_code::success);
    EXPECT_THAT(fixture.out.str(), HasSubstr("disturbed 1 times"));
    const auto captures = fixture.first_item()["captures"];
    ASSERT_EQ(captures.size(), 2U);
    EXPECT_EQ(captures[1]["core:sample_start"], 2 * 40);
    EXPECT_EQ(captures[1]["core:global_index"], 5 * 40);
}

TEST(record, goes_on_after_frames_that_lack_bytes_or_have_a_wrong_length)
{
    fake_server server;
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(2)(host, command);
        const auto session = example_session();
        auto wrong = session.frame_header(2);
        wrong["payload_size"] = 38; // instead of 380
        host.send(wrong, session.frame_payload(2));
        host.send(session.frame_header(3), session.frame_payload(3));
        host.send(session.frame_header(4), session.frame_payload(4).substr(10));
        for (std::uint32_t number = 5; number < 9; ++number)
        {
            host.send(session.frame_header(number), session.frame_payload(number));
        }
    });
    record_fixture fixture(server);
    fixture.options.frames = 7;
    EXPECT_EQ(fixture.run(), exit_code::success);
    EXPECT_THAT(fixture.out.str(), HasSubstr("disturbed 2 times"));
    EXPECT_THAT(read_file(fixture.directory / "out/group-1-item-1.frames.csv"),
                testing::AllOf(HasSubstr(",20000,"), HasSubstr(",60000,"), HasSubstr(",120000,")));
    const auto captures = fixture.first_item()["captures"];
    ASSERT_EQ(captures.size(), 3U);
    EXPECT_EQ(captures[2]["core:global_index"], 6 * 40);
}

TEST(record, gives_up_when_only_nonsense_comes)
{
    std::atomic<bool> over = false;
    fake_server server;
    server.on("start", [&](host_connection &host, const json &command) {
        test::stream_frames(0)(host, command);
        while (!over)
        {
            host.send({{"status", "ok"}, {"payload_size", 1}, {"result_info", json::array()}}, "x");
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    record_fixture fixture(server);
    fixture.options.frames = 1000000;
    EXPECT_THROW(fixture.run(), bad_message);
    over = true;
}

TEST(record, waits_for_a_frame_that_a_slow_line_takes_long_for)
{
    fake_server server;
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(0)(host, command);
        const auto payload = example_session().frame_payload(0);
        host.send(example_session().frame_header(0).dump() + "\n");
        for (std::size_t place = 0; place < payload.size(); place += 20)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(560)); // more than ten seconds in all
            host.send(payload.substr(place, 20));
        }
    });
    record_fixture fixture(server);
    fixture.options.frames = 1;
    EXPECT_EQ(fixture.run(), exit_code::success);
}

TEST(record, ends_at_an_interrupt)
{
    fake_server server;
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(3)(host, command);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        std::raise(SIGINT);
    });
    record_fixture fixture(server);
    EXPECT_EQ(fixture.run(), exit_code::interrupted);
    EXPECT_EQ(fixture.first_item()["global"]["vantor:frames"], 3);
}

TEST(record, writes_nothing_when_the_server_refuses_the_configuration)
{
    fake_server server;
    server.on("configure", [](host_connection &host, const json &) {
        host.send({{"status", "error"}, {"code", "bad_config"}, {"message", "…"}, {"payload_size", 0}}, "");
    });
    record_fixture fixture(server);
    EXPECT_THROW(fixture.run(), server_error);
    EXPECT_FALSE(std::filesystem::exists(fixture.options.output));
}

TEST(record, makes_a_directory_of_its_own_when_none_is_given)
{
    fake_server server;
    server.on("start", test::stream_frames(2));
    record_fixture fixture(server);
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(fixture.directory / "");
    fixture.options.output.clear();
    fixture.options.frames = 1;
    EXPECT_EQ(fixture.run(), exit_code::success);
    EXPECT_EQ(fixture.run(), exit_code::success);
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("recordings"))
    {
        EXPECT_THAT(entry.path().filename().string(), testing::StartsWith("config-"));
        ++count;
    }
    EXPECT_EQ(count, 2);
    std::filesystem::current_path(before);
}

TEST(record, refuses_to_record_nothing)
{
    fake_server server;
    server.on("configure", [](host_connection &host, const json &) {
        host.send({{"status", "ok"}, {"tick_period", 0}, {"payload_size", 0}, {"metadata", json::array()}},
                  "");
    });
    record_fixture fixture(server);
    fixture.options.configuration = fixture.directory.write("empty.json", "{}");
    EXPECT_THROW(fixture.run(), configuration_error);
    EXPECT_FALSE(std::filesystem::exists(fixture.options.output));
}

} // namespace
} // namespace vantor
