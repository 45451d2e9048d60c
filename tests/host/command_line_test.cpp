/** @file
 * Tests of the command line: help, version, faults and exit codes.
 */
#include "commands/command_line.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>

#include <sys/stat.h>

#include "command_outcome.h"
#include "commands/arguments.h"
#include "commands/completion.h"
#include "commands/next_command.h"
#include "example_recording.h"
#include "fake_server.h"
#include "temporary_directory.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using test::fake_server;
using test::host_connection;
using test::run;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(command_line, prints_its_version)
{
    const auto result = run({"--version"});
    EXPECT_EQ(result.code, exit_code::success);
    EXPECT_EQ(result.out, "vantor 0.1.0\n");
}

TEST(command_line, prints_help)
{
    const auto general = run({"--help"});
    EXPECT_EQ(general.code, exit_code::success);
    EXPECT_THAT(general.out, HasSubstr("Exit codes:"));
    EXPECT_THAT(general.out, HasSubstr("Usage: vantor [OPTIONS] COMMAND\n"));
    EXPECT_THAT(general.out, HasSubstr("\nCommands:\n"));
    EXPECT_THAT(general.out, testing::ContainsRegex("\n  record +Measure, and record the frames to disk\\."));
    const auto record = run({"record", "--help"}).out;
    EXPECT_THAT(record, HasSubstr("vantor record examples/two_sensors.json --frames 100"));
    EXPECT_THAT(record, HasSubstr("Usage: vantor record [OPTIONS] [CONFIG]\n"));
    EXPECT_THAT(run({"validate", "--help"}).out, HasSubstr("CONFIG REQUIRED"));
    EXPECT_THAT(record, testing::ContainsRegex("--frames NUMBER +Stop after this many frames"));
    EXPECT_THAT(record, HasSubstr("--connect ADDRESS=sim: "));
    EXPECT_THAT(record, HasSubstr("--board CONFIG=ADDRESS "));
    EXPECT_THAT(
        run({"export", "--help"}).out,
        testing::ContainsRegex(
            "--format FORMAT REQUIRED +Format of the files: csv, npy or npz \\(NumPy\\); truth for what "));
}

TEST(command_line, has_help_with_examples_for_every_command)
{
    for (const char *command : {"identify", "scan", "selftest", "plan", "validate", "calibrate", "record",
                                "info", "repair", "plot", "export", "replay", "completion"})
    {
        const auto help = run({command, "--help"});
        EXPECT_EQ(help.code, exit_code::success) << command;
        EXPECT_THAT(help.out, HasSubstr(std::string("vantor ") + command)) << command;
        EXPECT_THAT(help.out, HasSubstr("Examples:")) << command;
    }
}

TEST(command_line, identifies_a_server)
{
    const fake_server server;
    const auto text = run({"identify", "--connect", server.address()});
    EXPECT_EQ(text.code, exit_code::success);
    EXPECT_THAT(text.out, HasSubstr("k330, 5 positions, connected: 1, 2"));
    const auto output = run({"identify", "--connect", server.address(), "--json"}).out;
    EXPECT_THAT(output, HasSubstr("\"ticks_per_second\": 1000000,"));
    const auto about = json::parse(output);
    EXPECT_EQ(about["address"], server.address());
    EXPECT_EQ(about["connected_sensors"], json({1, 2}));
}

TEST(command_line, describes_the_board)
{
    fake_server server;
    server.on("identify", [](host_connection &host, const json &) {
        auto identity = test::identity();
        identity["board"] = {{"name", "x1\n"},
                             {"id", "7"},
                             {"reset_cause", "watchdog"},
                             {"last_fault", "none"},
                             {"sensors", "new\n"}};
        host.send(identity, "");
    });
    const auto text = run({"identify", "--connect", server.address()}).out;
    EXPECT_THAT(text,
                HasSubstr("\nboard      x1?\nid         7\nreset      watchdog\nlast fault none\nsensors"));
    EXPECT_THAT(text, HasSubstr("connected: 1, 2; new?\n"));
    const auto about = json::parse(run({"identify", "--connect", server.address(), "--json"}).out);
    EXPECT_EQ(about["board"], json({{"name", "x1\n"},
                                    {"id", "7"},
                                    {"reset_cause", "watchdog"},
                                    {"last_fault", "none"},
                                    {"sensors", "new\n"}}));
}

TEST(command_line, shows_why_a_server_disconnected_a_host)
{
    fake_server server;
    server.on("identify", [](host_connection &host, const json &) {
        auto identity = test::identity();
        identity["last_drop"] = "it accepted no data for 10 s";
        host.send(identity, "");
    });
    EXPECT_THAT(run({"identify", "--connect", server.address()}).out,
                HasSubstr("\nlast drop  a host was disconnected: it accepted no data for 10 s\n"));
    const auto about = json::parse(run({"identify", "--connect", server.address(), "--json"}).out);
    EXPECT_EQ(about["last_drop"], "it accepted no data for 10 s");
}

TEST(command_line, prints_the_configuration_of_a_replay)
{
    fake_server server;
    server.on("identify", [](host_connection &host, const json &) {
        auto identity = test::identity();
        identity["configuration"] = test::example_session().configuration;
        host.send(identity, "");
    });
    const auto about = json::parse(run({"identify", "--connect", server.address(), "--json"}).out);
    EXPECT_EQ(about["configuration"], test::example_session().configuration);
}

TEST(command_line, scans_devices_without_a_server)
{
    const auto text = run({"scan", "/dev/does-not-exist", "/dev/null"});
    EXPECT_EQ(text.code, exit_code::no_connection);
    EXPECT_THAT(text.err, HasSubstr("no serial device answers"));
    EXPECT_EQ(run({"identify", "--connect", "serial:/dev/null"}).err,
              "vantor: Cannot open /dev/null: it is not a serial device.\n");
    EXPECT_EQ(json::parse(run({"scan", "/dev/does-not-exist", "--json"}).out), json::array());
}

TEST(command_line, validates_only_files)
{
    const test::temporary_directory directory;
    const auto pipe = directory / "pipe.json";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string &file : {pipe.string(), std::string("/dev/null")})
    {
        const auto refused = run({"validate", file});
        EXPECT_EQ(refused.code, exit_code::bad_file);
        EXPECT_EQ(refused.err, "vantor: Cannot read " + file + ": it is not a regular file.\n");
    }
    EXPECT_THAT(run({"validate", (directory / "").string()}).err,
                HasSubstr("it is a directory; use a file."));
}

