/** @file
 * Tests of `vantor record` with several boards.
 */
#include "commands/record_boards.h"

#include <algorithm>
#include <csignal>
#include <deque>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <gmock/gmock.h>
#include <sys/resource.h>

#include "command_outcome.h"
#include "commands/recorded_boards.h"
#include "commands/usage_error.h"
#include "disk_calls.h"
#include "fake_server.h"
#include "scripted_server.h"
#include "temporary_directory.h"
#include "thread_calls.h"
#include "vantor/board_collection.h"
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
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

/** A reaction to "identify": a board with this name and number. */
test::reaction identify_as(const std::string &name, const std::string &id)
{
    return [name, id](host_connection &host, const json &) {
        auto identity = test::identity();
        identity["board"] = {{"name", name}, {"id", id}};
        host.send(identity, "");
    };
}

/** A reaction to "start": some frames, then the connection is lost. */
test::reaction lose_link_after(uint32_t count)
{
    return [count](host_connection &host, const json &command) {
        test::stream_frames(count)(host, command);
        host.close();
    };
}

/** Whether a server has received "start". */
bool has_started(const fake_server &server)
{
    const auto lines = server.lines();
    return std::find(lines.begin(), lines.end(), R"({"command":"start"})") != lines.end();
}

/** Two boards on real connections, "Ceiling A17" and "Wall 2", and the output of the command. */
class record_boards_test : public testing::Test
{
protected:
    record_boards_test()
    {
        options.configuration = directory.write("config.json", example_session().configuration.dump());
        options.output = directory / "out";
        options.frames = 5;
        ceiling.on("identify", identify_as("Ceiling", "A17"));
        wall.on("identify", identify_as("Wall", "2"));
        ceiling.on("start", test::stream_frames(5));
        wall.on("start", test::stream_frames(5));
    }

    /** Records the two boards with one configuration. */
    exit_code run()
    {
        options.connect = {ceiling.address(), wall.address()};
        return record(options, {out, err});
    }

    /** The document of the first item of a board. */
    json first_item(const std::string &board) const
    {
        return json::parse(read_file(directory / ("out/" + board + "/group-1-item-1.sigmf-meta")));
    }

    /** The number of frames of a board in its complete recording. */
    int recorded(const std::string &board) const
    {
        return first_item(board)["global"]["vantor:frames"];
    }

    test::temporary_directory directory;
    std::ostringstream out;
    std::ostringstream err;
    record_options options;
    fake_server ceiling;
    fake_server wall;
};

TEST_F(record_boards_test, records_each_board_in_a_directory_of_its_own)
{
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_EQ(recorded("ceiling-a17"), 5);
    EXPECT_EQ(recorded("wall-2"), 5);
    const auto list = board_collection::read(options.output);
    ASSERT_EQ(list.boards().size(), 2U);
    EXPECT_EQ(list.boards()[0].directory, "ceiling-a17");
    EXPECT_EQ(list.boards()[0].name, "Ceiling");
    EXPECT_EQ(list.boards()[0].id, "A17");
    EXPECT_EQ(list.boards()[0].address, ceiling.address());
    EXPECT_EQ(list.boards()[1].directory, "wall-2");
    EXPECT_EQ(list.boards()[1].streams.size(), 3U);
    EXPECT_THAT(list.changed_documents(), IsEmpty());
    const auto session = json::parse(read_file(options.output / "wall-2/session.sigmf-collection"));
    EXPECT_EQ(session["collection"]["vantor:source"]["address"], wall.address());
    EXPECT_THAT(err.str(), IsEmpty());
}

TEST_F(record_boards_test, reports_each_board)
{
    EXPECT_EQ(run(), exit_code::success);
    const auto text = out.str();
    EXPECT_THAT(text, testing::StartsWith("board ceiling-a17:\n"));
    EXPECT_THAT(
        text, HasSubstr("\nrecording: " + (options.output / "ceiling-a17").string() + "\n\nboard wall-2:\n"));
    EXPECT_THAT(text, ContainsRegex("1 +1 +1 +1 +40 +5 +[0-9.]+ +0\\.320 m"));
    EXPECT_THAT(text, testing::EndsWith("\nrecording of 2 boards: " + options.output.string() + "\n"));
}

