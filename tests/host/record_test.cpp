/** @file
 * Tests of `vantor record` against a scripted server, in virtual time.
 */
#include "commands/record.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <sstream>
#include <utility>

#include <gmock/gmock.h>

#include "commands/usage_error.h"
#include "example_truth.h"
#include "fake_server.h"
#include "file_size_limit.h"
#include "scripted_server.h"
#include "temporary_directory.h"
#include "vantor/calibration_file.h"
#include "vantor/configuration.h"
#include "vantor/errors.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using test::example_session;
using test::fake_server;
using test::host_connection;
using test::read_file;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

/** A server, a directory with a configuration, and the output of the command. */
class record_test : public testing::Test
{
protected:
    record_test()
    {
        options.configuration = directory.write("config.json", example_session().configuration.dump());
        options.output = directory / "out";
    }

    exit_code run()
    {
        return record(options, {out, err, terminal}, server.links(), loop);
    }

    /** The document of the session's first item. */
    json first_item() const
    {
        return json::parse(read_file(directory / "out/group-1-item-1.sigmf-meta"));
    }

    /** The number of frames in the recording. */
    int recorded() const
    {
        return first_item()["global"]["vantor:frames"];
    }

    /** Lets a signal arrive at a time. */
    void interrupt_at(test::manual_clock::duration time)
    {
        loop = std::make_shared<event_loop>([this, time] {
            if (clock.now() >= time && !std::exchange(interrupted_, true))
            {
                std::raise(SIGINT);
            }
            return clock.source()();
        });
    }

    test::manual_clock clock;
    std::shared_ptr<event_loop> loop = std::make_shared<test::manual_loop>(clock);
    test::scripted_server server{clock};
    test::temporary_directory directory;
    std::ostringstream out;
    std::ostringstream err;
    bool terminal = false; /**< whether err is one */
    record_options options;

private:
    bool interrupted_ = false;
};

/** Sends a frame of the example session. */
void send_frame(host_connection &host, uint32_t number)
{
    host.send(example_session().frame_header(number), example_session().frame_payload(number));
}

TEST(record, records_over_a_real_connection)
{
    fake_server server;
    server.on("start", test::stream_frames(4));
    const test::temporary_directory directory;
    std::ostringstream out;
    record_options options;
    options.configuration = directory.write("config.json", example_session().configuration.dump());
    options.connect = {server.address()};
    options.output = directory / "out";
    options.frames = 3;
    EXPECT_EQ(record(options, {out, out}), exit_code::success);
    EXPECT_THAT(out.str(), HasSubstr("3 frames, "));
    EXPECT_EQ(read_file(directory / "out/group-1-item-1.sigmf-data").size(), 3 * 160U);
    const auto session = json::parse(read_file(directory / "out/session.sigmf-collection"))["collection"];
    EXPECT_EQ(session["vantor:source"], json({{"address", server.address()}}));
}

TEST_F(record_test, records_frames_and_prints_a_summary)
{
    server.on("start", test::stream_frames(15));
    options.frames = 10;
    EXPECT_EQ(run(), exit_code::success);
    const auto text = out.str();
    EXPECT_THAT(text, HasSubstr("strongest echo\n"));
    // Point 7 of each sweep is the strong one: (100 + 7 × 4), (60 + 7 × 2) and (-41 + 7) steps of 2.5 mm. The
    // last one is the direct leakage.
    EXPECT_THAT(text, ContainsRegex("1 +1 +1 +1 +40 +10 +[0-9.]+ +0\\.320 m"));
    EXPECT_THAT(text, ContainsRegex("1 +2 +2 +2 +25 +10 +[0-9.]+ +0\\.185 m"));
    EXPECT_THAT(
        text,
        ContainsRegex("2 +1 +2 +1 +30 +10 +[0-9.]+ +- \\(only direct leakage, or an echo at an edge\\)\n"));
    EXPECT_THAT(text, HasSubstr("10 frames, 3.8 kB in "));
    EXPECT_THAT(text, HasSubstr("recording: " + options.output.string()));
    EXPECT_EQ(read_file(directory / "out/group-1-item-1.sigmf-data").size(), 1600U);
    EXPECT_EQ(server.lines().back(), R"({"command":"end"})");
}