TEST(command_line, validates_documents)
{
    const test::temporary_directory directory;
    const auto good = directory.write("good.json", test::example_session().configuration.dump()).string();
    const auto bad =
        directory.write("bad.json", R"({"groups": [[{"sensor_id": 1, "config": {"hwaas": 600}}]]})");
    EXPECT_EQ(run({"validate", good}).code, exit_code::success);
    EXPECT_THAT(run({"validate", good}).out,
                HasSubstr("good.json: valid configuration\ngroup 1, item 1, sensor 1: "));
    EXPECT_EQ(json::parse(run({"validate", good, "--json"}).out)["figures"],
              json::parse(run({"plan", good, "--json"}).out)["figures"]);
    const auto text = run({"validate", bad.string()});
    EXPECT_EQ(text.code, exit_code::bad_file);
    EXPECT_THAT(text.out,
                HasSubstr("/groups/0/0/config/hwaas: got 600; allowed: a whole number, from 1 to 511; "
                          "nearest: 511\n"));
    const auto about = json::parse(run({"validate", bad.string(), "--json"}).out);
    EXPECT_EQ(about["valid"], false);
    EXPECT_EQ(about["figures"], nullptr);
    EXPECT_EQ(about["faults"][0]["pointer"], "/groups/0/0/config/hwaas");
    EXPECT_EQ(about["faults"][0]["nearest"], 511);
    const auto far = directory.write(
        "far.json", R"({"groups": [[{"sensor_id": 1, "config": {"start_point": 20000, "prf": "fast"}}]]})");
    EXPECT_EQ(json::parse(run({"validate", far.string(), "--json"}).out)["faults"][0]["nearest"], nullptr);
    const auto farther =
        directory.write("far.json", R"({"groups": [[{"sensor_id": 1, "config": {"start_point": 20000}}]]})");
    EXPECT_THAT(run({"validate", farther.string()}).out,
                HasSubstr("nearest: \"num_points\": 1, \"start_point\": 3843\n"));
}

TEST(command_line, recognises_configurations_and_scenes_by_their_members)
{
    const test::temporary_directory directory;
    setenv("VANTOR_SERVER", VANTOR_FAKE_PROGRAM, 1);
    // The stand-in for the server does not answer what a server does.
    const std::string asked = "vantor: The program vantor_server does not check scenes";
    for (const std::string text :
         {R"({"targets": []})", R"({"$schema": "x", "sensors": []})",
          R"({"$comment": 1, "bodies": [}, "groups": []})", R"({"faults": [], "faults": []})"})
    {
        const auto file = directory.write("document.json", text).string();
        EXPECT_THAT(run({"validate", file}).err, testing::StartsWith(asked)) << text;
        EXPECT_EQ(run({"validate", file}).code, exit_code::bad_link);
    }
    EXPECT_THAT(run({"validate", "visitor"}).err, testing::StartsWith(asked));
    for (const std::string text : {"{}", "[]", "", R"({"targets": [], "groups": []})", R"({"$schema": "x"})"})
    {
        const auto file = directory.write("document.json", text).string();
        EXPECT_THAT(run({"validate", file}).err, testing::Not(HasSubstr("scene"))) << text;
    }
    const auto neither = run({"validate", directory.write("document.json", R"({"target": []})").string()});
    EXPECT_EQ(neither.code, exit_code::bad_file);
    EXPECT_THAT(neither.err,
                HasSubstr("document.json is neither a configuration nor a scene: a configuration has "
                          "members such as "));
    EXPECT_THAT(neither.err,
                testing::ContainsRegex("groups, .*, a scene has members such as bodies, .*targets"));
    unsetenv("VANTOR_SERVER");
}

TEST(command_line, recognises_every_member_of_a_scene)
{
    const test::temporary_directory directory;
    const auto documents = std::filesystem::path(VANTOR_PROTOCOL_DOCUMENT).parent_path();
    const auto schema = json::parse(std::ifstream(documents / "scene.schema.json"));
    setenv("VANTOR_SERVER", VANTOR_FAKE_PROGRAM, 1);
    for (const auto &[name, property] : schema["properties"].items())
    {
        const auto file = directory.write("document.json", json{{name, 0}}.dump()).string();
        EXPECT_EQ(run({"validate", file}).code == exit_code::bad_link, name != "$schema") << name;
    }
    unsetenv("VANTOR_SERVER");
}

TEST(command_line, checks_the_options_for_scenes)
{
    const test::temporary_directory directory;
    const auto file = directory.write("config.json", R"({"groups": []})").string();
    EXPECT_THAT(run({"validate", file, "--sensors", "2"}).err, HasSubstr("--sensors is for scenes, but "));
    EXPECT_EQ(run({"validate", "visitor", "--sensors", "65"}).code, exit_code::usage);
    EXPECT_EQ(json::parse(run({"validate", file, "--json"}).out)["document"], "configuration");
}

TEST(command_line, counts_the_faults_that_it_does_not_print)
{
    const test::temporary_directory directory;
    const auto file = directory.write("config.json", json({{"groups", json(300, 7)}}).dump()).string();
    // Each group is one, and their number.
    const auto text = run({"validate", file}).out;
    EXPECT_THAT(text, HasSubstr("/groups/98: "));
    EXPECT_THAT(text, testing::Not(HasSubstr("/groups/99: ")));
    EXPECT_THAT(text, HasSubstr("config.json: and 201 more faults\n"));
    EXPECT_THAT(text, testing::EndsWith("config.json: not a valid configuration\n"));
    EXPECT_THAT(run({"record", file}).err, HasSubstr("config.json: and 201 more faults\n"));
    const auto about = json::parse(run({"validate", file, "--json"}).out);
    EXPECT_EQ(about["faults"].size(), 301U);
    EXPECT_EQ(about["further_faults"], 0);
    const auto many = directory.write("many.json", json({{"groups", json(10007, 7)}}).dump()).string();
    EXPECT_EQ(json::parse(run({"validate", many, "--json"}).out)["further_faults"], 8);
}

TEST(command_line, shortens_names_in_faults)
{
    const test::temporary_directory directory;
    const std::string name(900000, 'x');
    const auto file = directory.write(
        "config.json", json({{"groups", {{{{"sensor_id", 1}, {"config", {{name, 1}}}}}}}}).dump());
    const auto text = run({"validate", file.string()}).out;
    const auto start = std::string(40, 'x');
    EXPECT_THAT(text, HasSubstr("/groups/0/0/config/" + start + "…: got the member \"" + start + "…\"; "));
    EXPECT_LT(text.size(), 1000U);
}

TEST(command_line, shows_the_figures_of_a_document)
{
    const test::temporary_directory directory;
    const auto file = directory.write(
        "config.json",
        R"({"max_update_rate": 3000, "groups": [[{"sensor_id": 2, "config": {"sweeps_per_frame": 4}}]]})");
    const auto text = run({"plan", file.string(), "--baudrate", "115200"});
    EXPECT_EQ(text.code, exit_code::success);
    EXPECT_THAT(text.out, HasSubstr("config.json: warning: /max_update_rate is 3000; use at most 1"));
    EXPECT_THAT(text.out, HasSubstr("group 1, item 1, sensor 2: 640 samples in a frame\n"
                                    "  distance  0.2000 to 0.5975 m, 160 points, one every 0.0025 m\n"
                                    "  pulse     0.1980 m wide, with 79.2 points; echoes unambiguous up to "
                                    "9.607 m\n"));
    EXPECT_THAT(text.out, testing::ContainsRegex("rate +3000 frames/s configured, at most 1000\\* reached: "
                                                 "frames are left out\n +up to 4\\.[0-9]+\\* frames/s can be "
                                                 "configured without leaving frames out\n"));
    EXPECT_THAT(text.out,
                testing::ContainsRegex("at 115200 baud, sending a frame takes [0-9]+ ms: too slow for "
                                       "this rate\n"));
    EXPECT_THAT(text.out, HasSubstr("* assumed, as for the simulated sensor"));
    const auto figures =
        json::parse(run({"plan", file.string(), "--baudrate", "115200", "--json"}).out)["figures"];
    EXPECT_EQ(figures["payload_bytes"], 2560);
    EXPECT_EQ(figures["warnings"][0]["pointer"], "/max_update_rate");
    EXPECT_EQ(figures["items"][0]["subsweeps"][0]["pulse_width_m"], 0.198);
    EXPECT_THAT(figures["assumed"], testing::Contains("max_sweep_rate"));
    EXPECT_LT(figures["link_frame_rate"], 5.0);
    EXPECT_EQ(figures["expected_frame_rate"], 1000.0);
    EXPECT_EQ(figures["bytes_per_second"], figures["frame_bytes"].get<double>() * 1000.0);
    EXPECT_LT(figures["lasting_frame_rate"], figures["link_frame_rate"]);
    const auto bad = directory.write("bad.json", R"({"groups": [[{"sensor_id": 1}]]})");
    const auto refused = run({"plan", bad.string()});
    EXPECT_EQ(refused.code, exit_code::bad_file);
    EXPECT_THAT(refused.err, HasSubstr("bad.json: /groups/0/0: got no \"config\""));
    EXPECT_THAT(refused.err, HasSubstr("bad.json is not valid: correct it.\n"));
}

