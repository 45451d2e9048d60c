/** @file
 * Tests of the files of a recording: samples, tables and SigMF documents, also when writing fails.
 */
#include "vantor/recording_writer.h"

#include <fstream>
#include <functional>
#include <regex>

#include <gmock/gmock.h>

#include "disk_calls.h"
#include "example_recording.h"
#include "fake_server.h"
#include "file_size_limit.h"
#include "libcrypto_without_algorithms.h"
#include "recording/capture_list.h"
#include "recording/input_file.h"
#include "recording/recording_check.h"
#include "recording/sha512.h"
#include "recording/sigmf.h"
#include "temporary_directory.h"
#include "vantor/configuration.h"
#include "vantor/errors.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using test::example_description;
using test::example_frame;
using test::example_frames;
using test::example_session;
using test::read_file;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::StartsWith;

/** A JSON document of a recording. */
json read_json(const std::filesystem::path &path)
{
    return json::parse(read_file(path));
}

/** Checks what the standard requires of an item's document. */
void expect_valid_sigmf(const json &document)
{
    ASSERT_TRUE(document["global"].is_object());
    const auto &global = document["global"];
    EXPECT_EQ(global["core:datatype"], "ci16_le");
    EXPECT_TRUE(std::regex_match(global["core:version"].get<std::string>(), std::regex(R"(\d+\.\d+\.\d+)")));
    EXPECT_EQ(global["core:extensions"],
              json::parse(R"([{"name": "vantor", "version": "0.1.0", "optional": true}])"));
    if (global.contains("core:sample_rate"))
    {
        EXPECT_GE(global["core:sample_rate"].get<double>(), 1.0);
    }
    ASSERT_TRUE(document["annotations"].is_array());
    int64_t last = -1;
    for (const auto &capture : document["captures"])
    {
        EXPECT_GT(capture["core:sample_start"].get<int64_t>(), last);
        last = capture["core:sample_start"];
        EXPECT_TRUE(std::regex_match(capture["core:datetime"].get<std::string>(),
                                     std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d+Z)")));
    }
    for (const auto &[key, value] : global.items())
    {
        EXPECT_TRUE(std::regex_match(key, std::regex("(core|vantor):[a-z][a-z0-9_]*"))) << key;
    }
}

TEST(recording_writer, has_its_directory_on_the_disk)
{
    const test::temporary_directory directory;
    const auto parent = std::filesystem::canonical(directory / "");
    const test::disk_calls calls;
    const recording_writer writer(directory / "a/b", example_description());
    ASSERT_GE(calls.list().size(), 2U);
    EXPECT_EQ(calls.list()[0], "sync " + (parent / "a").string());
    EXPECT_EQ(calls.list()[1], "sync " + parent.string());
}

TEST(recording_writer, writes_samples_unchanged)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    std::string first;
    std::string second;
    std::string third;
    for (uint32_t number = 0; number < 5; ++number)
    {
        writer.add(example_frame(number));
        const auto payload = example_session().frame_payload(number);
        first += payload.substr(0, 160);
        second += payload.substr(160, 100);
        third += payload.substr(260);
    }
    writer.finish();
    EXPECT_EQ(writer.frames(), 5U);
    EXPECT_EQ(writer.data_length(), 5U * 380U);
    EXPECT_EQ(read_file(directory / "out/group-1-item-1.sigmf-data"), first);
    EXPECT_EQ(read_file(directory / "out/group-1-item-2.sigmf-data"), second);
    EXPECT_EQ(read_file(directory / "out/group-2-item-1.sigmf-data"), third);
}

TEST(recording_writer, writes_a_table_of_the_frames)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    writer.add(example_frame(0));
    writer.add(example_frame(1));
    EXPECT_EQ(
        read_file(directory / "out/group-1-item-1.frames.csv"),
        "frame,time_s,tick,temperature,data_saturated,frame_delayed,calibration_needed,data_valid,cca_value,"
        "cca_detected,tx_enabled,utc_s,utc_bound_s\n"
        "0,0,0,-3,0,0,0,1,0.75,0,1,,\n"
        "1,0.02,20000,-3,0,0,0,1,0.75,0,1,,\n");
    EXPECT_THAT(read_file(directory / "out/group-1-item-2.frames.csv"),
                HasSubstr("\n1,0.02,20005,-3,0,0,0,,,,,,\n"));
}