TEST_F(record_test, claims_no_echo_if_the_noise_is_unknown)
{
    server.on("start", test::stream_frames(1));
    options.frames = 1;
    EXPECT_EQ(run(), exit_code::success);
    // Two sweeps per frame, and one.
    EXPECT_THAT(out.str(), ContainsRegex("1 +1 +1 +1 +40 +1 +[0-9.]+ +0\\.320 m"));
    EXPECT_THAT(out.str(),
                ContainsRegex("1 +2 +2 +2 +25 +1 +[0-9.]+ +- \\(noise unknown: too few sweeps\\)\n"));
}

TEST_F(record_test, prints_json_for_programs)
{
    server.on("start", test::stream_frames(3));
    options.frames = 3;
    options.json = true;
    EXPECT_EQ(run(), exit_code::success);
    const auto about = json::parse(out.str());
    EXPECT_EQ(about["frames"], 3);
    EXPECT_EQ(about["bytes"], 3 * 380);
    EXPECT_EQ(about["interrupted"], false);
    ASSERT_EQ(about["items"].size(), 3U);
    EXPECT_NEAR(about["items"][0]["strongest_echo_m"].get<double>(), 0.32, 1e-9);
    EXPECT_EQ(about["items"][0]["strongest_echo_note"], nullptr);
    EXPECT_EQ(about["items"][2]["strongest_echo_m"], nullptr);
    EXPECT_EQ(about["items"][2]["strongest_echo_note"], "only direct leakage, or an echo at an edge");
}

TEST_F(record_test, sends_calibrations_of_a_file_to_the_server)
{
    server.on("start", test::stream_frames(1));
    options.frames = 1;
    options.calibration = directory.write(
        "cal.json", calibration_text({{.sensor_id = 2, .temperature = 20, .data = std::string(480, 'd')}}));
    EXPECT_EQ(run(), exit_code::success);
    const auto sent = test::last_command(server.lines(), "configure")["configuration"];
    EXPECT_EQ(sent["calibration_info"][0]["data"], std::string(480, 'd'));
}

TEST_F(record_test, prints_all_faults_of_a_configuration_and_does_not_connect)
{
    options.configuration = directory.write("wrong.json",
                                            R"({"max_updaterate": 20,
            "groups": [[{"sensor_id": 1, "cca_enabled": true, "config": {"num_point": 9, "hwaas": 600}}]]})");
    EXPECT_THAT([this] { run(); }, testing::ThrowsMessage<configuration_error>(testing::AllOf(
                                       HasSubstr("wrong.json is not valid"), HasSubstr("--no-validate"))));
    for (const char *fault : {
             "wrong.json: /max_updaterate: got the member \"max_updaterate\"; allowed: only the documented "
             "members; nearest: \"max_update_rate\"\n",
             "wrong.json: /groups/0/0/cca_enabled: got the member \"cca_enabled\"; allowed: only the "
             "documented members; nearest: \"cca_enable\"\n",
             "wrong.json: /groups/0/0/config/num_point: got the member \"num_point\"; allowed: only the "
             "documented members; nearest: \"num_points\"\n",
             "wrong.json: /groups/0/0/config/hwaas: got 600; allowed: a whole number, from 1 to 511; "
             "nearest: 511\n",
         })
    {
        EXPECT_THAT(err.str(), HasSubstr(fault));
    }
    EXPECT_THAT(server.lines(), testing::IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(options.output));
}

TEST_F(record_test, leaves_the_configuration_to_the_server_without_validation)
{
    server.on("start", test::stream_frames(1));
    auto configuration = example_session().configuration;
    configuration["new_member"] = 1;
    options.configuration = directory.write("newer.json", configuration.dump());
    options.no_validate = true;
    options.frames = 1;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_EQ(test::last_command(server.lines(), "configure")["configuration"], configuration);
}