TEST(command_line, asks_a_server_for_the_figures_that_it_knows)
{
    const fake_server server;
    const test::temporary_directory directory;
    const auto file = directory.write("config.json", test::example_session().configuration.dump()).string();
    const auto figures = [&](const std::vector<std::string> &arguments) {
        auto all = arguments;
        all.insert(all.begin(), {"plan", file, "--json"});
        return json::parse(run(all).out)["figures"];
    };
    const auto reported = figures({"--connect", server.address()});
    EXPECT_EQ(reported["items"][0]["max_sweep_rate"],
              test::example_session().metadata["metadata"][0][0]["max_sweep_rate"]);
    EXPECT_THAT(reported["assumed"], testing::Not(testing::Contains("max_sweep_rate")));
    EXPECT_THAT(figures({})["assumed"], testing::Contains("max_sweep_rate"));
    EXPECT_EQ(server.lines().back(), R"({"command":"end"})");
}

TEST(command_line, chooses_a_configuration)
{
    const test::temporary_directory directory;
    const auto file = (directory / "config.json").string();
    const auto text = run({"plan", "--distance", "20cm..3.5 m", "--resolution", "120mm", "--rate", "20",
                           "--velocity", "0.5..2m/s", "--sensor", "2", "--output", file});
    EXPECT_EQ(text.code, exit_code::success) << text.err;
    EXPECT_THAT(text.out, HasSubstr("  profile 1: the longest pulse that separates the targets\n"));
    EXPECT_THAT(text.out, HasSubstr("  sweeps_per_frame 16: "));
    EXPECT_THAT(text.out, HasSubstr("  distance  0.2000 to 3.5"));
    EXPECT_THAT(text.out, HasSubstr("velocity  unambiguous below 2.50 m/s, in steps of 0.312 m/s\n"));
    EXPECT_EQ(run({"validate", file}).code, exit_code::success);
    const auto about = json::parse(run({"plan", "--distance", "3", "--json"}).out);
    EXPECT_EQ(about["not_possible"], json::array());
    EXPECT_EQ(about["chosen"][0]["member"], "profile");
    EXPECT_EQ(about["configuration"]["groups"][0][0]["config"]["profile"], 3);
    EXPECT_EQ(about["figures"]["frame_rate"], 10.0);
}

TEST(command_line, uses_the_unit_of_the_second_distance_for_both)
{
    const auto first_and_last = [](const std::string &distance) {
        const auto about = json::parse(run({"plan", "--distance", distance, "--json"}).out);
        const auto &subsweep = about["figures"]["items"][0]["subsweeps"][0];
        return std::pair(subsweep["first_m"].get<double>(), subsweep["last_m"].get<double>());
    };
    const auto both = first_and_last("0.2m..5m");
    EXPECT_NEAR(both.first, 0.2, 1e-9);
    EXPECT_EQ(first_and_last("200..5000mm"), both);
    EXPECT_EQ(first_and_last("20..500 cm"), both);
    EXPECT_EQ(first_and_last("20cm..5"), both);
}

TEST(command_line, reports_the_nearest_to_a_wish_that_is_not_possible)
{
    const test::temporary_directory directory;
    const auto file = (directory / "config.json").string();
    const auto text = run({"plan", "--distance", "5 m", "--resolution", "1 cm", "--output", file});
    EXPECT_EQ(text.code, exit_code::failure);
    EXPECT_EQ(
        text.err,
        "vantor: resolution 0.01 m is not possible: the shortest pulse is 0.0566 m wide; the nearest is "
        "0.07358 m\n");
    EXPECT_THAT(text.out, testing::StartsWith("the nearest configuration that is possible:\n"));
    EXPECT_THAT(text.out, testing::EndsWith("not saved: ask for what is possible\n"));
    EXPECT_FALSE(std::filesystem::exists(file));
    const auto slow =
        run({"plan", "--distance", "5", "--rate", "1000", "--connect", "serial:/dev/null@9600"});
    EXPECT_EQ(slow.code, exit_code::no_connection);
    EXPECT_THAT(run({"plan", "--distance", "5", "--rate", "1000", "--baudrate", "9600"}).err,
                HasSubstr("rate 1000 Hz is not possible: a frame is measured, and then sent over the link"));
    EXPECT_THAT(
        run({"plan", "--distance", "5000", "--velocity", "0.011..2", "--rate", "20"}).err,
        testing::MatchesRegex("vantor: distance 5000 m is not possible: [^;]*; the nearest is 28.82 m\n"
                              "vantor: smallest velocity 0.011 m/s is not possible: [^;]*; the nearest "
                              "is 0\\.[0-9]{4,5} m/s\n"));
}

TEST(command_line, prints_first_that_a_wish_is_not_possible)
{
    std::ostringstream both;
    const auto code =
        run_command_line({"plan", "--distance", "5", "--resolution", "1 cm"}, {both, both, true});
    EXPECT_EQ(code, exit_code::failure);
    EXPECT_THAT(both.str(), testing::StartsWith("vantor: resolution 0.01 m is not possible: "));
    EXPECT_THAT(both.str(), testing::Not(HasSubstr("next:")));
}

TEST(command_line, calls_a_link_fast_enough_for_the_rate_chosen_for_it)
{
    const auto text = run({"plan", "--distance", "5", "--baudrate", "9600"});
    EXPECT_EQ(text.code, exit_code::success);
    EXPECT_THAT(text.out,
                HasSubstr(": a frame is measured, and then sent over the link, which takes longer\n"));
    EXPECT_THAT(text.out,
                testing::ContainsRegex("at 9600 baud, sending a frame takes [0-9]+ ms: fast enough\n"));
}

TEST(command_line, plans_only_for_connected_sensors)
{
    const fake_server server;
    EXPECT_EQ(run({"plan", "--distance", "5", "--sensor", "9", "--connect", server.address()}).err,
              "vantor: Sensor 9 is not connected to the server; connected: 1, 2.\n");
}

