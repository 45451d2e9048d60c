/** @file
 * Tests of the commands that check and repair recordings.
 */
#include <sstream>

#include <gmock/gmock.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "command_outcome.h"
#include "commands/command_line.h"
#include "example_recording.h"
#include "recording/sha512.h"
#include "recording_files.h"
#include "temporary_directory.h"
#include "vantor/recording_writer.h"
#include "written_recordings.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using test::run;
using testing::HasSubstr;
using testing::Not;

/** A recording in which a file has lost its last 100 bytes. */
class damaged_recording_test : public testing::Test
{
protected:
    damaged_recording_test()
    {
        const std::string name = "group-1-item-1.sigmf-data";
        const auto &samples = files.original.at(name);
        files.write(name, samples.substr(0, samples.size() - 100));
    }

    const test::recording_files files{true};
    const std::string path = files.path.string();
};

TEST_F(damaged_recording_test, is_noticed_by_info)
{
    const auto text = run({"info", path});
    EXPECT_EQ(static_cast<int>(text.code), 8);
    EXPECT_THAT(text.out, HasSubstr(": 1 frame, damaged, started "));
    EXPECT_THAT(text.out, HasSubstr("damage: group-1-item-1.sigmf-data lacks 100 bytes"));
    EXPECT_THAT(text.err, HasSubstr("is damaged; 1 of 2 frames are left.\n"));
    EXPECT_THAT(text.err, Not(HasSubstr("lacks")));
    EXPECT_THAT(text.out, HasSubstr("to complete it: vantor repair " + path + "\n"));
    const auto document = run({"info", path, "--json"});
    EXPECT_EQ(document.code, exit_code::damaged);
    const auto about = json::parse(document.out);
    EXPECT_EQ(about["complete"], false);
    EXPECT_EQ(about["frames"], 1);
    EXPECT_EQ(about["frames_recorded"], 2);
    EXPECT_EQ(about["damage"].size(), 1U);
}

/** A TCP port on which another program listens. */
class used_port
{
public:
    used_port() : descriptor_(socket(AF_INET, SOCK_STREAM, 0))
    {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address_;
        auto *const place = reinterpret_cast<sockaddr *>(&address_);
        EXPECT_EQ(bind(descriptor_, place, length), 0);
        EXPECT_EQ(listen(descriptor_, 1), 0);
        EXPECT_EQ(getsockname(descriptor_, place, &length), 0);
    }
    used_port(const used_port &) = delete;
    used_port &operator=(const used_port &) = delete;
    used_port(used_port &&) = delete;
    used_port &operator=(used_port &&) = delete;

    ~used_port()
    {
        close(descriptor_);
    }

    [[nodiscard]] unsigned number() const
    {
        return ntohs(address_.sin_port);
    }

private:
    int descriptor_;
    sockaddr_in address_ = {};
};

TEST_F(damaged_recording_test, is_noticed_by_the_commands_that_use_recordings)
{
    const auto warning = "vantor: warning: " + path +
                         " is damaged; 1 of 2 frames are left: group-1-item-1.sigmf-data lacks 100 bytes";
    const auto output = (files.directory / "output").string();
    EXPECT_THAT(run({"export", path, "--format", "csv", "--output", output}).err, HasSubstr(warning));
    EXPECT_THAT(run({"plot", path, "--output", output + ".png"}).err, HasSubstr(warning));
    // The port is in use, which ends the command.
    const used_port port;
    EXPECT_THAT(run({"replay", path, "--tcp", std::to_string(port.number())}).err, HasSubstr(warning));
}

TEST(commands_that_use_recordings, notice_a_changed_sample)
{
    const test::recording_files files(true);
    auto samples = files.original.at("group-2-item-1.sigmf-data");
    samples[0] = static_cast<char>(samples[0] ^ 1);
    files.write("group-2-item-1.sigmf-data", samples);
    const auto output = (files.directory / "output").string();
    const auto result = run({"export", files.path.string(), "--format", "npy", "--output", output});
    EXPECT_EQ(result.code, exit_code::success);
    EXPECT_THAT(result.err,
                HasSubstr("2 of 2 frames are left: The samples in group-2-item-1.sigmf-data differ"));
    files.restore();
    EXPECT_EQ(run({"export", files.path.string(), "--format", "csv", "--output", output}).err, "");
}