TEST_F(record_test, takes_the_configuration_of_a_replay)
{
    auto identity = test::identity();
    identity["configuration"] = example_session().configuration;
    server.on("identify", [&](host_connection &host, const json &) { host.send(identity, ""); });
    server.on("start", test::stream_frames(1));
    options.configuration.clear();
    options.frames = 1;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_EQ(test::last_command(server.lines(), "configure")["configuration"],
              example_session().configuration);
    EXPECT_EQ(recorded(), 1);
}

TEST_F(record_test, needs_a_configuration_for_another_server)
{
    options.configuration.clear();
    EXPECT_THAT([&] { run(); },
                testing::ThrowsMessage<usage_error>(HasSubstr("give a configuration document")));
    EXPECT_FALSE(std::filesystem::exists(options.output));
}

TEST_F(record_test, needs_a_configuration_for_a_calibration)
{
    options.configuration.clear();
    options.calibration = directory / "cal.json";
    EXPECT_THAT([&] { run(); },
                testing::ThrowsMessage<usage_error>(HasSubstr("--calibration needs a CONFIG")));
}

TEST_F(record_test, shows_progress_when_asked_to)
{
    server.on("start", [this](host_connection &host, const json &command) {
        test::stream_frames(1)(host, command);
        server.pause(200ms);
        send_frame(host, 1);
        server.pause(100ms);
        send_frame(host, 2);
    });
    options.frames = 3;
    terminal = true;
    EXPECT_EQ(run(), exit_code::success);
    const std::string line = "2 of 3 frames, 5.00 frames/s, 0 s left";
    EXPECT_EQ(err.str(), "\r" + line + "\r" + std::string(line.size(), ' ') + "\rnext: vantor plot " +
                             options.output.string() + "\n");
}

// Their arrival says little: after a suspension, many arrive at once.
TEST_F(record_test, prints_time_and_rate_by_the_clock_of_the_server)
{
    server.on("start", [this](host_connection &host, const json &command) {
        test::stream_frames(0)(host, command);
        server.pause(30ms);
        send_frame(host, 0);
        for (uint32_t number = 1; number < 20; ++number)
        {
            server.pause(50ms);
            send_frame(host, number);
        }
    });
    options.frames = 20;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_THAT(out.str(), HasSubstr("\n20 frames, 7.6 kB in 0.38 s: 50.0 frames/s, 19.0 kB/s\n"));
}

TEST_F(record_test, reports_frames_that_were_due_before_the_end)
{
    server.on("start", test::stream_frames(2));
    server.on("stop", [](host_connection &host, const json &) {
        send_frame(host, 2);
        send_frame(host, 4);
        host.send({{"status", "ok"}, {"command", "stop"}, {"payload_size", 0}, {"frames_left_out", 290}}, "");
    });
    options.seconds = 0.5;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_EQ(recorded(), 2);
    EXPECT_THAT(out.str(), HasSubstr("\nno frame in the last 6.3 s: 292 frames were due\n"));
}

TEST_F(record_test, shows_that_the_link_is_lost)
{
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(2)(host, command);
        host.close();
    });
    server.on("identify", [links = std::make_shared<int>(0)](host_connection &host, const json &) {
        if ((*links)++ == 0)
        {
            host.send(test::identity(), "");
            return;
        }
        host.close();
    });
    options.reconnect = true;
    options.seconds = 5.0;
    terminal = true;
    EXPECT_THROW(run(), connection_lost);
    EXPECT_THAT(err.str(), HasSubstr(" s left, link lost, connecting again"));
    EXPECT_THAT(out.str(), HasSubstr("\nlink lost, and not connected again before the end\n"));
}