TEST(command_line, warns_of_a_document_without_items)
{
    const test::temporary_directory directory;
    const auto file = directory.write("config.json", R"({"groups": []})").string();
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(run_command_line({"validate", file}, {out, err, true}), exit_code::success);
    EXPECT_THAT(out.str(), HasSubstr("config.json: warning: /groups is empty; use at least one item"));
    EXPECT_EQ(err.str(), "");
}

TEST(command_line, does_not_write_to_files_of_recordings)
{
    const test::temporary_directory directory;
    const auto file = directory.write("session.sigmf-collection", "old").string();
    for (const std::vector<std::string> &command :
         {std::vector<std::string>{"plan", "--distance", "5", "--output", file},
          {"calibrate", "--output", file, "--connect", "tcp:127.0.0.1:1"}})
    {
        const auto refused = run(command);
        EXPECT_EQ(refused.code, exit_code::usage);
        EXPECT_THAT(refused.err, HasSubstr("is a name for a file of a recording; choose another one, such as "
                                           "session.json\n"));
        EXPECT_EQ(test::read_file(file), "old");
    }
}

TEST(command_line, refuses_wishes_without_sense)
{
    const std::vector<std::pair<std::vector<std::string>, const char *>> cases = {
        {{}, "either a configuration document or --distance"},
        {{"config.json", "--distance", "5"}, "either a configuration document or --distance"},
        {{"config.json", "--rate", "5"}, "need --distance"},
        {{"--distance", "5..2"}, "--distance: \"5..2\": the first must be smaller than the second"},
        {{"--distance", "5..5"}, "the first must be smaller"},
        {{"--distance", "0.2...5"}, "--distance: \"0.2...5\" is not a range"},
        {{"--distance", "0.2....5"}, "is not a range"},
        {{"--distance", "5", "--sensor", "1", "--sensor", "2", "--sensor", "1"}, "--sensor 1 is given twice"},
        {{"--distance", "0"}, "is not a range"},
        {{"--distance", "-1"}, "is not a range"},
        {{"--distance", "x..5"}, "is not a range"},
        {{"--distance", "1..inf"}, "is not a range"},
        {{"--distance", "5 km"}, "is not a range"},
        {{"--distance", ".."}, "is not a range"},
        {{"--distance", "5", "--resolution", "1..2"}, "--resolution: \"1..2\" is not a length"},
        {{"--distance", "5", "--resolution", "0"}, "is not a length"},
        {{"--distance", "5", "--velocity", "2 m"}, "--velocity: \"2 m\" is not a range"},
        {{"--distance", "5", "--rate", "0"}, "is not a number above 0"},
    };
    for (const auto &[arguments, message] : cases)
    {
        auto all = arguments;
        all.insert(all.begin(), "plan");
        const auto text = run(all);
        EXPECT_EQ(text.code, exit_code::usage) << message;
        EXPECT_THAT(text.err, HasSubstr(message));
    }
}

TEST(command_line, saves_calibrations_to_a_file)
{
    const test::temporary_directory directory;
    fake_server server;
    server.on("configure", test::describe_configuration);
    const auto file = (directory / "cal.json").string();
    const auto text = run({"calibrate", "--output", file, "--connect", server.address()});
    EXPECT_EQ(text.code, exit_code::success);
    EXPECT_THAT(text.out, HasSubstr("sensor 1 calibrated at 24 degrees"));
    EXPECT_EQ(json::parse(test::read_file(file))["calibration_info"],
              test::example_session().metadata["calibration_info"]);
    EXPECT_EQ(run({"calibrate", "--output", file, "--connect", server.address(), "--json"}).out,
              test::read_file(file));
    const auto sent = test::last_command(server.lines(), "configure")["configuration"]["groups"];
    EXPECT_EQ(sent, json::parse(R"([[{"sensor_id":1,"config":{}},{"sensor_id":2,"config":{}}]])"));
}