TEST_F(damaged_recording_test, can_be_repaired)
{
    const auto result = json::parse(run({"repair", path, "--json"}).out);
    EXPECT_EQ(result, json({{"recording", path},
                            {"changed", true},
                            {"frames", 1},
                            {"frames_removed", 1},
                            {"bytes_removed", 280},
                            {"table_bytes_removed", 91},
                            {"truth_lines_removed", 0},
                            {"truth_lost", false}}));
    EXPECT_EQ(run({"repair", path}).out, "1 frame left; nothing to repair\n");
    const auto about = json::parse(run({"info", path, "--json"}).out);
    EXPECT_EQ(about["complete"], true);
    EXPECT_EQ(about["repaired"], true);
}

TEST(repair_command, removes_whole_frames_only_with_an_option)
{
    const test::temporary_directory directory;
    test::write_example_recording(directory / "out", 20);
    const auto path = (directory / "out").string();
    std::filesystem::resize_file(directory / "out/group-1-item-2.sigmf-data", 500);
    const auto refused = run({"repair", path});
    EXPECT_EQ(refused.code, exit_code::damaged);
    EXPECT_THAT(refused.err, HasSubstr("15 frames whose samples are complete in another file"));
    const auto about = run({"info", path}).out;
    EXPECT_THAT(
        about,
        HasSubstr("\"vantor repair\" refuses to change it: 15 frames whose samples are complete in another"));
    EXPECT_THAT(about, Not(HasSubstr("to complete it")));
    EXPECT_THAT(run({"repair", path, "--drop-frames"}).out,
                HasSubstr("5 frames left; removed: 15 frames complete in only some of the items, "));
}

TEST(info, compares_the_number_of_missing_frames_with_the_captures)
{
    const test::recording_files files(true);
    const auto name = "group-1-item-1.sigmf-meta";
    auto meta = json::parse(test::read_file(files.path / name));
    meta["global"]["vantor:frames_missing"] = 7;
    files.write(name, meta.dump());
    auto collection = json::parse(test::read_file(files.path / "session.sigmf-collection"));
    collection["collection"]["core:streams"][0]["hash"] = sha512_of(meta.dump());
    files.write("session.sigmf-collection", collection.dump());
    const auto result = run({"info", files.path.string()});
    EXPECT_EQ(result.code, exit_code::damaged);
    EXPECT_THAT(result.out, HasSubstr("damage: group-1-item-1.sigmf-meta says that 7 frames are missing, but "
                                      "its captures and ticks show 0.\n"));
}

TEST(repair_command, reports_what_it_cannot_repair)
{
    const test::recording_files files(true);
    std::filesystem::remove(files.path / "group-1-item-1.frames.csv");
    const auto result = run({"repair", files.path.string()});
    EXPECT_EQ(result.code, exit_code::damaged);
    EXPECT_THAT(result.err, HasSubstr("cannot be repaired, and was not changed: Cannot read"));
    EXPECT_EQ(run({"repair", (files.path / "missing").string()}).code, exit_code::bad_file);
}

TEST(info, of_a_recording_that_is_not_finished_is_no_failure)
{
    const test::recording_files files(false);
    const auto text = run({"info", files.path.string()});
    EXPECT_EQ(text.code, exit_code::success);
    EXPECT_THAT(text.out, HasSubstr(": 2 frames, incomplete, started "));
    EXPECT_THAT(text.out, HasSubstr("to complete it: vantor repair " + files.path.string() + "\n"));
    EXPECT_EQ(
        run({"repair", files.path.string()}).out,
        "2 frames left; removed: 0 frames complete in only some of the items, 0 bytes of samples, 0 bytes of "
        "frame tables\n");
    EXPECT_THAT(run({"info", files.path.string()}).out, HasSubstr(": 2 frames, repaired, started "));
    EXPECT_THAT(run({"info", files.path.string()}).out, Not(HasSubstr("to complete it")));
}

TEST(info, shows_that_a_recording_is_still_being_written)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", test::example_description());
    writer.add(test::example_frame(0));
    const auto text = run({"info", (directory / "out").string()}).out;
    EXPECT_THAT(text, HasSubstr(": 1 frame, still being recorded, started "));
    EXPECT_THAT(text, Not(HasSubstr("to complete it")));
    const auto about = json::parse(run({"info", (directory / "out").string(), "--json"}).out);
    EXPECT_EQ(about["in_progress"], true);
}