TEST_F(record_test, leaves_frames_beyond_the_limit_out_without_a_warning)
{
    server.on("start", test::stream_frames(2));
    server.on("stop", [](host_connection &host, const json &) {
        for (uint32_t number = 2; number < 200; ++number)
        {
            send_frame(host, number);
        }
        host.send({{"status", "ok"}, {"command", "stop"}, {"payload_size", 0}}, "");
    });
    options.frames = 2;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_THAT(out.str(), testing::Not(HasSubstr("no frame in the last")));
}

TEST_F(record_test, prints_no_rates_for_one_frame)
{
    server.on("start", [this](host_connection &host, const json &command) {
        test::stream_frames(0)(host, command);
        server.pause(30ms);
        send_frame(host, 0);
    });
    options.frames = 1;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_THAT(out.str(), HasSubstr("1 frame, 380 B\n"));
}

TEST_F(record_test, ends_after_some_seconds)
{
    server.on("start", [this](host_connection &host, const json &command) {
        test::stream_frames(4)(host, command);
        for (uint32_t number = 4; number < 20; ++number)
        {
            server.pause(75ms);
            send_frame(host, number);
        }
    });
    options.seconds = 0.26;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_EQ(clock.now(), 260ms);
    EXPECT_EQ(recorded(), 4 + 3);
    EXPECT_THAT(out.str(), HasSubstr(" in 0.12 s: 50.0 frames/s"));
}

TEST_F(record_test, ends_after_some_seconds_on_a_silent_line)
{
    server.on("start", test::stream_frames(1));
    options.seconds = 1.25;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_EQ(clock.now(), 1250ms);
    EXPECT_EQ(recorded(), 1);
}

TEST_F(record_test, keeps_earlier_frames_when_the_server_disconnects)
{
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(3)(host, command);
        host.send("{\"result_info\":");
        host.close();
    });
    options.frames = 10;
    EXPECT_THROW(run(), connection_lost);
    EXPECT_EQ(recorded(), 3);
    EXPECT_THAT(out.str(), HasSubstr("3 frames"));
}

TEST_F(record_test, prints_the_summary_when_the_disk_is_full)
{
    // The failure comes before the last frame.
    options.queue_megabytes = 0;
    server.on("start", test::stream_frames(200));
    {
        const test::file_size_limit limit(20000);
        EXPECT_THAT([&] { run(); },
                    testing::ThrowsMessage<recording_error>(
                        ContainsRegex("File too large\\. Frames recorded: 125, in a complete recording\\.")));
    }
    EXPECT_THAT(out.str(), HasSubstr("125 frames, "));
    EXPECT_EQ(recorded(), 125);
}

TEST_F(record_test, prints_the_summary_when_the_recording_was_removed)
{
    server.on("start", [this](host_connection &host, const json &command) {
        std::filesystem::remove_all(options.output);
        test::stream_frames(5)(host, command);
    });
    options.frames = 5;
    EXPECT_THAT([&] { run(); }, testing::ThrowsMessage<recording_error>(testing::AllOf(
                                    HasSubstr("group-1-item-1.sigmf-data was removed during the recording"),
                                    HasSubstr("Frames recorded: "))));
    EXPECT_THAT(out.str(), HasSubstr(" frames, "));
    EXPECT_FALSE(std::filesystem::exists(options.output));
}

TEST_F(record_test, warns_of_a_rate_that_the_server_has_not_accepted)
{
    auto configuration = example_session().configuration;
    server.on("start", test::stream_frames(3));
    options.frames = 3;
    for (const auto &[rate, warned] : {std::pair{50.4, false}, std::pair{51.0, true}, std::pair{5.0, true}})
    {
        configuration["max_update_rate"] = rate;
        options.configuration = directory.write("config.json", configuration.dump());
        options.output = directory / ("out" + std::to_string(rate));
        out.str("");
        run();
        EXPECT_EQ(out.str().find("rate not as requested") != std::string::npos, warned) << rate;
    }
}

