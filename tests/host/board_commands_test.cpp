/** @file
 * Tests of the commands with recordings of several boards.
 */
#include <csignal>
#include <filesystem>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "command_outcome.h"
#include "commands/command_line.h"
#include "disk_calls.h"
#include "example_recording.h"
#include "plot/drawing_stopped.h"
#include "plot/shared_axis.h"
#include "temporary_directory.h"
#include "vantor/board_collection.h"
#include "vantor/recording_writer.h"

namespace vantor
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;
using test::run;
using testing::HasSubstr;
using testing::Not;

/** A recording of the boards "near" and "far", whose frames begin a second later. */
class board_commands : public testing::Test
{
protected:
    board_commands()
    {
        collection.set_streams(0, record("near", 0s, 3));
        collection.set_streams(1, record("far", 1s, 5));
        collection.write();
    }

    /** Records frames, 20 ms after each other. */
    [[nodiscard]] std::vector<collection_stream> record(const std::string &board,
                                                        std::chrono::nanoseconds delay, uint32_t frames) const
    {
        recording_writer writer(place / board, test::example_description());
        for (uint32_t number = 0; number < frames; ++number)
        {
            const auto moment = start + delay + number * 20ms;
            writer.add(test::example_frame_at(number, {.moment = moment, .bound = 2ms}));
        }
        writer.finish();
        return writer.streams();
    }

    /** What `vantor info --json` says. */
    [[nodiscard]] json info() const
    {
        return json::parse(run({"info", place.string(), "--json"}).out);
    }

    /** Replaces the times in UTC of all frames of a board. */
    void write_times(const std::string &board, const std::string &cells) const
    {
        for (const char *item : {"group-1-item-1", "group-1-item-2", "group-2-item-1"})
        {
            const auto name = "walk/" + board + "/" + item + ".frames.csv";
            std::istringstream old(test::read_file(directory / name));
            std::string line;
            std::getline(old, line);
            auto table = line + "\n";
            while (std::getline(old, line))
            {
                // The last two cells.
                table += line.substr(0, line.rfind(',', line.rfind(',') - 1) + 1) + cells + "\n";
            }
            static_cast<void>(directory.write(name, table));
        }
    }

    /** Expects that all commands that take several boards refuse the directory, with this reason. */
    void expect_refused(const std::string &reason) const
    {
        using arguments = std::vector<std::string>;
        for (const auto &command : {arguments{"info"}, arguments{"plot"},
                                    arguments{"export", "--format", "npy"}, arguments{"view"}})
        {
            auto words = command;
            words.push_back(place.string());
            const auto refused = run(words);
            EXPECT_EQ(refused.code, exit_code::damaged);
            EXPECT_THAT(refused.err, testing::EndsWith(reason)) << command.front();
        }
    }

    const std::chrono::sys_time<std::chrono::nanoseconds> start{1795455600s};
    const test::temporary_directory directory;
    const std::filesystem::path place = directory / "walk";
    const std::filesystem::path list = place / board_collection_file;
    board_collection collection{place,
                                {{.directory = "near", .name = "Near", .address = "tcp:one:6110"},
                                 {.directory = "far", .id = "7", .address = "tcp:two:6110"}}};
};

TEST_F(board_commands, info_shows_the_boards_on_one_axis)
{
    const auto about = info();
    EXPECT_EQ(about["complete"], true);
    EXPECT_EQ(about["axis_start_utc"], "2026-11-23T17:40:00.000000Z");
    EXPECT_EQ(about["damage"], json::array());
    ASSERT_EQ(about["boards"].size(), 2U);
    const auto &far = about["boards"][1];
    EXPECT_EQ(far["directory"], "far");
    EXPECT_EQ(far["name"], nullptr);
    EXPECT_EQ(far["id"], "7");
    EXPECT_EQ(far["address"], "tcp:two:6110");
    EXPECT_EQ(far["frames"], 5);
    EXPECT_EQ(far["on_axis_s"], json({1.0, 1.08}));
    const auto text = run({"info", place.string()});
    EXPECT_EQ(text.code, exit_code::success);
    EXPECT_THAT(text.out, HasSubstr("walk: 2 boards, times count from 2026-11-23T17:40:00.000000Z\n"));
    EXPECT_THAT(text.out, testing::ContainsRegex("near +3 +0 +0.000 +0.040 +2.00 +0 +complete\n"));
    EXPECT_THAT(text.out, testing::ContainsRegex("far +5 +0 +1.000 +1.080 +2.00 +0 +complete\n"));
    EXPECT_THAT(text.out, HasSubstr("\nfar\n" + (place / "far").string() + ": 5 frames, started "));
}