TEST(info, says_what_is_unknown_without_metadata_and_frames)
{
    const test::recording_files files(true);
    for (const auto &[name, content] : files.original)
    {
        if (name.ends_with(".sigmf-meta"))
        {
            std::filesystem::remove(files.path / name);
        }
    }
    EXPECT_THAT(run({"info", files.path.string()}).out, HasSubstr("started unknown, vantor_server 0.1.0\n"));
    const test::temporary_directory directory;
    recording_writer(directory / "out", test::example_description()).finish();
    EXPECT_THAT(run({"info", (directory / "out").string()}).out,
                testing::ContainsRegex(" - +- \\(no valid frame\\)\n"));
    const auto about = json::parse(run({"info", (directory / "out").string(), "--json"}).out);
    EXPECT_EQ(about["items"][0]["mean_level"], nullptr);
}

TEST(info, shows_the_configured_rates_and_all_calibrations)
{
    const test::temporary_directory directory;
    auto description = test::example_description();
    description.configuration["groups"][0][0]["config"]["sweep_rate"] = 1000;
    {
        recording_writer writer(directory / "out", description);
        writer.add(test::example_frame(0));
        // Four frames are missing.
        auto late = test::example_frame(5);
        late.set_missing(4);
        writer.add(late);
        writer.begin_segment({.number = 1,
                              .reason = "calibrated again",
                              .gap = 2.5,
                              .calibration_temperatures = {20, 20, 22}});
        auto next = test::example_frame(6);
        next.set_missing(4);
        writer.add(next);
        writer.finish();
    }
    const auto about = json::parse(run({"info", (directory / "out").string(), "--json"}).out);
    EXPECT_EQ(about["items"][0]["frame_rate"], 50.0);
    EXPECT_NEAR(about["items"][0]["measured_frame_rate"].get<double>(), 2 / 2.6, 1e-9);
    EXPECT_EQ(about["items"][0]["sweep_rate"], 1000);
    EXPECT_EQ(about["items"][1]["sweep_rate"], nullptr);
    EXPECT_EQ(about["items"][0]["frames_missing"], 4);
    EXPECT_EQ(about["calibrations"][1], json({{"sensor_id", 1}, {"temperature", 20}, {"first_frame", 2}}));
    const auto text = run({"info", (directory / "out").string()}).out;
    EXPECT_THAT(text, testing::ContainsRegex(" 50\\.00 +0\\.769 +1000\\.0 "));
    EXPECT_THAT(text, testing::ContainsRegex(" 50\\.00 +0\\.769 +[0-9.]+ \\(highest\\) "));
    EXPECT_THAT(text, HasSubstr("calibration: sensor 1 at 20 degrees from frame 2\n"));
}

TEST(info, claims_no_echo_if_the_noise_is_unknown)
{
    const test::temporary_directory directory;
    test::write_example_recording(directory / "out", 1);
    const auto items = json::parse(run({"info", (directory / "out").string(), "--json"}).out)["items"];
    // Two sweeps per frame, and one.
    EXPECT_EQ(items[0]["strongest_echo_m"], 0.32);
    EXPECT_EQ(items[1]["strongest_echo_m"], nullptr);
    EXPECT_EQ(items[1]["strongest_echo_note"], "noise unknown: too few sweeps");
}

TEST(info, says_why_there_is_no_echo)
{
    const test::temporary_directory directory;
    const auto note = [&](const char *name, const auto &source, bool valid) {
        test::write_item(directory / name, {.config = json::object()}, 4, source,
                         [=](int, json &info) { info["data_valid"] = valid; });
        const auto items = json::parse(run({"info", (directory / name).string(), "--json"}).out)["items"];
        EXPECT_EQ(items[0]["strongest_echo_m"], nullptr);
        return items[0]["strongest_echo_note"];
    };
    const auto noise = [](int frame, size_t, size_t point) {
        return std::polar(100.0, static_cast<double>(frame * frame) * (1.0 + static_cast<double>(point)));
    };
    const auto edge = [](int, size_t, size_t point) { return point == 0 ? 3000.0 : 0.0; };
    EXPECT_EQ(note("noise", noise, true), "no echo above the noise");
    EXPECT_EQ(note("edge", edge, true), "only direct leakage, or an echo at an edge");
    EXPECT_EQ(note("invalid", edge, false), "no valid frame");
}