TEST(command_line, refuses_to_calibrate_sensors_that_are_not_there)
{
    const test::temporary_directory directory;
    const fake_server server;
    const auto file = (directory / "cal.json").string();
    const auto calibrate = [&](const std::vector<std::string> &sensors) {
        std::vector<std::string> all = {"calibrate", "--output", file, "--connect", server.address()};
        for (const auto &sensor : sensors)
        {
            all.insert(all.end(), {"--sensor", sensor});
        }
        return run(all);
    };
    const auto twice = calibrate({"1", "2", "1"});
    EXPECT_EQ(twice.code, exit_code::usage);
    EXPECT_THAT(twice.err, HasSubstr("vantor: --sensor 1 is given twice\n"));
    const auto missing = calibrate({"1", "9"});
    EXPECT_EQ(missing.code, exit_code::failure);
    EXPECT_EQ(missing.err, "vantor: Sensor 9 is not connected to the server; connected: 1, 2.\n");
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(command_line, prints_the_next_command_on_a_terminal)
{
    const test::temporary_directory directory;
    const auto file = (directory / "config.json").string();
    const auto on_terminal = [](const std::vector<std::string> &arguments) {
        std::ostringstream out;
        std::ostringstream err;
        run_command_line(arguments, {out, err, true});
        return err.str();
    };
    const std::string next = "next: vantor record " + file + "\n";
    EXPECT_EQ(on_terminal({"plan", "--distance", "5", "--output", file}), next);
    EXPECT_EQ(on_terminal({"validate", file}), next);
    EXPECT_EQ(on_terminal({"plan", "--distance", "5", "--output", file, "--json"}), "");
    EXPECT_EQ(on_terminal({"validate", file, "--json"}), "");
    EXPECT_EQ(on_terminal({"plan", "--distance", "5"}), "");
    EXPECT_EQ(run({"plan", "--distance", "5", "--output", file}).err, "");
    EXPECT_EQ(run({"validate", file}).err, "");
    const auto spaced = (directory / "my config.json").string();
    EXPECT_EQ(on_terminal({"plan", "--distance", "5", "--output", spaced}),
              "next: vantor record '" + spaced + "'\n");
}

TEST(command_line, suggests_the_same_server_and_no_file_that_looks_like_an_option)
{
    std::ostringstream out;
    std::ostringstream err;
    suggest({out, err, true}, "vantor record", "-a.json", "sim:--seed 2");
    EXPECT_EQ(err.str(), "next: vantor record ./-a.json --connect 'sim:--seed 2'\n");
}

TEST(command_line, shows_recordings)
{
    const test::temporary_directory directory;
    const auto place = (directory / "out").string();
    test::write_example_recording(place, 3);
    EXPECT_THAT(run({"info", place}).out, HasSubstr(": 3 frames, started "));
    const auto about = json::parse(run({"info", place, "--json"}).out);
    EXPECT_EQ(about["frames"], 3);
    EXPECT_EQ(about["complete"], true);
    EXPECT_EQ(about["items"][1]["samples_per_frame"], 25);
    EXPECT_EQ(about["items"][1]["temperature"], json({-3, -3}));
    EXPECT_EQ(run({"export", place, "--format", "csv"}).code, exit_code::success);
    EXPECT_TRUE(std::filesystem::exists(directory / "out/export/group-2-item-1.csv"));
    EXPECT_EQ(run({"export", place, "--format", "npy", "--output", (directory / "npy").string()}).code,
              exit_code::success);
    EXPECT_EQ(run({"export", place, "--format", "xml"}).code, exit_code::usage);
    EXPECT_EQ(run({"plot", place}).code, exit_code::success);
    EXPECT_TRUE(std::filesystem::exists(directory / "out/picture.png"));
    const auto picture = (directory / "other picture.png").string();
    EXPECT_EQ(json::parse(run({"plot", place, "--json", "--output", picture}).out)["picture"], picture);
    // The second item begins before the sensor.
    for (const char *distance : {"0.3", "30cm", "300 mm", "-5 cm"})
    {
        EXPECT_EQ(
            run({"plot", place, "--distance", distance, "--output", (directory / "d.PNG").string()}).code,
            exit_code::success)
            << distance;
    }
    EXPECT_THAT(run({"plot", place, "--distance", "900cm"}).err,
                HasSubstr("--distance 9.000 m is outside the recording"));
    const auto exported =
        run({"export", place, "--json", "--format", "csv", "--output", (directory / "csv").string()});
    EXPECT_EQ(json::parse(exported.out)["files"].size(), 3U);
    for (const char *command : {"info", "plot", "replay"})
    {
        EXPECT_EQ(run({command, (directory / "missing").string()}).code, exit_code::bad_file) << command;
    }
}

TEST(command_line, completes_in_shells)
{
    const auto bash = run({"completion", "bash"}).out;
    EXPECT_THAT(bash, HasSubstr("identify scan selftest plan validate"));
    EXPECT_THAT(bash, HasSubstr("record) words=\"--help --frames"));
    EXPECT_EQ(run({"completion", "zsh"}).out,
              "#compdef vantor\nautoload -U +X bashcompinit && bashcompinit\n" + bash);
    EXPECT_THAT(bash, HasSubstr("scan) words=\"--help --baudrate --json\" ;;"));
    EXPECT_THAT(run({"completion", "fish"}).out, HasSubstr("__fish_seen_subcommand_from record' -l frames"));
    EXPECT_THAT(run({"completion", "fish"}).out, HasSubstr("-l format -x -a 'csv npy npz truth' -d"));
    EXPECT_THAT(
        run({"completion", "fish"}).out,
        HasSubstr("complete -c vantor -n '__fish_seen_subcommand_from completion' -x -a 'bash zsh fish'"));
    EXPECT_THAT(run({"completion", "fish"}).out,
                HasSubstr("'__fish_seen_subcommand_from plot' -l help -d 'Print this help"));
    EXPECT_EQ(run({"completion", "dos"}).code, exit_code::usage);
}

/** Completes words in a real bash, with any IFS and earlier replies; returns the words and the options set.
 */
std::string completed(const std::filesystem::path &directory, const std::string &words)
{
    const auto script = directory / "complete.bash";
    std::ofstream(script) << run({"completion", "bash"}).out << "cd '" << directory.string()
                          << "' || exit\ncompopt() { options=$*; }\nCOMPREPLY=(stale)\nIFS=:\n"
                             "complete -p vantor | grep -q -- '-F _vantor' || exit\nCOMP_WORDS=(vantor "
                          << words
                          << ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_vantor\n"
                             "printf '%s\\n' \"${COMPREPLY[@]}\" $options > completed\n";
    EXPECT_EQ(std::system(("bash '" + script.string() + "'").c_str()), 0);
    return test::read_file(directory / "completed");
}

TEST(command_line, completes_in_a_real_bash)
{
    const test::temporary_directory directory;
    static_cast<void>(directory.write("my config.json", "{}"));
    EXPECT_EQ(completed(directory / "", "re"), "record\nrepair\nreplay\n");
    EXPECT_EQ(completed(directory / "", "record --fr"), "--frames\n");
    EXPECT_EQ(completed(directory / "", "record my"), "my config.json\n-o filenames\n");
    EXPECT_EQ(completed(directory / "", "export x --format ''"), "csv\nnpy\nnpz\ntruth\n");
    EXPECT_EQ(completed(directory / "", "completion ''"), "bash\nzsh\nfish\n");
    EXPECT_EQ(completed(directory / "", "info completion my"), "my config.json\n-o filenames\n");
    EXPECT_EQ(completed(directory / "", "export x --format = n"), "npy\nnpz\n");
    EXPECT_EQ(completed(directory / "", "export x --format ="), "csv\nnpy\nnpz\ntruth\n");
    EXPECT_EQ(completed(directory / "", "record my --output = my"), "my config.json\n-o filenames\n");
    EXPECT_EQ(completed(directory / "", "record --out"), "--output\n");
    EXPECT_EQ(completed(directory / "", "--v"), "--version\n");
    EXPECT_EQ(completed(directory / "", "scan --baudrate"), "--baudrate\n");
    EXPECT_EQ(completed(directory / "", "info --no-such"), "\n");
}

TEST(command_line, completes_addresses_in_a_real_bash)
{
    const test::temporary_directory directory;
    static_cast<void>(directory.write("my scene.json", "{}"));
    std::filesystem::create_directory(directory / "sub");
    const auto complete = [&](const std::string &words) { return completed(directory / "", words); };
    EXPECT_EQ(complete("identify --connect ''"), "tcp:\nunix:\nserial:\nsim:\n-o nospace\n");
    EXPECT_EQ(complete("identify --connect = s"), "serial:\nsim:\n-o nospace\n");
    // Bash splits words at colons and equals signs, unless COMP_WORDBREAKS is changed, and except in quotes.
    EXPECT_EQ(complete("record x --connect unix : su"), "sub\n-o filenames\n");
    EXPECT_EQ(complete("record x --connect = unix : su"), "sub\n-o filenames\n");
    EXPECT_EQ(complete("record x --connect unix:su"), "unix:sub/\n-o nospace\n");
    EXPECT_EQ(complete("record x --connect sim :"), "--scene=\n-o nospace\n");
    EXPECT_EQ(complete("record x --connect sim : --scene = my"), "my\\ scene.json\n-o filenames\n");
    EXPECT_THAT(complete("record x --connect sim : --scene ="), HasSubstr("my\\ scene.json\n"));
    EXPECT_EQ(complete("record x --connect '\"sim:--seed 3 --scene my'"),
              "sim:--seed 3 --scene my\\ scene.json\n-o nospace\n");
    EXPECT_EQ(complete("record x --connect tcp :"), "-o filenames\n");
    EXPECT_EQ(complete("export x --connect un"), "-o filenames\n") << "not an option of this command";
}

TEST(command_line, completes_serial_devices_in_a_real_bash)
{
    const test::temporary_directory directory;
    // Replaces the search for devices, which this machine may not have.
    const std::string devices = "x)\ncompgen() { case $1$2 in -G/dev/ttyUSB*) echo /dev/ttyUSB0 ;; "
                                "-W*) builtin compgen \"$@\" ;; esac; }\nCOMP_WORDS=(vantor ";
    EXPECT_EQ(completed(directory / "", devices + "identify --connect serial : /dev/tty"),
              "/dev/ttyUSB0\n-o filenames\n");
    EXPECT_EQ(completed(directory / "", devices + "identify --connect serial:"),
              "serial:/dev/ttyUSB0\n-o nospace\n");
}

TEST(command_line, completes_commands_and_options_in_fish)
{
    const auto fish = run({"completion", "fish"}).out;
    EXPECT_THAT(
        fish, HasSubstr("complete -c vantor -n __fish_use_subcommand -f -a record -d 'Measure, and record"));
    EXPECT_THAT(fish, HasSubstr("'__fish_seen_subcommand_from record' -l seconds -d 'Stop after this many"));
    EXPECT_THAT(fish, testing::Not(HasSubstr("Configuration document")));
    EXPECT_THAT(fish,
                HasSubstr("'__fish_seen_subcommand_from record' -l connect -r -a 'tcp: unix: serial: sim:'"));
}

TEST(command_line, quotes_texts_for_fish)
{
    std::ostringstream out;
    std::ostringstream err;
    const auto odd = [] { return std::vector<command>{{"odd", R"(it's \ odd)", "", {}, {}}}; };
    run_command({"completion", "fish"}, {completion_command(odd)}, "", {out, err});
    EXPECT_THAT(out.str(), HasSubstr(R"(-a odd -d 'it\'s \\ odd')"));
}

TEST(command_line, completes_file_names_with_any_character)
{
    const test::temporary_directory directory;
    for (const char *name : {"[ab]", "a", "b*", "b1", "u v", "e'f\"g", " s ", "h\\i"})
    {
        static_cast<void>(directory.write(name, ""));
    }
    EXPECT_EQ(completed(directory / "", "info '['"), "[ab]\n-o filenames\n");
    EXPECT_EQ(completed(directory / "", "info 'b*'"), "b*\n-o filenames\n");
    EXPECT_EQ(completed(directory / "", "info u"), "u v\n-o filenames\n");
    EXPECT_EQ(completed(directory / "", "info ' '"), " s \n-o filenames\n");
    EXPECT_EQ(completed(directory / "", "info h"), "h\\i\n-o filenames\n");
    EXPECT_THAT(completed(directory / "", "info ''"), testing::Not(HasSubstr("--")));
    EXPECT_EQ(completed(directory / "", "info e"), "e'f\"g\n-o filenames\n");
}

TEST(command_line, refuses_wrong_usage)
{
    for (const auto &arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"fly"},
                                               {"record"},
                                               {"record", "x.json", "--frames", "0"},
                                               {"record", "x.json", "--frames", "-3"},
                                               {"record", "x.json", "--frames", "many"},
                                               {"record", "x.json", "--frames", "99999999999999999999"},
                                               {"record", "x.json", "--seconds", "nan"},
                                               {"record", "x.json", "--seconds", "0"},
                                               {"record", "x.json", "--frames", "1", "--frames", "2"},
                                               {"plot", "x", "--distance", "inf"},
                                               {"plot", "x", "--output", "picture"},
                                               {"calibrate", "--output", "x", "--sensor", "0"},
                                               {"replay", "x", "--hosts", "0"},
                                               {"export", "x", "--format", "xml"},
                                               {"completion"},
                                               {"export", "x"},
                                               {"calibrate"},
                                               {"record", "x.json", "--no-such-option"}})
    {
        const auto result = run(arguments);
        EXPECT_EQ(result.code, exit_code::usage);
        EXPECT_THAT(result.out, IsEmpty());
        EXPECT_THAT(result.err, HasSubstr("help"));
    }
}