TEST(recording_writer, describes_each_item_as_sigmf)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    for (uint32_t number = 0; number < 11; ++number)
    {
        writer.add(example_frame(number));
    }
    writer.finish();
    const auto document = read_json(directory / "out/group-1-item-2.sigmf-meta");
    expect_valid_sigmf(document);
    const auto &global = document["global"];
    EXPECT_EQ(global["core:sha512"], sha512_of(read_file(directory / "out/group-1-item-2.sigmf-data")));
    EXPECT_DOUBLE_EQ(global["core:sample_rate"], 50.0 * 25);
    EXPECT_EQ(global["core:collection"], "session");
    EXPECT_EQ(global["vantor:frames"], 11);
    EXPECT_DOUBLE_EQ(global["vantor:frame_rate"], 50.0);
    EXPECT_EQ(global["vantor:sensor_id"], 2);
    EXPECT_EQ(global["vantor:samples_per_frame"], 25);
    EXPECT_EQ(global["vantor:sweeps_per_frame"], 1);
    EXPECT_EQ(global["vantor:subsweeps"][1]["offset"], 10);
    EXPECT_DOUBLE_EQ(global["vantor:subsweeps"][1]["start_m"], 0.5);
    EXPECT_DOUBLE_EQ(global["vantor:subsweeps"][1]["step_m"], 0.02);
    EXPECT_DOUBLE_EQ(global["vantor:subsweeps"][1]["pulse_width_m"], 0.198);
    EXPECT_DOUBLE_EQ(global["vantor:wavelength_m"], 0.005);
    EXPECT_EQ(global["vantor:item_configuration"], example_session().configuration["groups"][0][1]);
    ASSERT_EQ(document["captures"].size(), 1U);
    EXPECT_EQ(document["captures"][0]["core:sample_start"], 0);
}

TEST(recording_writer, shows_no_time_without_the_servers_clock)
{
    const test::temporary_directory directory;
    auto description = example_description();
    description.server.ticks_per_second = 0.0;
    recording_writer writer(directory / "out", description);
    writer.add(example_frame(0));
    writer.add(example_frame(1));
    writer.finish();
    const auto document = read_json(directory / "out/group-1-item-1.sigmf-meta");
    expect_valid_sigmf(document);
    EXPECT_FALSE(document["global"].contains("core:sample_rate"));
    EXPECT_FALSE(document["global"].contains("vantor:frame_rate"));
    EXPECT_THAT(read_file(directory / "out/group-1-item-1.frames.csv"), HasSubstr("\n1,0,20000,-3,"));
}

TEST(recording_writer, lists_the_items_of_a_session_in_a_collection)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    writer.add(example_frame(0));
    writer.finish();
    const auto collection = read_json(directory / "out/session.sigmf-collection")["collection"];
    EXPECT_EQ(collection["vantor:configuration"], example_session().configuration);
    EXPECT_EQ(collection["vantor:metadata"], example_session().metadata);
    EXPECT_EQ(collection["vantor:server"]["ticks_per_second"], 1000000.0);
    const auto copy =
        json::parse(read_file(directory / "out/group-1-item-1.sigmf-meta"))["global"]["vantor:session"];
    ASSERT_EQ(copy.size(), 3U);
    for (const auto &[name, value] : copy.items())
    {
        EXPECT_EQ(value, collection[name]) << name;
    }
    ASSERT_EQ(collection["core:streams"].size(), 3U);
    for (const auto &stream : collection["core:streams"])
    {
        const auto meta = directory / ("out/" + stream["name"].get<std::string>() + ".sigmf-meta");
        EXPECT_EQ(stream["hash"], sha512_of(read_file(meta)));
    }
}

TEST(recording_writer, can_be_read_while_it_is_written)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    writer.add(example_frame(0));
    const auto document = read_json(directory / "out/group-1-item-1.sigmf-meta");
    expect_valid_sigmf(document);
    EXPECT_FALSE(document["global"].contains("core:sha512"));
    EXPECT_FALSE(document["global"].contains("vantor:frames"));
    EXPECT_EQ(read_file(directory / "out/group-1-item-1.sigmf-data").size(), 160U);
    EXPECT_EQ(read_json(directory / "out/session.sigmf-collection")["collection"]["core:streams"].size(), 3U);
}