TEST(info, marks_an_echo_whose_samples_are_clipped)
{
    const test::temporary_directory directory;
    const auto source = [](int, size_t, size_t point) { return point >= 50 && point < 60 ? 32767.0 : 0.0; };
    test::write_item(directory / "out", {.config = json::object()}, 4, source);
    const auto path = (directory / "out").string();
    const auto item = json::parse(run({"info", path, "--json"}).out)["items"][0];
    EXPECT_TRUE(item["strongest_echo_m"].is_number());
    EXPECT_EQ(item["strongest_echo_note"], "saturated");
    EXPECT_THAT(run({"info", path}).out, testing::ContainsRegex(" 0\\.32[0-9] m \\(saturated\\)\n"));
}

TEST(info, shows_distances_rates_channel_and_configuration)
{
    const test::recording_files files(true);
    const auto about = json::parse(run({"info", files.path.string(), "--json"}).out);
    const auto &first = about["items"][0];
    EXPECT_EQ(first["ranges"],
              json::parse(R"([{"points": 20, "start_m": 0.25, "end_m": 0.44, "step_m": 0.01}])"));
    EXPECT_EQ(first["frame_rate"], 50.0);
    EXPECT_EQ(first["measured_frame_rate"], 50.0);
    EXPECT_EQ(first["max_sweep_rate"], 3125.5);
    EXPECT_EQ(first["strongest_echo_m"], 0.32);
    EXPECT_EQ(first["strongest_echo_note"], nullptr);
    EXPECT_EQ(first["channel"]["frames_valid"], 2);
    EXPECT_EQ(first["channel"]["frames_with_detection"], 0);
    EXPECT_EQ(first["channel"]["value"], json({{"lowest", 0.75}, {"mean", 0.75}, {"highest", 0.75}}));
    EXPECT_EQ(first["calibration_temperature"], 24);
    EXPECT_EQ(first["configuration"], test::example_description().configuration["groups"][0][0]);
    EXPECT_EQ(about["items"][1]["channel"], nullptr);
    EXPECT_EQ(about["items"][1]["ranges"].size(), 2U);
    EXPECT_EQ(about["calibrations"],
              json::parse(R"([{"sensor_id": 1, "temperature": 24, "first_frame": 0}])"));
    const auto text = run({"info", files.path.string()}).out;
    EXPECT_THAT(text,
                testing::ContainsRegex(" 0\\.250 m +0\\.440 m +0\\.0100 m +50\\.00 +50\\.00 +3125\\.5 "));
    EXPECT_THAT(text,
                HasSubstr("group-1-item-1: 2 frames valid, 0 not valid, 0 with another transmitter, value "
                          "0.750 to 0.750, mean 0.750\n"));
    EXPECT_THAT(text, HasSubstr("\"num_points\":20"));
    EXPECT_THAT(text, HasSubstr("calibration: sensor 1 at 24 degrees\n"));
}

TEST(info, shows_the_origin_without_control_characters)
{
    const test::temporary_directory directory;
    auto description = test::example_description();
    description.source = {{"address", "serial:/dev/tty\x1b[2J\u009b\u202e@115200"},
                          {"board", {{"name", "\x1b[31m\u2066"}}},
                          {"simulator", 5}};
    recording_writer(directory / "out", description).finish();
    const auto path = (directory / "out").string();
    const auto text = run({"info", path}).out;
    EXPECT_THAT(text, HasSubstr("address: serial:/dev/tty?[2J??@115200\n"));
    const auto document = run({"info", path, "--json"}).out;
    EXPECT_EQ(json::parse(document)["source"], json(description.source));
    for (const auto &output : {text, document})
    {
        for (const char *control : {"\x1b", "\u009b", "\u202e", "\u2066"})
        {
            EXPECT_THAT(output, Not(HasSubstr(control)));
        }
    }
}

TEST(commands_that_use_recordings, print_no_control_characters_of_a_break)
{
    const test::temporary_directory directory;
    {
        recording_writer writer(directory / "out", test::example_description());
        writer.add(test::example_frame(0));
        writer.begin_segment({.number = 1,
                              .reason = "\x1b[31m\u009b\u202e",
                              .gap = 1.0,
                              .calibration_temperatures = {20, 20, 22}});
        writer.add(test::example_frame(1));
        writer.finish();
    }
    const auto path = (directory / "out").string();
    EXPECT_THAT(run({"plot", path}).err, HasSubstr("vantor: warning: break of 1.0 s: ?[31m??\n"));
    EXPECT_THAT(run({"info", path}).out, HasSubstr("break of 1.0 s: ?[31m??\n"));
}