TEST_F(record_test, writes_nothing_for_a_configuration_that_cannot_be_read)
{
    server.on("identify", [](host_connection &host, const json &) {
        auto identity = test::identity();
        identity["configuration"] = example_session().configuration;
        identity["configuration"]["groups"][0][1]["config"] = nullptr;
        host.send(identity, "");
    });
    options.configuration.clear();
    EXPECT_THAT([&] { run(); }, testing::ThrowsMessage<configuration_error>(
                                    HasSubstr("/groups/0/1/config must be an object")));
    EXPECT_FALSE(std::filesystem::exists(options.output));
}

TEST_F(record_test, keeps_earlier_frames_when_the_server_reports_an_error)
{
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(2)(host, command);
        host.send({{"status", "error"}, {"code", "nox_data"}, {"message", "No data."}, {"payload_size", 0}},
                  "");
    });
    EXPECT_THROW(run(), server_error);
    EXPECT_EQ(recorded(), 2);
}

TEST_F(record_test, counts_frames_that_the_server_left_out)
{
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(2)(host, command);
        for (const uint32_t number : {5U, 6U, 8U})
        {
            send_frame(host, number);
        }
    });
    options.frames = 5;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_THAT(out.str(), HasSubstr("missing: 4 frames"));
    EXPECT_THAT(out.str(), HasSubstr("rate not reached: 27.8 of 50.0 frames/s"));
    const auto captures = first_item()["captures"];
    ASSERT_EQ(captures.size(), 3U);
    EXPECT_EQ(captures[1]["core:global_index"], 5 * 40);
    EXPECT_EQ(captures[2]["core:sample_start"], 4 * 40);
    EXPECT_EQ(captures[2]["core:global_index"], 8 * 40);
}

TEST_F(record_test, continues_after_a_disturbance_and_records_where_it_was)
{
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(2)(host, command);
        host.send("#&%$\n");
        const auto session = example_session();
        host.send(session.frame_header(5), session.frame_payload(5));
    });
    options.frames = 3;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_THAT(out.str(), HasSubstr("missing: 3 frames"));
    EXPECT_THAT(out.str(), HasSubstr("damaged: 1 message"));
    const auto captures = first_item()["captures"];
    ASSERT_EQ(captures.size(), 2U);
    EXPECT_EQ(captures[1]["core:sample_start"], 2 * 40);
    EXPECT_EQ(captures[1]["core:global_index"], 5 * 40);
}

TEST_F(record_test, continues_after_frames_that_lack_bytes_or_have_a_wrong_length)
{
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(2)(host, command);
        const auto session = example_session();
        auto wrong = session.frame_header(2);
        // Instead of 380.
        wrong["payload_size"] = 38;
        host.send(wrong, session.frame_payload(2));
        host.send(session.frame_header(3), session.frame_payload(3));
        host.send(session.frame_header(4), session.frame_payload(4).substr(10));
        for (uint32_t number = 5; number < 9; ++number)
        {
            host.send(session.frame_header(number), session.frame_payload(number));
        }
    });
    options.frames = 7;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_THAT(out.str(), HasSubstr("damaged: 2 messages"));
    EXPECT_THAT(read_file(directory / "out/group-1-item-1.frames.csv"),
                testing::AllOf(HasSubstr(",20000,"), HasSubstr(",60000,"), HasSubstr(",120000,")));
    const auto captures = first_item()["captures"];
    ASSERT_EQ(captures.size(), 3U);
    EXPECT_EQ(captures[2]["core:global_index"], 6 * 40);
}

TEST_F(record_test, gives_up_when_all_messages_are_invalid)
{
    server.on("start", [this](host_connection &host, const json &command) {
        test::stream_frames(1)(host, command);
        for (int i = 0; i < 1000; ++i)
        {
            server.pause(40ms);
            host.send({{"status", "ok"}, {"payload_size", 1}, {"result_info", json::array()}}, "x");
        }
    });
    EXPECT_THROW(run(), bad_message);
    EXPECT_EQ(clock.now(), 10s);
    EXPECT_EQ(recorded(), 1);
}