TEST(command_line, reports_the_bounds_of_a_number)
{
    const auto fault = [](const std::vector<std::string> &arguments) { return run(arguments).err; };
    EXPECT_THAT(fault({"replay", "x", "--tcp", "65536"}),
                HasSubstr("--tcp: \"65536\" is not a whole number from 0 to 65535\n"));
    EXPECT_THAT(fault({"replay", "x", "--tcp", "99999999999999999999"}),
                HasSubstr("--tcp: \"99999999999999999999\" is not a whole number from 0 to 65535\n"));
    EXPECT_THAT(fault({"replay", "x", "--tcp", ""}),
                HasSubstr("--tcp: \"\" is not a whole number from 0 to 65535\n"));
    EXPECT_THAT(fault({"scan", "--baudrate", "4294967297"}),
                HasSubstr("--baudrate: \"4294967297\" is not a whole number from 1 to 4294967295\n"));
    EXPECT_THAT(fault({"calibrate", "--output", "x", "--sensor", "65536"}),
                HasSubstr("--sensor: \"65536\" is not a whole number from 1 to 65535\n"));
    EXPECT_THAT(fault({"record", "x", "--seconds", "0"}),
                HasSubstr("--seconds: \"0\" is not a number above 0\n"));
    EXPECT_THAT(fault({"plot", "x", "--distance", "far"}),
                HasSubstr("--distance: \"far\" is not a distance; use a number with or without a unit"));
    EXPECT_THAT(fault({"plot", "x", "--distance", "1 in"}),
                HasSubstr("--distance: \"1 in\" is not a distance; use a number"));
    EXPECT_THAT(fault({"plot", "x", "--distance", "inf"}),
                HasSubstr("--distance: \"inf\" is not a distance; use a number"));
    EXPECT_THAT(
        fault({"plot", "x", "--output", "x.jpg"}),
        HasSubstr("--output: \"x.jpg\" is not the name of a PNG file; use a name that ends in .png\n"));
    EXPECT_THAT(fault({"plan", "--distance", "-1..5"}), HasSubstr("\"-1..5\" is not a range"));
    EXPECT_THAT(fault({"replay", "x", "--speed", "0"}),
                HasSubstr("--speed: \"0\" is not a number above 0, nor \"max\"\n"));
    EXPECT_THAT(fault({"export", "x", "--format", "xml"}),
                HasSubstr("--format: \"xml\" is not one of csv, npy, npz, truth\n"));
}

TEST(command_line, accepts_numbers_up_to_their_bounds)
{
    for (const auto &arguments : std::vector<std::vector<std::string>>{{"replay", "x", "--tcp", "65535"},
                                                                       {"replay", "x", "--tcp", "0"},
                                                                       {"replay", "x", "--hosts", "1"},
                                                                       {"record", "x", "--seconds", "1e-9"}})
    {
        EXPECT_EQ(run(arguments).code, exit_code::bad_file);
    }
}

TEST(command_line, has_an_exit_code_for_each_kind_of_failure)
{
    const test::temporary_directory directory;
    const auto good = directory.write("good.json", test::example_session().configuration.dump()).string();
    const auto bad = directory.write("bad.json", "{").string();

    const auto unreadable = run({"record", bad});
    EXPECT_EQ(unreadable.code, exit_code::bad_file);
    EXPECT_THAT(unreadable.err, HasSubstr("line 1, column 2"));
    EXPECT_EQ(run({"record", good, "--connect", "nowhere"}).code, exit_code::usage);
    EXPECT_EQ(run({"record", good, "--connect", "serial:/dev/does-not-exist"}).code,
              exit_code::no_connection);

    fake_server server;
    server.on("configure", [](host_connection &host, const json &) {
        host.send({{"status", "error"},
                   {"code", "invalid_prf"},
                   {"message", "Choose another prf."},
                   {"payload_size", 0}},
                  "");
    });
    const auto refused = run({"record", good, "--connect", server.address()});
    EXPECT_EQ(refused.code, exit_code::refused);
    EXPECT_EQ(refused.err, "vantor: Choose another prf. (invalid_prf)\n");
}