TEST_F(record_boards_test, prints_json_for_programs)
{
    options.json = true;
    wall.on("start", lose_link_after(2));
    EXPECT_EQ(run(), exit_code::no_connection);
    const auto about = json::parse(out.str());
    EXPECT_EQ(about["recording"], options.output.string());
    ASSERT_EQ(about["boards"].size(), 2U);
    const auto &first = about["boards"][0];
    EXPECT_EQ(first["board"], "ceiling-a17");
    EXPECT_EQ(first["name"], "Ceiling");
    EXPECT_EQ(first["id"], "A17");
    EXPECT_EQ(first["address"], ceiling.address());
    EXPECT_EQ(first["failure"], nullptr);
    EXPECT_EQ(first["frames"], 5);
    EXPECT_EQ(first["items"].size(), 3U);
    EXPECT_EQ(first["recording"], (options.output / "ceiling-a17").string());
    EXPECT_EQ(about["boards"][1]["frames"], 2);
    EXPECT_EQ(about["boards"][1]["failure"], "The server closed the connection.");
}

TEST_F(record_boards_test, numbers_boards_with_the_same_name)
{
    wall.on("identify", identify_as("ceiling", "a17"));
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_EQ(recorded("ceiling-a17"), 5);
    EXPECT_EQ(recorded("ceiling-a17-2"), 5);
}

TEST_F(record_boards_test, gives_boards_configurations_of_their_own)
{
    auto own = example_session().configuration;
    own["max_update_rate"] = 25;
    options.boards = {directory.write("a=b.json", own.dump()).string() + "=" + wall.address()};
    options.connect = {ceiling.address()};
    EXPECT_EQ(record(options, {out, err}), exit_code::success);
    EXPECT_EQ(test::last_command(ceiling.lines(), "configure")["configuration"],
              example_session().configuration);
    EXPECT_EQ(test::last_command(wall.lines(), "configure")["configuration"], own);
}

TEST_F(record_boards_test, needs_no_common_configuration_if_each_board_has_one)
{
    options.boards = {options.configuration.string() + "=" + wall.address(),
                      options.configuration.string() + "=" + ceiling.address()};
    options.configuration.clear();
    EXPECT_EQ(record(options, {out, err}), exit_code::success);
    EXPECT_EQ(board_collection::read(options.output).boards()[0].directory, "wall-2");
}

TEST_F(record_boards_test, records_one_board_as_without_the_option)
{
    options.boards = {options.configuration.string() + "=" + wall.address()};
    options.configuration.clear();
    EXPECT_EQ(record(options, {out, err}), exit_code::success);
    EXPECT_FALSE(board_collection::is_at(options.output));
    EXPECT_TRUE(std::filesystem::exists(options.output / "session.sigmf-collection"));
}

TEST_F(record_boards_test, ends_only_the_recording_of_a_board_that_is_lost)
{
    wall.on("start", lose_link_after(2));
    EXPECT_EQ(run(), exit_code::no_connection);
    EXPECT_EQ(err.str(), "vantor: wall-2: The server closed the connection.\n");
    EXPECT_EQ(recorded("ceiling-a17"), 5);
    EXPECT_EQ(recorded("wall-2"), 2);
    EXPECT_THAT(board_collection::read(options.output).changed_documents(), IsEmpty());
}

TEST_F(record_boards_test, reports_every_failure_and_the_code_of_the_first)
{
    ceiling.on("start", [](host_connection &host, const json &) {
        host.send({{"status", "error"}, {"code", "broken"}, {"message", "No."}, {"payload_size", 0}}, "");
    });
    wall.on("start", lose_link_after(2));
    EXPECT_EQ(run(), exit_code::refused);
    EXPECT_THAT(err.str(), ContainsRegex("^vantor: ceiling-a17: .*No\\..*\nvantor: wall-2: .*\n$"));
    EXPECT_EQ(recorded("ceiling-a17"), 0);
    EXPECT_EQ(recorded("wall-2"), 2);
}

TEST_F(record_boards_test, connects_a_lost_board_again)
{
    wall.on("start", [begun = std::make_shared<bool>(false)](host_connection &host, const json &command) {
        std::exchange(*begun, true) ? test::stream_frames(3)(host, command)
                                    : lose_link_after(2)(host, command);
    });
    options.reconnect = true;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_EQ(recorded("ceiling-a17"), 5);
    EXPECT_EQ(recorded("wall-2"), 5);
    EXPECT_EQ(first_item("wall-2")["captures"][1]["vantor:break"], "connected again");
    EXPECT_EQ(first_item("ceiling-a17")["captures"].size(), 1U);
}

TEST_F(record_boards_test, ends_only_the_recording_whose_files_are_lost)
{
    wall.on("start", [this](host_connection &host, const json &command) {
        std::filesystem::remove_all(options.output / "wall-2");
        test::stream_frames(5)(host, command);
    });
    EXPECT_EQ(run(), exit_code::not_written);
    EXPECT_THAT(err.str(),
                ContainsRegex("^vantor: wall-2: .*was removed during the recording.*Frames recorded: "));
    EXPECT_EQ(recorded("ceiling-a17"), 5);
    EXPECT_FALSE(std::filesystem::exists(options.output / "wall-2"));
}