/** A frame with a number of frames missing before it. */
frame frame_after_missing(uint32_t number, uint64_t missing)
{
    auto received = example_frame(number);
    received.set_missing(missing);
    return received;
}

TEST(recording_writer, removes_a_gap_that_turns_out_to_be_none)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    writer.add(example_frame(0));
    writer.add(frame_after_missing(1, 1));
    writer.add(frame_after_missing(2, 0));
    writer.finish();
    const auto captures = read_json(directory / "out/group-1-item-1.sigmf-meta")["captures"];
    ASSERT_EQ(captures.size(), 1U);
    EXPECT_EQ(captures[0]["core:global_index"], 0);
}

TEST(recording_writer, shows_frames_that_are_missing_before_the_first)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    writer.add(frame_after_missing(2, 2));
    EXPECT_EQ(writer.missing(), 2U);
    writer.finish();
    const auto captures = read_json(directory / "out/group-1-item-1.sigmf-meta")["captures"];
    ASSERT_EQ(captures.size(), 1U);
    EXPECT_EQ(captures[0]["core:sample_start"], 0);
    EXPECT_EQ(captures[0]["core:global_index"], 2 * 40);
}

/** The first frame of each capture of a recording, and the frames missing before it; fails on any fault. */
std::vector<std::pair<uint64_t, uint64_t>> checked_gaps(const std::filesystem::path &directory)
{
    const auto check = check_recording(directory);
    EXPECT_THAT(check.faults, testing::IsEmpty());
    std::vector<std::pair<uint64_t, uint64_t>> gaps;
    for (const auto &part : check.captures)
    {
        gaps.emplace_back(part.first_frame, part.frames_missing);
    }
    EXPECT_EQ(check.missing, gaps.back().second);
    return gaps;
}

/** A recording that begins in the middle of a stream. */
class recording_within_stream : public testing::Test
{
protected:
    /** Writes frames, given by their numbers in the stream and the frames missing before them. */
    void write(const std::vector<std::pair<uint32_t, uint64_t>> &frames)
    {
        for (const auto &[number, missing] : frames)
        {
            writer.add(frame_after_missing(number, missing));
        }
    }

    test::temporary_directory directory;
    std::filesystem::path place = directory / "out";
    recording_writer writer{place, example_description(), recording_start::within_stream};
    const segment next{
        .number = 3, .reason = "calibrated again", .gap = 0.5, .calibration_temperatures = {1, 2, 3}};
};

TEST_F(recording_within_stream, has_no_gap_before_its_first_frame)
{
    write({{50, 7}, {51, 7}, {54, 9}});
    EXPECT_EQ(writer.missing(), 2U);
    writer.finish();
    EXPECT_THAT(checked_gaps(place), ElementsAre(Pair(0, 0), Pair(2, 2)));
}

TEST_F(recording_within_stream, begins_its_time_at_its_first_frame)
{
    write({{50, 7}, {51, 7}});
    EXPECT_DOUBLE_EQ(writer.seconds(), 0.02);
    EXPECT_THAT(read_file(directory / "out/group-1-item-1.frames.csv"),
                testing::AllOf(HasSubstr("\n0,0,1000000,"), HasSubstr("\n1,0.02,1020000,")));
}

// The first frame seemed to follow a gap, but was only late. The gap after it is real.
TEST_F(recording_within_stream, has_no_gap_before_a_first_frame_that_was_late)
{
    write({{50, 8}, {51, 8}, {52, 7}, {54, 8}});
    writer.finish();
    EXPECT_THAT(checked_gaps(place), ElementsAre(Pair(0, 0), Pair(3, 1)));
}

TEST_F(recording_within_stream, takes_back_a_gap_that_was_none)
{
    write({{50, 7}, {51, 8}, {52, 7}});
    writer.finish();
    EXPECT_THAT(checked_gaps(place), ElementsAre(Pair(0, 0)));
}

TEST_F(recording_within_stream, continues_in_further_segments)
{
    write({{50, 7}});
    writer.begin_segment(next);
    write({{10, 7}, {12, 8}});
    writer.finish();
    EXPECT_THAT(checked_gaps(place), ElementsAre(Pair(0, 0), Pair(1, 0), Pair(2, 1)));
    EXPECT_EQ(check_recording(place).captures[1].begins->reason, "calibrated again");
    EXPECT_DOUBLE_EQ(writer.seconds(), 0.54);
}