TEST_F(board_commands, info_shows_breaks_if_a_board_has_any)
{
    EXPECT_THAT(run({"info", place.string()}).out, Not(HasSubstr("breaks")));
    std::filesystem::remove_all(place / "near");
    recording_writer writer(place / "near", test::example_description());
    writer.add(test::example_frame_at(0, {.moment = start, .bound = 2ms}));
    writer.begin_segment(
        {.number = 1, .reason = connected_again, .gap = 2.5, .calibration_temperatures = {1, 2, 3}});
    writer.add(test::example_frame_at(1, {.moment = start + 3s, .bound = 2ms}));
    writer.finish();
    const auto text = run({"info", place.string()}).out;
    EXPECT_THAT(text, HasSubstr("still being recorded"));
    EXPECT_THAT(text, Not(HasSubstr("damage")));
    EXPECT_THAT(text, testing::ContainsRegex("\nboard +frames +missing +breaks +from \\(s\\) "));
    EXPECT_THAT(text, testing::ContainsRegex("\n *near +2 +0 +1 +0.000 "));
    EXPECT_THAT(text, testing::ContainsRegex("\n *far +5 +0 +0 +1.000 "));
    const auto boards = info()["boards"];
    const json expected = {{"reason", "connected again"}, {"seconds", 2.5}, {"first_frame", 1}};
    EXPECT_EQ(boards[0]["breaks"], json::array({expected}));
    EXPECT_EQ(boards[0]["breaks_not_listed"], 0);
    EXPECT_EQ(boards[1]["breaks"], json::array());
}

TEST_F(board_commands, info_finds_damage_of_a_board)
{
    std::filesystem::resize_file(place / "near/group-1-item-1.sigmf-data", 100);
    std::filesystem::remove_all(place / "far");
    const auto text = run({"info", place.string()});
    EXPECT_EQ(text.code, exit_code::damaged);
    EXPECT_THAT(text.out, testing::ContainsRegex("near +0 .*damaged\n"));
    EXPECT_THAT(text.out, testing::ContainsRegex("far +- +- +- +- +- +- +damaged\n"));
    EXPECT_THAT(text.out, HasSubstr("\nfar\ndamage: " + (place / "far").string()));
    EXPECT_EQ(info()["complete"], false);
}

TEST_F(board_commands, times_that_are_far_apart_are_computed)
{
    write_times("near", "-4599999999.500000,4599999999.999999");
    write_times("far", "4599999999.500000,4599999999.999999");
    const auto about = info();
    EXPECT_EQ(about["boards"][1]["on_axis_s"], json({9199999999.0, 9199999999.0}));
    EXPECT_EQ(about["boards"][1]["times"]["largest_bound_s"], 4599999999.999999);
    EXPECT_EQ(about["boards"][1]["times"]["clock_drift_ppm"], nullptr);
    EXPECT_EQ(run({"plot", place.string()}).code, exit_code::success);
    EXPECT_EQ(run({"export", place.string(), "--format", "csv"}).code, exit_code::success);
}

TEST_F(board_commands, impossible_times_are_damage)
{
    for (const char *cells :
         {"1e300,0.001000", "-1e300,0.001000", "nan,nan", "inf,inf", "9100000000.000000,0.001000",
          "-9100000000.000000,0.001000", "1.000000,9100000000.000000"})
    {
        write_times("near", cells);
        const auto about = info();
        EXPECT_THAT(about["boards"][0]["damage"].dump(), HasSubstr("line 2 does not describe a frame"))
            << cells;
        EXPECT_EQ(about["boards"][0]["on_axis_s"], nullptr);
        EXPECT_EQ(about["boards"][1]["on_axis_s"], json({0.0, 0.08}));
        EXPECT_EQ(run({"export", (place / "near").string(), "--format", "csv"}).code, exit_code::bad_file);
        EXPECT_THAT(run({"plot", place.string()}).err, HasSubstr("vantor: near: "));
    }
}

TEST_F(board_commands, info_notices_documents_that_are_not_listed)
{
    std::filesystem::remove_all(place / "far");
    static_cast<void>(record("far", 2s, 5));
    EXPECT_EQ(run({"info", place.string()}).code, exit_code::damaged);
    EXPECT_THAT(info()["damage"].dump(), HasSubstr("far/group-1-item-1.sigmf-meta is not the one that "));
}

TEST_F(board_commands, export_writes_the_files_of_each_board)
{
    const auto beside = run({"export", place.string(), "--format", "npz"});
    EXPECT_EQ(beside.code, exit_code::success);
    EXPECT_TRUE(std::filesystem::exists(place / "near/export/group-1-item-1.npz"));
    EXPECT_TRUE(std::filesystem::exists(place / "far/export/group-2-item-1.npz"));
    const auto output = directory / "arrays";
    const auto document = json::parse(
        run({"export", place.string(), "--format", "npy", "--output", output.string(), "--json"}).out);
    EXPECT_EQ(document["files"].size(), 6U);
    EXPECT_TRUE(std::filesystem::exists(output / "far/group-1-item-2.npy"));
}