TEST_F(record_test, reports_why_no_message_was_a_frame)
{
    server.on("start", [this](host_connection &host, const json &command) {
        test::stream_frames(1)(host, command);
        for (int i = 0; i < 1000; ++i)
        {
            server.pause(40ms);
            host.send(R"({"status":"ok","payload_size":0,"result_info":[[{"cca_value":1e400}]]})"
                      "\n");
        }
    });
    EXPECT_THAT([&] { run(); },
                testing::ThrowsMessage<timeout_error>(testing::AllOf(
                    HasSubstr("No frame from the server for 10 s."),
                    HasSubstr(" The last message was damaged: Invalid data from the server at byte "))));
    EXPECT_EQ(recorded(), 1);
}

TEST_F(record_test, does_not_report_damage_from_before_the_last_frame)
{
    server.on("start", [](host_connection &host, const json &command) {
        test::stream_frames(1)(host, command);
        host.send("#&%$\n");
        send_frame(host, 2);
    });
    EXPECT_THAT([&] { run(); }, testing::ThrowsMessage<timeout_error>(testing::EndsWith("of the sensors.")));
    EXPECT_EQ(recorded(), 2);
}

TEST_F(record_test, gives_up_when_no_frame_arrives)
{
    server.on("start", [this](host_connection &host, const json &command) {
        test::stream_frames(1)(host, command);
        server.pause(9999ms);
        send_frame(host, 1);
    });
    EXPECT_THAT([&] { run(); },
                testing::ThrowsMessage<timeout_error>(HasSubstr("No frame from the server for 10 s.")));
    EXPECT_GE(clock.now(), 19999ms);
    EXPECT_LT(clock.now(), 20100ms);
    EXPECT_EQ(recorded(), 2);
}

TEST_F(record_test, waits_five_seconds_longer_than_three_frame_periods)
{
    server.on("configure", [](host_connection &host, const json &) {
        auto metadata = example_session().metadata;
        // This is 4 s.
        metadata["tick_period"] = 4'000'000;
        host.send(metadata, "");
    });
    server.on("start", test::stream_frames(1));
    EXPECT_THROW(run(), timeout_error);
    EXPECT_EQ(clock.now(), 17s);
}

TEST_F(record_test, waits_for_a_frame_on_a_slow_line)
{
    server.on("start", [this](host_connection &host, const json &command) {
        test::stream_frames(0)(host, command);
        const auto payload = example_session().frame_payload(0);
        host.send(example_session().frame_header(0).dump() + "\n");
        for (size_t place = 0; place < payload.size(); place += 100)
        {
            server.pause(9900ms);
            host.send(payload.substr(place, 100));
        }
    });
    options.frames = 1;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_EQ(clock.now(), 4 * 9900ms);
}

TEST_F(record_test, gives_up_on_a_frame_that_stops_arriving)
{
    server.on("start", [this](host_connection &host, const json &command) {
        test::stream_frames(0)(host, command);
        host.send(example_session().frame_header(0).dump() + "\n");
        server.pause(5s);
        host.send("half");
    });
    EXPECT_THROW(run(), timeout_error);
    // Silence counts from when the frame was seen to begin; the rest is for answers to "stop" and "end".
    EXPECT_EQ(clock.now(), 11600ms);
}

TEST_F(record_test, ends_at_an_interrupt)
{
    server.on("start", test::stream_frames(3));
    interrupt_at(1s);
    EXPECT_EQ(run(), exit_code::interrupted);
    // It is called ten times per second.
    EXPECT_LE(clock.now(), 1100ms);
    EXPECT_EQ(recorded(), 3);
}