TEST_F(recording_within_stream, has_no_break_before_its_first_frame)
{
    writer.begin_segment(next);
    write({{10, 7}, {11, 7}});
    writer.finish();
    EXPECT_THAT(checked_gaps(place), ElementsAre(Pair(0, 0)));
    EXPECT_FALSE(check_recording(place).captures[0].begins);
}

TEST_F(recording_within_stream, counts_the_same_gaps_if_it_is_not_finished)
{
    write({{50, 7}, {51, 7}, {54, 9}});
    EXPECT_THAT(checked_gaps(place), ElementsAre(Pair(0, 0), Pair(2, 2)));
}

TEST(recording_writer, records_where_frames_were_lost)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    writer.add(example_frame(0));
    writer.add(example_frame(1));
    writer.add(frame_after_missing(5, 3));
    writer.add(frame_after_missing(8, 5));
    writer.add(frame_after_missing(9, 5));
    writer.finish();
    const auto document = read_json(directory / "out/group-1-item-1.sigmf-meta");
    expect_valid_sigmf(document);
    const auto &captures = document["captures"];
    ASSERT_EQ(captures.size(), 3U);
    EXPECT_EQ(captures[1]["core:sample_start"], 2 * 40);
    EXPECT_EQ(captures[1]["core:global_index"], 5 * 40);
    EXPECT_EQ(captures[2]["core:sample_start"], 3 * 40);
    EXPECT_EQ(captures[2]["core:global_index"], 8 * 40);
}

TEST(recording_writer, leaves_out_unknown_rates)
{
    const test::temporary_directory directory;
    auto description = example_description();
    description.metadata.tick_period = 0;
    recording_writer writer(directory / "out", description);
    writer.add(example_frame(0));
    writer.finish();
    const auto document = read_json(directory / "out/group-1-item-1.sigmf-meta");
    expect_valid_sigmf(document);
    EXPECT_FALSE(document["global"].contains("core:sample_rate"));
    EXPECT_FALSE(document["global"].contains("vantor:frame_rate"));
    EXPECT_FALSE(document["global"].contains("vantor:measured_frame_rate"));
}

TEST(recording_writer, gives_the_nominal_rate_also_where_frames_are_missing)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    writer.add(example_frame(0));
    writer.add(frame_after_missing(100, 99));
    writer.finish();
    const auto document = read_json(directory / "out/group-1-item-1.sigmf-meta");
    EXPECT_DOUBLE_EQ(document["global"]["vantor:frame_rate"], 50.0);
    EXPECT_DOUBLE_EQ(document["global"]["core:sample_rate"], 50.0 * 40);
    EXPECT_DOUBLE_EQ(document["global"]["vantor:measured_frame_rate"], 0.5);
    EXPECT_EQ(document["captures"][0]["vantor:frames_missing"], 0);
    EXPECT_EQ(document["captures"][1]["vantor:frames_missing"], 99);
}

TEST(recording_writer, gives_the_measured_rate_of_frames_that_are_not_paced)
{
    const test::temporary_directory directory;
    auto description = example_description();
    description.metadata.tick_period = 0;
    recording_writer writer(directory / "out", description);
    writer.add(example_frame(0));
    writer.add(example_frame(1));
    writer.finish();
    const auto global = read_json(directory / "out/group-1-item-1.sigmf-meta")["global"];
    EXPECT_FALSE(global.contains("vantor:frame_rate"));
    EXPECT_DOUBLE_EQ(global["vantor:measured_frame_rate"], 50.0);
    EXPECT_DOUBLE_EQ(global["core:sample_rate"], 50.0 * 40);
}

TEST(recording_writer, records_a_session_without_items)
{
    const test::temporary_directory directory;
    auto description = example_description();
    description.configuration = json::object();
    description.metadata.items.clear();
    recording_writer writer(directory / "out", description);
    writer.finish();
    EXPECT_TRUE(read_json(directory / "out/session.sigmf-collection")["collection"]["core:streams"].empty());
}