TEST(command_line, refuses_a_server_that_measures_something_else)
{
    const test::temporary_directory directory;
    const auto other =
        directory.write("other.json", R"({"groups":[[{"sensor_id":1,"config":{}}]]})").string();
    fake_server server;
    server.on("configure",
              [](host_connection &host, const json &) { host.send(test::example_session().metadata, ""); });
    EXPECT_EQ(
        run({"record", other, "--connect", server.address(), "--output", (directory / "out").string()}).code,
        exit_code::bad_link);
}

TEST(command_line, distinguishes_bad_messages_and_unwritable_output)
{
    const test::temporary_directory directory;
    const auto good = directory.write("good.json", test::example_session().configuration.dump()).string();
    fake_server server;
    server.on("start", [](host_connection &host, const json &) {
        host.send({{"status", "ok"}, {"command", "other"}, {"payload_size", 0}}, "");
    });
    EXPECT_EQ(
        run({"record", good, "--connect", server.address(), "--output", (directory / "out").string()}).code,
        exit_code::bad_link);
    EXPECT_EQ(
        run({"record", good, "--connect", server.address(), "--output", (directory / "out").string()}).code,
        exit_code::not_written);
}

TEST(command_line, reports_an_unknown_command)
{
    const auto result = run({"recrod", "config.json"});
    EXPECT_EQ(result.code, exit_code::usage);
    EXPECT_THAT(result.err, HasSubstr("vantor: \"recrod\" is not a vantor command."));
}

TEST(command_line, reports_a_missing_command)
{
    const auto result = run({});
    EXPECT_EQ(result.code, exit_code::usage);
    EXPECT_EQ(result.err, "vantor: A command is required.\nRun with --help for more information.\n");
}

TEST(command_line, does_not_split_words_in_brackets)
{
    const auto scanned = run({"scan", "[x]", "[1,2]"});
    EXPECT_THAT(scanned.err, HasSubstr("[x]"));
    EXPECT_THAT(scanned.err, HasSubstr("[1,2]"));
    EXPECT_THAT(run({"info", "[1,2]"}).err, HasSubstr("[1,2]"));
    const auto listed = run({"calibrate", "--output", "x", "--sensor", "[1,2]"});
    EXPECT_EQ(listed.code, exit_code::usage);
    EXPECT_THAT(listed.err, HasSubstr("--sensor: \"[1,2]\" is not a whole number from 1 to 65535\n"));
}

TEST(command_line, accepts_lists_of_arguments_and_repeated_options)
{
    fake_server server;
    server.on("configure", test::describe_configuration);
    const test::temporary_directory directory;
    const auto file = (directory / "cal.json").string();
    const auto repeated =
        run({"calibrate", "--sensor", "2", "--output", file, "--sensor", "1", "--connect", server.address()});
    ASSERT_EQ(repeated.code, exit_code::success) << repeated.err;
    EXPECT_EQ(json::parse(server.lines()[2])["configuration"]["groups"],
              json::parse(R"([[{"sensor_id":2,"config":{}},{"sensor_id":1,"config":{}}]])"));
    const auto surplus = run({"calibrate", "--output", "x", "--sensor", "1", "2"});
    EXPECT_EQ(surplus.code, exit_code::usage);
    EXPECT_THAT(surplus.err, HasSubstr("Unexpected argument: 2\n"));
    const auto scanned = run({"scan", "/does/not/a", "/does/not/b", "/does/not/c"}).err;
    for (const char *device : {"/does/not/a", "/does/not/b", "/does/not/c"})
    {
        EXPECT_THAT(scanned, HasSubstr(device));
    }
    EXPECT_THAT(run({"scan", "--help"}).out, HasSubstr("DEVICE ..."));
}

TEST(command_line, accepts_a_time_out_of_a_self_test_within_its_bounds)
{
    for (const char *seconds : {"0", "601", "5s", "-1"})
    {
        const auto refused = run({"selftest", "--timeout", seconds, "--connect", "tcp:127.0.0.1:1"});
        EXPECT_EQ(refused.code, exit_code::usage) << seconds;
    }
    for (const char *seconds : {"1", "600"})
    {
        const auto tried = run({"selftest", "--timeout", seconds, "--connect", "tcp:127.0.0.1:1"});
        EXPECT_EQ(tried.code, exit_code::no_connection) << seconds;
    }
}

TEST(command_line, reports_unexpected_arguments_in_order_and_first)
{
    EXPECT_EQ(run({"validate", "x", "a", "--bogus", "c"}).err,
              "vantor: Unexpected arguments: a --bogus c\nRun with --help for more information.\n");
    EXPECT_EQ(run({"info", "-d"}).err,
              "vantor: Unexpected argument: -d\nRun with --help for more information.\n");
    EXPECT_EQ(run({"--bogus", "info", "x"}).err,
              "vantor: Unexpected argument: --bogus\nRun with --help for more information.\n");
    EXPECT_EQ(run({"--bogus"}).err,
              "vantor: Unexpected argument: --bogus\nRun with --help for more information.\n");
    EXPECT_EQ(run({"validate", "--"}).err,
              "vantor: CONFIG is required\nRun with --help for more information.\n");
    EXPECT_EQ(run({"validate", "x", "a", "--help"}).code, exit_code::success);
}

TEST(command_line, does_not_let_arguments_control_the_terminal)
{
    for (const auto &arguments :
         std::vector<std::vector<std::string>>{{"\x1b[2J"},
                                               {"info", "x", "\x1b[2J"},
                                               {"info", "x", "--\x1b[2J\n"},
                                               {"export", "x", "--format", "\x1b[2J"},
                                               {"plot", "x", "--distance", "\x1b[2J\r"},
                                               {"identify", "--connect", "\x1b[2J"},
                                               {"scan", "\x1b[2J"}})
    {
        const auto result = run(arguments).err;
        EXPECT_THAT(result, HasSubstr("?[2J"));
        EXPECT_THAT(result, testing::Not(testing::ContainsRegex("[\x1b\r]")));
        EXPECT_THAT(result, testing::Not(HasSubstr("\n\n")));
    }
}

TEST(command_line, does_not_let_file_names_control_the_terminal)
{
    const test::temporary_directory directory;
    const auto place = (directory / "\x1b[31m").string();
    test::write_example_recording(place, 2);
    fake_server server;
    server.on("configure", test::describe_configuration);
    server.on("start", test::stream_frames(20));
    const auto configuration =
        directory.write("good.json", test::example_session().configuration.dump()).string();
    for (const auto &arguments : std::vector<std::vector<std::string>>{
             {"info", place},
             {"plot", place},
             {"export", place, "--format", "csv"},
             {"calibrate", "--output", place + "/x.json", "--connect", server.address()},
             {"record", configuration, "--frames", "1", "--output", place + "2", "--connect",
              server.address()}})
    {
        const auto result = run(arguments);
        EXPECT_EQ(result.code, exit_code::success) << result.err;
        EXPECT_THAT(result.out, HasSubstr("?[31m"));
        EXPECT_THAT(result.out, testing::Not(HasSubstr("\x1b")));
    }
}