TEST_F(record_boards_test, completes_the_files_if_there_can_be_no_further_thread)
{
    const test::refused_threads refused([&] { return has_started(ceiling) && has_started(wall); });
    EXPECT_EQ(run(), exit_code::success) << err.str();
    EXPECT_EQ(recorded("ceiling-a17"), 5);
    EXPECT_EQ(recorded("wall-2"), 5);
}

TEST_F(record_boards_test, reports_failures_of_every_kind)
{
    options.json = true;
    const test::disk_calls calls([&] {
        if (has_started(ceiling) && has_started(wall))
        {
            throw std::runtime_error("The disk is gone.");
        }
    });
    EXPECT_EQ(run(), exit_code::failure);
    const auto boards = json::parse(out.str())["boards"];
    EXPECT_EQ(boards[0]["failure"], "The disk is gone.");
    EXPECT_EQ(boards[1]["failure"], "The disk is gone.");
    EXPECT_THAT(err.str(),
                HasSubstr("vantor: ceiling-a17: The disk is gone.\nvantor: wall-2: The disk is gone.\n"));
}

TEST_F(record_boards_test, records_nothing_if_a_board_cannot_be_set_up)
{
    const test::reaction refuse = [](host_connection &host, const json &) {
        host.send({{"status", "error"}, {"code", "busy"}, {"message", "Busy."}, {"payload_size", 0}}, "");
    };
    wall.on("configure", refuse);
    EXPECT_EQ(run(), exit_code::refused);
    EXPECT_THAT(err.str(), testing::StartsWith("vantor: " + wall.address() + ": "));
    EXPECT_THAT(err.str(), HasSubstr("Busy."));
    EXPECT_FALSE(std::filesystem::exists(options.output));
    EXPECT_THAT(out.str(), IsEmpty());
    EXPECT_FALSE(has_started(ceiling));
}

TEST_F(record_boards_test, records_nothing_if_too_few_files_can_be_open)
{
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    // Enough for the links, but not for the 16 files.
    const auto reduce = [&](host_connection &host, const json &command) {
        std::filesystem::directory_iterator all("/proc/self/fd");
        const auto open = static_cast<rlim_t>(std::distance(begin(all), end(all)));
        const rlimit reduced{.rlim_cur = open + 12, .rlim_max = usual.rlim_max};
        setrlimit(RLIMIT_NOFILE, &reduced);
        identify_as("Wall", "2")(host, command);
    };
    wall.on("identify", reduce);
    EXPECT_THAT([&] { run(); },
                ThrowsMessage<recording_error>(
                    ContainsRegex("^The recording needs [0-9]+ open files, but the limit is [0-9]+: raise it "
                                  "with \"ulimit -n [0-9]+\"\\.$")));
    setrlimit(RLIMIT_NOFILE, &usual);
    EXPECT_FALSE(std::filesystem::exists(options.output));
}

TEST_F(record_boards_test, names_all_boards_that_cannot_be_set_up)
{
    options.connect = {"unix:" + (directory / "none").string(), ceiling.address(),
                       "unix:" + (directory / "missing").string()};
    EXPECT_EQ(record(options, {out, err}), exit_code::no_connection);
    EXPECT_THAT(err.str(), ContainsRegex("^vantor: unix:.*none: .*\nvantor: unix:.*missing: .*\n$"));
}

TEST_F(record_boards_test, overwrites_no_recording)
{
    std::filesystem::create_directory(options.output);
    static_cast<void>(directory.write("out/file", ""));
    EXPECT_THAT([&] { run(); }, ThrowsMessage<recording_error>(HasSubstr("is not empty")));
}

TEST_F(record_boards_test, ends_all_boards_at_an_interrupt)
{
    options.frames = 0;
    bool raised = false;
    const auto loop = std::make_shared<event_loop>([&] {
        if (!raised && has_started(ceiling) && has_started(wall))
        {
            raised = true;
            std::raise(SIGINT);
        }
        return std::chrono::steady_clock::now();
    });
    options.connect = {ceiling.address(), wall.address()};
    EXPECT_EQ(record_boards(options, {out, err}, list_boards(options, {out, err}, loop).boards, loop),
              exit_code::interrupted);
    EXPECT_TRUE(raised);
    EXPECT_LE(recorded("ceiling-a17"), 5);
    EXPECT_LE(recorded("wall-2"), 5);
    EXPECT_EQ(ceiling.lines().back(), R"({"command":"end"})");
    EXPECT_EQ(wall.lines().back(), R"({"command":"end"})");
}