TEST(recording_writer, never_overwrites)
{
    const test::temporary_directory directory;
    const recording_writer writer(directory / "out", example_description());
    EXPECT_THAT([&] { recording_writer(directory / "out", example_description()); },
                testing::ThrowsMessage<recording_error>(HasSubstr("not empty")));
    const auto file = directory.write("file", "text");
    EXPECT_THROW(recording_writer(file, example_description()), recording_error);
    EXPECT_EQ(read_file(file), "text");
}

TEST(recording_writer, refuses_a_session_that_does_not_fit_its_configuration)
{
    const test::temporary_directory directory;
    auto description = example_description();
    description.configuration["groups"].erase(1);
    EXPECT_THROW(recording_writer(directory / "out", description), protocol_error);
}

TEST(recording_writer, creates_no_directory_when_libcrypto_fails)
{
    const test::temporary_directory directory;
    {
        const test::libcrypto_without_algorithms none;
        EXPECT_THROW(recording_writer(directory / "parent/out", example_description()), recording_error);
    }
    EXPECT_FALSE(std::filesystem::exists(directory / "parent"));
}

TEST(recording_writer, ends_with_a_complete_frame_when_the_disk_is_full)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    const auto received = example_frame(0);
    {
        // Ten frames of the first item and a part of the eleventh.
        const test::file_size_limit limit(1650);
        EXPECT_THROW(
            {
                for (int i = 0; i < 20; ++i)
                {
                    writer.add(received);
                }
            },
            recording_error);
    }
    writer.finish();
    EXPECT_EQ(writer.frames(), 10U);
    EXPECT_EQ(read_file(directory / "out/group-1-item-1.sigmf-data").size(), 10U * 160U);
    EXPECT_EQ(read_file(directory / "out/group-1-item-2.sigmf-data").size(), 10U * 100U);
    const auto document = read_json(directory / "out/group-1-item-1.sigmf-meta");
    EXPECT_EQ(document["global"]["vantor:frames"], 10);
    EXPECT_EQ(document["global"]["core:sha512"],
              sha512_of(read_file(directory / "out/group-1-item-1.sigmf-data")));
}

/** The number of write calls of this thread so far. */
uint64_t write_calls()
{
    std::ifstream counts("/proc/thread-self/io");
    std::string name;
    uint64_t value = 0;
    while (counts >> name >> value && name != "syscw:")
    {
    }
    return value;
}

TEST(recording_writer, writes_short_frames_in_blocks)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    const example_frames frames(0, 2 * test::example_block_frames + 1);
    const auto before = write_calls();
    writer.add(frames.arrived());
    // Samples and rows of three items, in three blocks.
    EXPECT_EQ(write_calls() - before, 3U * 3U * 2U);
    EXPECT_EQ(writer.frames(), frames.arrived().size());
}

TEST(recording_writer, writes_the_same_in_blocks_as_frame_by_frame)
{
    const test::temporary_directory directory;
    const example_frames frames(0, 2 * test::example_block_frames + 1);
    recording_writer together(directory / "together", example_description());
    together.add(frames.arrived());
    together.finish();
    recording_writer alone(directory / "alone", example_description());
    for (const auto &added : frames.arrived())
    {
        alone.add(*added.what, added.arrival);
    }
    alone.finish();
    for (const auto &entry : std::filesystem::directory_iterator(directory / "alone"))
    {
        const auto name = entry.path().filename();
        // Documents contain when the recording was begun.
        if (name.extension() == ".sigmf-data" || name.extension() == ".csv")
        {
            EXPECT_EQ(read_file(entry.path()), read_file(directory / "together" / name)) << name;
        }
    }
    EXPECT_THAT(check_recording(directory / "together").faults, testing::IsEmpty());
}

TEST(recording_writer, announces_blocks_until_it_is_finished)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    const auto meta = directory / "out/group-2-item-1.sigmf-meta";
    EXPECT_EQ(read_json(meta)["global"]["vantor:frames_per_block"], test::example_block_frames);
    writer.add(example_frame(0));
    writer.finish();
    EXPECT_FALSE(read_json(meta)["global"].contains("vantor:frames_per_block"));
}

TEST(recording_writer, keeps_the_frames_of_a_block_that_fit_on_the_disk)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    const example_frames frames(0, 20);
    {
        // Ten frames of the first item and a part of the eleventh.
        const test::file_size_limit limit(1650);
        EXPECT_THROW(writer.add(frames.arrived()), recording_error);
    }
    writer.finish();
    EXPECT_EQ(writer.frames(), 10U);
    EXPECT_THAT(check_recording(directory / "out").faults, testing::IsEmpty());
    EXPECT_EQ(check_recording(directory / "out").frames, 10U);
}