TEST(info, quotes_the_path_in_the_command_that_it_suggests)
{
    const test::temporary_directory directory;
    const auto path = (directory / "my garage").string();
    {
        recording_writer writer(path, test::example_description());
        writer.add(test::example_frame(0));
    }
    EXPECT_THAT(run({"info", path}).out, HasSubstr("to complete it: vantor repair '" + path + "'\n"));
}

/** Records frames, 20 ms after each other by the server's clock, that were measured at times in UTC. */
class dated_recording_test : public testing::Test
{
protected:
    /**
     * Records 501 frames.
     *
     * @param period  between two frames in UTC
     * @param bound   of their times
     * @param next    a segment that begins with the last frame; none if it has no reason
     */
    void record(std::chrono::nanoseconds period, std::chrono::nanoseconds bound, const segment &next = {})
    {
        recording_writer writer(path, test::example_description());
        for (uint32_t number = 0; number <= frames; ++number)
        {
            if (number == frames && !next.reason.empty())
            {
                writer.begin_segment(next);
            }
            const utc_time utc{.moment = start + number * period, .bound = bound};
            writer.add(number == 1 ? test::example_frame(number) : test::example_frame_at(number, utc));
        }
        writer.finish();
    }

    /** What `vantor info` knows of the times. */
    [[nodiscard]] json times() const
    {
        return json::parse(run({"info", path.string(), "--json"}).out)["times"];
    }

    static constexpr uint32_t frames = 500;
    const std::chrono::sys_time<std::chrono::nanoseconds> start{
        std::chrono::nanoseconds(1795455600123456789)};
    const test::temporary_directory directory;
    const std::filesystem::path path = directory / "out";
};

TEST_F(dated_recording_test, shows_when_frames_were_measured)
{
    using namespace std::chrono_literals;
    // 10 s by the server's clock in 9.999 s: 100 ppm fast.
    record(19'998us, 250us);
    const auto found = times();
    EXPECT_EQ(found["first_utc"], "2026-11-23T17:40:00.123457Z");
    EXPECT_EQ(found["last_utc"], "2026-11-23T17:40:10.122457Z");
    EXPECT_NEAR(found["largest_bound_s"].get<double>(), 0.000251, 1e-9);
    EXPECT_EQ(found["frames_unknown"], 1);
    EXPECT_NEAR(found["clock_drift_ppm"][0].get<double>(), 100.0 - 50.2, 0.5);
    EXPECT_NEAR(found["clock_drift_ppm"][1].get<double>(), 100.0 + 50.2, 0.5);
    EXPECT_THAT(run({"info", path.string()}).out,
                HasSubstr("\nticks: 2026-11-23T17:40:00.123457Z to 2026-11-23T17:40:10.122457Z, known within "
                          "0.251 ms, unknown for 1 frame; the clock of the board is between "));
}

TEST_F(dated_recording_test, names_a_slow_clock)
{
    using namespace std::chrono_literals;
    record(20'001us, 500us);
    EXPECT_THAT(run({"info", path.string()}).out,
                testing::ContainsRegex("is between 150\\.[0-9] ppm slow and 50\\.[0-9] ppm fast\n"));
}

TEST_F(dated_recording_test, knows_no_drift_if_the_bounds_allow_any)
{
    using namespace std::chrono_literals;
    record(20ms, 6ms);
    EXPECT_TRUE(times()["clock_drift_ppm"].is_null());
    EXPECT_THAT(run({"info", path.string()}).out, HasSubstr("6.00 ms, unknown for 1 frame\n"));
}

TEST_F(dated_recording_test, knows_no_drift_of_a_server_that_started_again)
{
    using namespace std::chrono_literals;
    record(20ms, 1ms,
           {.number = 1, .reason = connected_again, .gap = 1.0, .calibration_temperatures = {1, 2, 3}});
    EXPECT_TRUE(times()["clock_drift_ppm"].is_null());
}

TEST(info, knows_no_times_of_earlier_recordings)
{
    const test::recording_files files(true);
    EXPECT_TRUE(json::parse(run({"info", files.path.string(), "--json"}).out)["times"].is_null());
    EXPECT_THAT(run({"info", files.path.string()}).out, Not(HasSubstr("ticks:")));
}

} // namespace
} // namespace vantor