TEST_F(board_commands, plot_draws_a_picture_of_each_board)
{
    const auto drawn = run({"plot", place.string(), "--output", (directory / "walk.png").string(), "--json"});
    EXPECT_EQ(drawn.code, exit_code::success);
    const json pages = {(directory / "walk-near.png").string(), (directory / "walk-far.png").string()};
    EXPECT_EQ(json::parse(drawn.out)["pages"], pages);
    EXPECT_TRUE(std::filesystem::exists(directory / "walk-far.png"));
    EXPECT_THAT(run({"plot", place.string()}).out,
                HasSubstr("picture: " + (place / "picture-near.png").string()));
}

TEST_F(board_commands, a_board_that_cannot_be_read_does_not_keep_others_from_their_pictures)
{
    std::filesystem::remove_all(place / "near");
    const auto drawn = run({"plot", place.string(), "--json"});
    EXPECT_EQ(drawn.code, exit_code::bad_file);
    EXPECT_THAT(drawn.err,
                testing::StartsWith("vantor: near: " + (place / "near").string() + " does not exist"));
    EXPECT_THAT(drawn.err, Not(HasSubstr("far")));
    const auto document = json::parse(drawn.out);
    EXPECT_EQ(document["pages"], json::array({(place / "picture-far.png").string()}));
    std::filesystem::remove_all(place / "far");
    const auto failed = run({"plot", place.string(), "--json"});
    EXPECT_EQ(failed.code, exit_code::bad_file);
    EXPECT_THAT(failed.err, HasSubstr("vantor: far: "));
    EXPECT_EQ(json::parse(failed.out)["picture"], nullptr);
}

TEST_F(board_commands, a_board_that_cannot_be_read_does_not_keep_others_from_being_exported)
{
    std::filesystem::remove_all(place / "near");
    std::filesystem::create_directory(place / "far/export");
    std::filesystem::create_symlink("nowhere", place / "far/export/group-1-item-1.csv");
    const auto output = directory / "arrays";
    const auto outside = run({"export", place.string(), "--format", "csv", "--output", output.string()});
    EXPECT_EQ(outside.code, exit_code::bad_file);
    EXPECT_THAT(outside.err, testing::StartsWith("vantor: near: "));
    EXPECT_THAT(outside.out, HasSubstr((output / "far/group-1-item-1.csv").string() + "\n"));
    const auto inside = run({"export", place.string(), "--format", "csv"});
    EXPECT_EQ(inside.code, exit_code::bad_file);
    EXPECT_THAT(inside.err, HasSubstr("\nvantor: far: "));
    EXPECT_EQ(inside.out, "");
}

TEST_F(board_commands, a_signal_leaves_the_files_of_the_boards_before)
{
    size_t left = 0;
    {
        const test::disk_calls first([&] { ++left; });
        run({"export", (place / "near").string(), "--format", "csv"});
    }
    std::ostringstream out;
    std::ostringstream err;
    // At the first file of the second board.
    const test::disk_calls calls([&] { return left-- == 0 ? std::raise(SIGINT) : 0; });
    EXPECT_EQ(run_command_line({"export", place.string(), "--format", "npy"}, {out, err}),
              exit_code::interrupted);
    EXPECT_EQ(err.str(), "vantor: Interrupted; no further file was written.\n");
    EXPECT_THAT(out.str(), testing::StartsWith((place / "near/export/group-1-item-1.npy").string()));
    EXPECT_FALSE(std::filesystem::exists(place / "far/export/group-1-item-1.npy"));
}

TEST_F(board_commands, the_times_of_an_axis_are_read_row_by_row)
{
    const recording_reader recording(place / "far");
    uint64_t rows = 0;
    const auto times = read_times(recording, 0, [&](uint64_t number) { EXPECT_EQ(number, ++rows); });
    EXPECT_EQ(rows, 5U);
    EXPECT_EQ(times.last->utc.moment - times.first->utc.moment, 80ms);
    const auto stop = [](uint64_t) { throw drawing_stopped(); };
    EXPECT_THROW(static_cast<void>(read_times(recording, 0, stop)), drawing_stopped);
}

TEST_F(board_commands, repair_completes_the_boards_that_it_can)
{
    const std::string cut = place / "near/group-2-item-1.sigmf-data";
    std::filesystem::resize_file(cut, std::filesystem::file_size(cut) - 1);
    std::filesystem::remove_all(place / "far");
    const auto text = run({"repair", place.string(), "--drop-frames"});
    EXPECT_EQ(text.code, exit_code::damaged);
    EXPECT_THAT(text.out, HasSubstr("near: 2 frames left; removed: 1 frame "));
    EXPECT_THAT(text.out, HasSubstr("far: not repaired: "));
    EXPECT_THAT(text.err, HasSubstr("Not all boards of " + place.string() + " could be repaired."));
    EXPECT_EQ(board_collection::read(place).boards()[0].streams[0].digest.size(), 128U);
    EXPECT_THAT(board_collection::read(place).changed_documents(),
                testing::Each(testing::Property(&std::filesystem::path::native, testing::StartsWith("far"))));
}