TEST(command_line, refuses_empty_texts)
{
    for (const auto &[arguments, fault] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"record", "x", "--calibration", ""},
              "--calibration: the value is empty; expected FILE: Use the cal"},
             {{"record", "x", "--output", ""}, "--output: the value is empty; expected DIR: New directory"},
             {{"identify", "--connect", ""}, "--connect: the value is empty; expected ADDRESS: Address of"},
             {{"record", ""}, "CONFIG: the value is empty; expected CONFIG: Configuration document"},
             {{"scan", ""}, "DEVICE: the value is empty; expected DEVICE: Serial devices to try"},
             {{"info", ""}, "RECORDING: the value is empty; expected RECORDING: Directory"}})
    {
        const auto result = run(arguments);
        EXPECT_EQ(result.code, exit_code::usage) << fault;
        EXPECT_THAT(result.err, testing::StartsWith("vantor: " + fault));
    }
}

TEST(command_line, does_not_use_an_option_as_a_value)
{
    for (const char *command : {"plot", "info"})
    {
        EXPECT_EQ(run({command, "--json", "x"}).code, exit_code::bad_file) << command;
    }
    EXPECT_EQ(run({"record", "x", "--frames"}).err,
              "vantor: --frames: the value is missing; expected NUMBER\n"
              "Run with --help for more information.\n");
    const auto swallowed = run({"plot", "x", "--output", "--json"});
    EXPECT_EQ(swallowed.code, exit_code::usage);
    EXPECT_EQ(swallowed.err,
              "vantor: --output: the value is missing; if it is \"--json\", write --output=--json\n"
              "Run with --help for more information.\n");
    const auto empty = run({"plot", "x", "--output=", "--json"});
    EXPECT_EQ(empty.code, exit_code::usage);
    EXPECT_THAT(empty.err,
                testing::StartsWith("vantor: --output: the value is empty; expected FILE: PNG file"));
    const test::temporary_directory directory;
    EXPECT_EQ(run({"record", "--output=--json", (directory / "none").string()}).code, exit_code::bad_file);
    EXPECT_EQ(run({"plot", "x", "--distance", "-1"}).code, exit_code::bad_file);
    EXPECT_EQ(run({"plot", "--", "--output"}).code, exit_code::bad_file);
    EXPECT_THAT(run({"plot", "--", "--output", "--json"}).err, HasSubstr("Unexpected argument: --json\n"));
    EXPECT_EQ(run({"plot", "x", "--output"}).code, exit_code::usage);
    EXPECT_EQ(run({"info", "RECORDING", "--json"}).code, exit_code::bad_file);
    EXPECT_EQ(run({"plot", "--json", "--output=x.png", "x"}).code, exit_code::bad_file);
    EXPECT_EQ(run({"plot", "--json", "--", "x"}).code, exit_code::bad_file);
    EXPECT_THAT(run({"info", "x", "--output", "--json"}).err, HasSubstr("Unexpected argument: --output\n"));
}

TEST(command_line, describes_wrong_numbers_of_options_and_values)
{
    for (const auto &[arguments, fault] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"record", "x", "--frames", "1", "--frames", "2"}, "--frames is given twice\n"},
             {{"record", "x", "--frames=1", "--frames=2"}, "--frames is given twice\n"},
             {{"plot", "x", "--output", "a", "--distance", "1", "--output=b"}, "--output is given twice\n"},
             {{"info", "x", "--json=maybe"}, "--json takes no value\n"},
             {{"info", "x", "--json=1.5"}, "--json takes no value\n"},
             {{"info", "x", "--json=-1"}, "--json takes no value\n"},
             {{"info", "x", "--json="}, "--json takes no value\n"},
             {{"record", "--frames", "--", "5"}, "--frames: the value is missing; expected NUMBER\n"}})
    {
        const auto result = run(arguments);
        EXPECT_EQ(result.code, exit_code::usage) << fault;
        EXPECT_EQ(result.err, "vantor: " + fault + "Run with --help for more information.\n");
    }
    EXPECT_EQ(run({"info", "x", "--json", "--json"}).code, exit_code::bad_file);
    EXPECT_EQ(run({"info", "--", "--json=1"}).code, exit_code::bad_file);
}

TEST(command_line, reports_that_its_output_cannot_be_written)
{
    std::ofstream full("/dev/full");
    std::ostringstream err;
    EXPECT_EQ(run_command_line({"completion", "bash"}, {full, err}), exit_code::not_written);
    EXPECT_THAT(err.str(), HasSubstr("standard output"));
}

TEST(command_line, prints_json_for_any_file_name)
{
    const test::temporary_directory directory;
    const auto recording = directory / "out\xff";
    test::write_example_recording(recording, 2);
    const auto result = run({"info", recording.string(), "--json"});
    EXPECT_EQ(result.code, exit_code::success) << result.err;
    EXPECT_EQ(json::parse(result.out)["frames"], 2);
}

TEST(command_line, does_not_let_servers_control_the_terminal)
{
    fake_server server;
    server.on("configure", [](host_connection &host, const json &) {
        host.send({{"status", "error"},
                   {"code", "busy"},
                   {"message", "\x1b[2J\u009b\u202e\r\n"},
                   {"payload_size", 0}},
                  "");
    });
    const test::temporary_directory directory;
    const auto result =
        run({"calibrate", "--output", (directory / "out.json").string(), "--connect", server.address()});
    EXPECT_EQ(result.code, exit_code::refused);
    EXPECT_EQ(result.err, "vantor: ?[2J???? (busy)\n");
}

TEST(command_line, does_not_calibrate_for_a_file_that_cannot_be_written)
{
    const fake_server server;
    const test::temporary_directory directory;
    for (const auto &file : {directory.write("file", "") / "out.json", directory / ""})
    {
        const auto result = run({"calibrate", "--output", file.string(), "--connect", server.address()});
        EXPECT_EQ(result.code, exit_code::not_written);
        EXPECT_THAT(result.err, HasSubstr(file.string()));
    }
    EXPECT_THAT(server.lines(), IsEmpty());
}

TEST(command_line, does_not_save_an_empty_list_of_calibrations)
{
    fake_server server;
    server.on("configure", [](host_connection &host, const json &) {
        auto metadata = test::metadata_for({{"groups", json::array({json::array({1, 2})})}});
        metadata.erase("calibration_info");
        host.send(metadata, "");
    });
    const test::temporary_directory directory;
    const auto file = directory / "out.json";
    const auto result = run({"calibrate", "--output", file.string(), "--connect", server.address()});
    EXPECT_EQ(result.code, exit_code::failure);
    EXPECT_THAT(result.err, HasSubstr("did not calibrate any sensor"));
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(command_line, refuses_documents_of_a_recording_that_lack_members)
{
    const test::temporary_directory directory;
    test::write_example_recording(directory / "out", 1);
    for (const char *captures :
         {R"([])", R"(["x"])", R"([{"core:global_index": "x"}])", R"([{"core:datetime": 5}])"})
    {
        std::ofstream(directory / "out/group-1-item-1.sigmf-meta")
            << R"({"global": {}, "captures": )" << captures << "}";
        const auto result = run({"info", (directory / "out").string()});
        EXPECT_EQ(result.code, exit_code::damaged) << captures;
        EXPECT_EQ(run({"plot", (directory / "out").string()}).code, exit_code::bad_file) << captures;
        EXPECT_THAT(result.out, HasSubstr("group-1-item-1.sigmf-meta")) << captures;
    }
}

} // namespace
} // namespace vantor