TEST_F(record_test, counts_the_frames_that_were_due_at_an_interrupt)
{
    server.on("start", test::stream_frames(3));
    server.on("stop", [](host_connection &host, const json &) {
        send_frame(host, 3);
        send_frame(host, 6);
        host.send({{"status", "ok"}, {"command", "stop"}, {"frames_left_out", 40}, {"payload_size", 0}}, "");
    });
    interrupt_at(1s);
    EXPECT_EQ(run(), exit_code::interrupted);
    EXPECT_EQ(recorded(), 3);
    EXPECT_THAT(out.str(), HasSubstr(": 42 frames were due"));
}

TEST_F(record_test, writes_nothing_when_the_server_refuses_the_configuration)
{
    server.on("configure", [](host_connection &host, const json &) {
        host.send({{"status", "error"}, {"code", "bad_config"}, {"message", "…"}, {"payload_size", 0}}, "");
    });
    EXPECT_THROW(run(), server_error);
    EXPECT_FALSE(std::filesystem::exists(options.output));
}

TEST_F(record_test, creates_a_directory_when_none_is_given)
{
    server.on("start", test::stream_frames(2));
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(directory / "");
    options.output.clear();
    options.frames = 1;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_EQ(run(), exit_code::success);
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("recordings"))
    {
        EXPECT_THAT(entry.path().filename().string(), testing::StartsWith("config-"));
        ++count;
    }
    EXPECT_EQ(count, 2);
    std::filesystem::current_path(before);
}

TEST_F(record_test, refuses_a_configuration_without_items)
{
    server.on("configure", [](host_connection &host, const json &) {
        host.send({{"status", "ok"}, {"tick_period", 0}, {"payload_size", 0}, {"metadata", json::array()}},
                  "");
    });
    options.configuration = directory.write("empty.json", "{}");
    EXPECT_THROW(run(), configuration_error);
    EXPECT_FALSE(std::filesystem::exists(options.output));
}

TEST_F(record_test, records_the_truth_and_reports_what_is_missing)
{
    const auto path = directory.write("truth.jsonl", "");
    truth_file truth(path);
    server.on("configure", [&](host_connection &host, const json &command) {
        std::ofstream(path) << test::session_line(1);
        test::describe_configuration(host, command);
    });
    server.on("start", [&](host_connection &host, const json &command) {
        std::ofstream(path, std::ios::app) << test::row_line(1, test::truth_with(1, 20000, {0.3}));
        test::stream_frames(3)(host, command);
    });
    options.frames = 3;
    EXPECT_EQ(record(options, {out, err}, server.links(), loop, &truth), exit_code::success);
    EXPECT_THAT(out.str(), HasSubstr("truth missing: 8 lines; "));
    const auto recorded = read_file(directory / "out/truth.jsonl");
    EXPECT_EQ(std::count(recorded.begin(), recorded.end(), '\n'), 2);
    EXPECT_THAT(recorded, HasSubstr(R"({"frame":1,"group":1,"item":1,"sensor":1,"tick":20000,)"));
}

TEST(record, refuses_a_truth_that_is_not_that_of_the_server)
{
    fake_server server;
    const test::temporary_directory directory;
    std::ostringstream out;
    record_options options;
    options.configuration = directory.write("config.json", example_session().configuration.dump());
    options.connect = {server.address()};
    options.output = directory / "out";
    options.truth = directory.write("truth.jsonl", "{}\n");
    EXPECT_THAT(
        [&] {
            record(options, {out, out});
        },
        testing::ThrowsMessage<bad_recording>(HasSubstr("does not have the truth of this session")));
    EXPECT_FALSE(std::filesystem::exists(options.output));
    options.truth = directory / "none";
    EXPECT_THAT(
        [&] {
            record(options, {out, out});
        },
        testing::ThrowsMessage<bad_recording>(HasSubstr("No such file")));
    options.truth.clear();
    options.connect = {"sim:--truth x"};
    EXPECT_THAT(
        [&] {
            record(options, {out, out});
        },
        testing::ThrowsMessage<usage_error>(HasSubstr("the truth is recorded too")));
}

} // namespace
} // namespace vantor