TEST(recording_writer, writes_the_documents_after_the_first_frame_behind_a_break)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    writer.add(example_frames(0, 5).arrived());
    writer.begin_segment(
        {.number = 1, .reason = "connected again", .gap = 2.5, .calibration_temperatures = {20, 21, 22}});
    writer.add(example_frames(7, 5).arrived());
    const auto document = read_json(directory / "out/group-1-item-1.sigmf-meta");
    ASSERT_EQ(document["captures"].size(), 2U);
    EXPECT_EQ(document["captures"][1]["core:sample_start"], 5 * 40);
    EXPECT_EQ(writer.frames(), 10U);
}

/** Writes a recording and changes its directory before the end; expects a failure with this text. */
void expect_failure_after(const std::function<void(const std::filesystem::path &)> &change,
                          const std::string &text)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    writer.add(example_frame(0));
    writer.add(example_frame(1));
    change(directory / "out");
    EXPECT_THAT([&] { writer.finish(); }, testing::ThrowsMessage<recording_error>(testing::HasSubstr(text)));
}

TEST(recording_writer, does_not_finish_in_the_directory_of_another_recording)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    writer.add(example_frame(0));
    std::filesystem::rename(directory / "out", directory / "old");
    test::write_example_recording(directory / "out", 5);
    const auto meta = read_file(directory / "out/group-1-item-1.sigmf-meta");
    EXPECT_THAT([&] { writer.finish(); },
                testing::ThrowsMessage<recording_error>(testing::HasSubstr(
                    "was moved or replaced during the recording. All frames (1) are where it was moved to")));
    EXPECT_EQ(read_file(directory / "out/group-1-item-1.sigmf-meta"), meta);
}

TEST(recording_writer, reports_files_that_were_removed)
{
    const std::string reason = " was removed during the recording, with its part of all frames (2).";
    for (const std::string name : {"group-1-item-2.sigmf-data", "group-2-item-1.frames.csv"})
    {
        expect_failure_after([&](const std::filesystem::path &path) { std::filesystem::remove(path / name); },
                             name + reason);
    }
    expect_failure_after([](const std::filesystem::path &path) { std::filesystem::remove_all(path); },
                         "group-1-item-1.sigmf-data" + reason);
}

TEST(recording_writer, reports_a_removed_file_when_it_waits_for_the_disk)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", example_description());
    writer.add(example_frame(0));
    std::filesystem::rename(directory / "out", directory / "old");
    writer.sync();
    std::filesystem::remove(directory / "old/group-1-item-2.sigmf-data");
    EXPECT_THROW(writer.sync(), recording_error);
}

TEST(recording_writer, does_not_record_through_a_link_in_a_recording)
{
    const test::temporary_directory directory;
    test::write_example_recording(directory / "out", 1);
    std::filesystem::create_directory(directory / "elsewhere");
    std::filesystem::create_directory_symlink(directory / "elsewhere", directory / "out/link");
    EXPECT_THROW(recording_writer(directory / "out/link", example_description()), recording_error);
    EXPECT_TRUE(std::filesystem::is_empty(directory / "elsewhere"));
}

TEST(item_document, can_be_read_with_the_most_captures)
{
    const segment long_break{.number = 1,
                             .reason = "calibrated again",
                             .gap = 12345.678901234567,
                             .calibration_temperatures = {-25, -25, -25}};
    std::vector<capture> captures;
    for (uint64_t number = 0; number < most_captures_with_breaks; ++number)
    {
        captures.push_back({.first_frame = 1'000'000'000 + number,
                            .frames_missing = 1'000'000'000 + number,
                            .datetime = "2026-11-22T17:40:17.123Z",
                            .begins = long_break});
    }
    const auto document =
        item_document(example_description(), 0, {.digest = {}, .table_digest = {}}, captures);
    const auto text = document.dump(2);
    EXPECT_LT(text.size(), most_document_bytes / 2);
    EXPECT_NO_THROW(parse_json_text(text, "document"));
}

} // namespace
} // namespace vantor