TEST_F(board_commands, repair_lists_the_documents_again)
{
    std::filesystem::remove_all(place / "far");
    static_cast<void>(record("far", 2s, 5));
    const auto document = run({"repair", place.string(), "--json"});
    EXPECT_EQ(document.code, exit_code::success);
    const auto boards = json::parse(document.out)["boards"];
    ASSERT_EQ(boards.size(), 2U);
    EXPECT_EQ(boards[1]["frames"], 5);
    EXPECT_EQ(info()["complete"], true);
    EXPECT_EQ(info()["damage"], json::array());
}

TEST_F(board_commands, repair_goes_on_after_a_file_that_cannot_be_written)
{
    const auto data = place / "near/group-1-item-1.sigmf-data";
    std::filesystem::resize_file(data, std::filesystem::file_size(data) - 1);
    std::filesystem::rename(data, place / "elsewhere");
    std::filesystem::create_symlink("../elsewhere", data);
    const auto text = run({"repair", place.string(), "--drop-frames"});
    EXPECT_EQ(text.code, exit_code::damaged);
    EXPECT_THAT(text.out, HasSubstr("near: not repaired: "));
    EXPECT_THAT(text.out, HasSubstr("far: 5 frames left; nothing to repair\n"));
}

TEST_F(board_commands, other_commands_ask_for_one_board)
{
    const std::string advice = "walk has recordings in its directories: give one of these.";
    EXPECT_THAT(run({"replay", place.string(), "--tcp", "0"}).err, HasSubstr(advice));
    std::filesystem::remove(list);
    EXPECT_THAT(run({"replay", place.string(), "--tcp", "0"}).err, HasSubstr(advice));
}

TEST_F(board_commands, all_commands_say_how_a_missing_list_is_written_again)
{
    std::filesystem::remove(list);
    expect_refused(list.string() +
                   " is missing: if the recordings beside it belong together, \"vantor repair " +
                   place.string() + "\" writes it again; otherwise give one of their directories.\n");
}

TEST_F(board_commands, all_commands_say_how_a_damaged_list_is_written_again)
{
    const auto whole = test::read_file(list);
    for (const auto &text :
         {whole.substr(0, whole.size() / 2), std::string("{}"), std::string(), std::string("text")})
    {
        static_cast<void>(directory.write("walk/boards.sigmf-collection", text));
        expect_refused(" \"vantor repair " + place.string() + "\" writes it again.\n");
    }
}

TEST_F(board_commands, repair_writes_a_missing_or_damaged_list_again)
{
    for (const char *text :
         {"", "{}", R"({"collection":{"core:streams":[],"vantor:boards":[{"directory":".."}]}})"})
    {
        static_cast<void>(directory.write("walk/boards.sigmf-collection", text));
        const auto repaired = run({"repair", place.string()});
        EXPECT_EQ(repaired.code, exit_code::success) << repaired.err;
        EXPECT_THAT(repaired.out, HasSubstr("far: 5 frames left; nothing to repair\n"));
        EXPECT_THAT(repaired.out, HasSubstr("\nboards.sigmf-collection: lists the 2 boards again\n"));
    }
    std::filesystem::remove(list);
    const auto document = json::parse(run({"repair", place.string(), "--json"}).out);
    EXPECT_EQ(document["list_rebuilt"], true);
    EXPECT_EQ(document["boards"].size(), 2U);
    const auto about = info();
    EXPECT_EQ(about["damage"], json::array());
    EXPECT_EQ(about["complete"], true);
    EXPECT_EQ(about["boards"][0]["directory"], "far");
    EXPECT_EQ(json::parse(run({"repair", place.string(), "--json"}).out)["list_rebuilt"], false);
}

TEST_F(board_commands, repair_brings_a_list_up_to_date)
{
    const auto table = place / "far/group-1-item-1.frames.csv";
    std::filesystem::resize_file(table, std::filesystem::file_size(table) - 1);
    EXPECT_EQ(run({"repair", (place / "far").string(), "--drop-frames"}).code, exit_code::success);
    const auto before = run({"info", place.string()});
    EXPECT_EQ(before.code, exit_code::damaged);
    EXPECT_THAT(before.out,
                HasSubstr("\nto bring the list up to date: vantor repair " + place.string() + "\n"));
    EXPECT_EQ(run({"repair", place.string()}).code, exit_code::success);
    EXPECT_EQ(run({"info", place.string()}).code, exit_code::success);
}

} // namespace
} // namespace vantor