TEST_F(record_boards_test, ends_all_boards_after_some_seconds)
{
    options.frames = 0;
    options.seconds = 0.01;
    EXPECT_EQ(run(), exit_code::success);
    EXPECT_LE(recorded("ceiling-a17"), 5);
    EXPECT_LE(recorded("wall-2"), 5);
}

TEST_F(record_boards_test, refuses_the_same_server_twice)
{
    options.connect = {ceiling.address(), wall.address(), ceiling.address()};
    EXPECT_THAT(
        [&] {
            record(options, {out, err});
        },
        ThrowsMessage<usage_error>(HasSubstr("the address " + ceiling.address() + " is given twice")));
    options.connect = {"serial:/dev/ttyACM0@9600"};
    options.boards = {options.configuration.string() + "=serial:/dev/ttyACM0"};
    EXPECT_THAT(
        [&] {
            record(options, {out, err});
        },
        ThrowsMessage<usage_error>(HasSubstr("serial:/dev/ttyACM0 is given twice")));
    EXPECT_THAT(ceiling.lines(), IsEmpty());
}

TEST_F(record_boards_test, refuses_options_that_do_not_fit)
{
    const auto expect_refused = [&](const std::string &reason) {
        EXPECT_THAT([&] { record(options, {out, err}); }, ThrowsMessage<usage_error>(HasSubstr(reason)));
    };
    for (const char *text : {"b.json", "=tcp:host:1", "tcp:host:1"})
    {
        options.boards = {text};
        expect_refused("is not CONFIG=ADDRESS");
    }
    options.boards = {"b.json=" + wall.address()};
    expect_refused("CONFIG is for the boards of --connect, but none is given");
    options.connect = {ceiling.address()};
    options.truth = "truth.jsonl";
    expect_refused("--truth is the file of one server, but 2 boards are given");
    options.truth.clear();
    options.configuration.clear();
    options.connect = {"sim:"};
    expect_refused("CONFIG is missing");
    options.connect.assign(1025, "sim:");
    options.boards.clear();
    expect_refused("at most 1024 boards");
}

TEST_F(record_boards_test, refuses_a_wrong_address_or_configuration_of_a_board)
{
    options.configuration.clear();
    options.boards = {"b.json=host:1", "a.json=" + wall.address()};
    EXPECT_THAT(
        [&] {
            record(options, {out, err});
        },
        ThrowsMessage<address_error>(HasSubstr("\"host:1\" is not a valid address")));
    options.boards = {"b.json=" + ceiling.address(), "a.json=" + wall.address()};
    EXPECT_THAT(
        [&] {
            record(options, {out, err});
        },
        ThrowsMessage<configuration_error>(HasSubstr("Cannot read b.json")));
}

TEST_F(record_boards_test, takes_repeated_options_of_the_command_line)
{
    const auto config = options.configuration.string();
    const auto done =
        test::run({"record", config, "--connect", ceiling.address(), "--frames", "2", "--output",
                   options.output.string(), "--board", config + "=" + wall.address()});
    EXPECT_EQ(done.code, exit_code::success);
    EXPECT_EQ(recorded("ceiling-a17"), 2);
    EXPECT_EQ(recorded("wall-2"), 2);
}

/** Boards whose frames arrive in virtual time. */
TEST(record_boards, shows_all_frames_and_which_board_has_troubles)
{
    test::manual_clock clock;
    const auto loop = std::make_shared<test::manual_loop>(clock);
    const test::temporary_directory directory;
    std::deque<test::scripted_server> servers;
    std::vector<board_source> boards;
    for (const char *name : {"Ceiling", "Wall"})
    {
        auto &server = servers.emplace_back(clock);
        server.on("identify", identify_as(name, ""));
        server.on("start", [&server](host_connection &host, const json &command) {
            test::stream_frames(2)(host, command);
            server.pause(1s);
            host.send(example_session().frame_header(9), example_session().frame_payload(9));
        });
        boards.push_back({.file = "config.json",
                          .configuration = example_session().configuration,
                          .address = std::string("unix:") + name,
                          .open_links = server.links()});
    }
    std::ostringstream out;
    std::ostringstream err;
    record_options options;
    options.output = directory / "out";
    options.frames = 3;
    EXPECT_EQ(record_boards(options, {out, err, true}, std::move(boards), loop), exit_code::success);
    EXPECT_THAT(err.str(), ContainsRegex("[0-9] of 6 frames, .*; ceiling: rate not reached, 7 missing"));
}

} // namespace
} // namespace vantor
