/** @file
 * Tests of reading complete and incomplete recordings, and of exporting them.
 */
#include "vantor/recording_reader.h"

#include <bit>
#include <cstring>
#include <fstream>
#include <limits>
#include <string_view>

#include <gmock/gmock.h>

#include "example_recording.h"
#include "export/exporter.h"
#include "recording/item_writer.h"
#include "recording_files.h"
#include "temporary_directory.h"
#include "vantor/frame_table.h"
#include "vantor/recording_error.h"
#include "vantor/recording_writer.h"
#include "written_recordings.h"

namespace vantor
{
namespace
{

using test::read_file;
using test::write_example_recording;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

/** Whether a recording can be opened; if not, the exception must be bad_recording. */
bool can_open(const std::filesystem::path &place)
{
    try
    {
        const recording_reader opened(place);
        return true;
    }
    catch (const bad_recording &)
    {
        return false;
    }
}

TEST(recording_reader, reads_what_was_written)
{
    const test::temporary_directory directory;
    write_example_recording(directory / "out", 4);
    for (const char *name : {"out", "out/session.sigmf-collection", "out/group-1-item-1.sigmf-meta"})
    {
        recording_reader recording(directory / name);
        EXPECT_EQ(recording.frames(), 4U);
        ASSERT_EQ(recording.items().size(), 3U);
        EXPECT_EQ(recording.session().server.sensor, "k330");
        EXPECT_EQ(recording.items()[1].configuration.sensor_id, 2U);
        EXPECT_DOUBLE_EQ(recording.items()[1].layout.distances_m[10], 0.5);
        std::vector<sample> samples;
        recording.read_frame(2, 3, samples);
        const auto written = test::example_frame(3);
        EXPECT_THAT(samples, testing::ElementsAreArray(written.items()[2].samples));
    }
}

TEST(recording_reader, reads_several_frames_at_once)
{
    const test::temporary_directory directory;
    write_example_recording(directory / "out", 4);
    recording_reader recording(directory / "out");
    std::vector<uint64_t> counts;
    recording.on_read([&](uint64_t count) { counts.push_back(count); });
    std::vector<sample> samples;
    recording.read_frames(2, 1, 3, samples);
    std::vector<sample> expected;
    for (const uint32_t number : {1U, 2U, 3U})
    {
        const auto written = test::example_frame(number);
        const auto part = written.items()[2].samples;
        expected.insert(expected.end(), part.begin(), part.end());
    }
    EXPECT_EQ(samples, expected);
    EXPECT_THROW(recording.read_frames(2, 3, 2, samples), bad_recording);
    EXPECT_THROW(recording.read_frames(3, 0, 1, samples), std::out_of_range);
    recording.read_frames(0, 0, 1, samples);
    EXPECT_THAT(counts, testing::ElementsAre(3, 4));
}

TEST(recording_reader, ignores_data_after_the_last_complete_frame)
{
    const test::temporary_directory directory;
    write_example_recording(directory / "out", 4);
    std::filesystem::resize_file(directory / "out/group-1-item-2.sigmf-data", 3 * 100 + 50);
    EXPECT_EQ(recording_reader(directory / "out").frames(), 3U);
}

TEST(recording_reader, refuses_what_is_not_a_recording)
{
    const test::temporary_directory directory;
    EXPECT_THAT([&] { recording_reader(directory / "missing"); },
                ThrowsMessage<bad_recording>(HasSubstr("missing does not exist")));
    write_example_recording(directory / "out", 1);
    std::filesystem::remove(directory / "out/group-2-item-1.sigmf-data");
    EXPECT_THROW(recording_reader(directory / "out"), bad_recording);
    std::ofstream(directory / "out/session.sigmf-collection") << R"({"collection": {}})";
    EXPECT_THAT([&] { recording_reader(directory / "out"); },
                ThrowsMessage<bad_recording>(HasSubstr("a member is missing")));
    std::ofstream(directory / "out/session.sigmf-collection") << "no JSON";
    EXPECT_THAT([&] { recording_reader(directory / "out"); },
                ThrowsMessage<bad_recording>(HasSubstr("not valid JSON")));
}

TEST(recording_reader, refuses_documents_that_are_nested_too_deeply)
{
    const test::temporary_directory directory;
    write_example_recording(directory / "out", 1);
    std::ofstream(directory / "out/session.sigmf-collection")
        << R"({"collection": )" << std::string(100000, '[') << std::string(100000, ']') << "}";
    EXPECT_THAT([&] { recording_reader(directory / "out"); },
                ThrowsMessage<bad_recording>(HasSubstr("more than 64 levels deep")));
}

TEST(recording_reader, refuses_an_impossible_file_name)
{
    EXPECT_THROW(recording_reader(std::string(300, 'a')), bad_recording);
}

TEST(frame_table, reports_a_missing_file)
{
    const test::temporary_directory directory;
    EXPECT_THAT([&] { frame_table(directory / "a.frames.csv"); },
                ThrowsMessage<bad_recording>(HasSubstr("a.frames.csv is missing")));
}

TEST(frame_table, refuses_impossible_times)
{
    const test::temporary_directory directory;
    for (const char *time : {"nan", "inf", "-1", "1e300"})
    {
        const auto file = directory / (std::string(time) + ".csv");
        std::ofstream(file) << frame_table_head << "0," << time << ",1,25,0,0,0,,,,,,\n";
        EXPECT_THROW(frame_table(file).next(), bad_recording) << time;
    }
}

TEST(recording_reader, refuses_impossible_breaks)
{
    const test::recording_files files(true);
    const std::string name = "group-1-item-1.sigmf-meta";
    for (const double seconds : {-1.0, 1e300})
    {
        auto meta = nlohmann::json::parse(files.original.at(name));
        meta["captures"][0]["vantor:break"] = "connected again";
        meta["captures"][0]["vantor:break_s"] = seconds;
        files.write(name, meta.dump());
        EXPECT_THROW(recording_reader(files.path), bad_recording) << seconds;
    }
}

TEST(recording_reader, refuses_numbers_beyond_their_types)
{
    const test::recording_files files(true);
    const std::string name = "group-1-item-1.sigmf-meta";
    for (const char *place : {"/captures/0/core:sample_start", "/captures/0/core:global_index",
                              "/captures/0/vantor:calibration_temperature"})
    {
        for (const nlohmann::json &value : {nlohmann::json(1e300), nlohmann::json(-1), nlohmann::json(0.5)})
        {
            auto meta = nlohmann::json::parse(files.original.at(name));
            meta[nlohmann::json::json_pointer(place)] = value;
            files.write(name, meta.dump());
            const bool allowed = value == -1 && std::string_view(place).ends_with("temperature");
            EXPECT_EQ(can_open(files.path), allowed) << place << " " << value;
        }
    }
}

TEST(recording_reader, refuses_a_protocol_version_that_is_no_whole_number)
{
    const test::recording_files files(true);
    const std::string name = "session.sigmf-collection";
    auto collection = nlohmann::json::parse(files.original.at(name));
    collection["collection"]["vantor:server"]["protocol_version"] = 1e300;
    files.write(name, collection.dump());
    EXPECT_THROW(recording_reader(files.path), bad_recording);
}

TEST(frame_table, reports_lines_that_are_missing)
{
    const test::temporary_directory directory;
    write_example_recording(directory / "out", 1);
    frame_table table(directory / "out/group-1-item-1.frames.csv");
    EXPECT_EQ(table.require().tick, 0U);
    EXPECT_THAT([&] { table.require(); },
                ThrowsMessage<bad_recording>(HasSubstr("has fewer lines than the recording has frames.")));
}

TEST(frame_table, continues_with_any_line)
{
    const test::temporary_directory directory;
    test::write_many_gaps(directory / "out");
    const auto path = directory / "out/group-1-item-1.frames.csv";
    // More than is read to find a line in a short table.
    ASSERT_GT(std::filesystem::file_size(path), 200000U);
    frame_table table(path);
    for (const uint32_t frame : {0U, 11999U, 1U, 6000U, 6001U, 5999U, 10U, 9999U, 10000U, 11998U})
    {
        table.seek(frame);
        EXPECT_EQ(table.require().tick, frame * 200) << frame;
        EXPECT_EQ(table.next().has_value(), frame < 11999) << frame;
    }
    for (uint32_t frame = 0; frame < test::frames_between_gaps; frame += 7)
    {
        table.seek(frame);
        ASSERT_EQ(table.require().tick, frame * 200) << frame;
    }
}

TEST(frame_table, has_no_line_after_the_last_one)
{
    const test::temporary_directory directory;
    test::write_many_gaps(directory / "out");
    frame_table table(directory / "out/group-1-item-1.frames.csv");
    for (const uint64_t frame : {uint64_t{12000}, uint64_t{12001}, std::numeric_limits<uint64_t>::max()})
    {
        table.seek(frame);
        EXPECT_FALSE(table.next()) << frame;
        EXPECT_THROW(table.require(), bad_recording) << frame;
    }
}

TEST(frame_table, refuses_lines_that_are_not_numbered_one_after_the_other)
{
    const test::temporary_directory directory;
    test::write_many_gaps(directory / "out");
    const auto path = directory / "out/group-1-item-1.frames.csv";
    auto text = read_file(path);
    // Frame 9000 is missing.
    const auto begin = text.find("\n9000,");
    ASSERT_NE(begin, std::string::npos);
    text.erase(begin, text.find('\n', begin + 1) - begin);
    std::ofstream(path, std::ios::binary) << text;
    frame_table table(path);
    table.seek(9000);
    EXPECT_THROW(table.next(), bad_recording);
    table.seek(8999);
    EXPECT_EQ(table.next()->tick, 8999U * 200U);
}

TEST(frame_table, reads_what_was_written)
{
    const test::temporary_directory directory;
    write_example_recording(directory / "out", 2);
    frame_table table(directory / "out/group-1-item-1.frames.csv");
    EXPECT_EQ(table.next()->tick, 0U);
    const auto second = table.next();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->tick, 20000U);
    EXPECT_DOUBLE_EQ(second->seconds, 0.02);
    EXPECT_EQ(second->temperature, -3);
    EXPECT_EQ(second->data_valid, true);
    EXPECT_EQ(second->cca_value, 0.75);
    EXPECT_EQ(second->cca_detected, false);
    EXPECT_FALSE(table.next());
    EXPECT_EQ(frame_table(directory / "out/group-1-item-2.frames.csv").next()->data_valid, std::nullopt);
}

TEST(frame_table, stops_at_an_incomplete_line_and_refuses_invalid_ones)
{
    const test::temporary_directory directory;
    const std::string head(frame_table_head);
    frame_table cut(directory.write("cut.csv", head + "0,0,0,20,0,0,0,,,,,,\n1,0.1,7"));
    EXPECT_TRUE(cut.next());
    EXPECT_FALSE(cut.next());
    EXPECT_THROW(frame_table(directory.write("other.csv", "a,b,c\n")), bad_recording);
    for (const char *line :
         {"0,0,0\n", "0,0,0,20,0,0,0,,,,\n", "0,0,0,20,0,0,0,,,,,,,\n", "0,x,0,20,0,0,0,,,,,,\n",
          "0,0,0,20,2,0,0,,,,,,\n", "0,0,0,20,0,0,0,,,,,1.000000,\n"})
    {
        frame_table bad(directory.write("bad.csv", head + line));
        EXPECT_THAT([&] { bad.next(); }, ThrowsMessage<bad_recording>(HasSubstr("line 2"))) << line;
    }
}

TEST(frame_table, reads_tables_without_utc)
{
    const test::temporary_directory directory;
    const std::string head = "frame,time_s,tick,temperature,data_saturated,frame_delayed,calibration_needed,"
                             "data_valid,cca_value,cca_detected,tx_enabled\n";
    const auto path = directory.write("a.csv", head + "0,0,7,20,0,0,0,,,,\n1,1,8,20,0,0,0,,,,1\n"
                                                      "2,2,9,20,0,0,0,,,,,1.000000,0.000001\n");
    frame_table table(path);
    EXPECT_EQ(table.head(), head);
    table.seek(1);
    EXPECT_EQ(table.require().tx_enabled, true);
    table.seek(0);
    EXPECT_FALSE(table.require().utc);
    EXPECT_EQ(table.require().tick, 8U);
    EXPECT_THROW(table.next(), bad_recording);
}

/** A time in UTC with a part of a microsecond. */
constexpr utc_time example_utc = {
    .moment = std::chrono::sys_time<std::chrono::nanoseconds>(std::chrono::nanoseconds(1795455600123456400)),
    .bound = std::chrono::microseconds(512)};

/** Records three frames, of which the second has a time in UTC. */
void record_utc(const std::filesystem::path &directory)
{
    recording_writer writer(directory, test::example_description());
    writer.add(test::example_frame(0));
    writer.add(test::example_frame_at(1, example_utc));
    writer.add(test::example_frame(2));
    writer.finish();
}

TEST(frame_table, has_the_time_in_utc)
{
    const test::temporary_directory directory;
    record_utc(directory / "out");
    EXPECT_THAT(read_file(directory / "out/group-1-item-1.frames.csv"),
                HasSubstr(",0,1,,\n1,0.02,20000,-3,0,0,0,1,0.75,0,1,1795455600.123456,0.000513\n2,"));
    frame_table table(directory / "out/group-1-item-1.frames.csv");
    EXPECT_FALSE(table.require().utc);
    const auto known = table.require().utc;
    ASSERT_TRUE(known);
    EXPECT_EQ(example_utc.moment - known->moment, std::chrono::nanoseconds(400));
    EXPECT_EQ(known->bound, std::chrono::microseconds(513));
    EXPECT_FALSE(table.require().utc);
    EXPECT_FALSE(frame_table(directory / "out/group-1-item-2.frames.csv").require().utc);
}

TEST(exporter, writes_the_time_in_utc)
{
    const test::temporary_directory directory;
    record_utc(directory / "out");
    recording_reader recording(directory / "out");
    export_csv(recording, directory / "text");
    const auto text = read_file(directory / "text/group-1-item-1.csv");
    EXPECT_THAT(text, HasSubstr("\n0,0,0,0.25,3,0,0,0,,\n"));
    EXPECT_THAT(text, HasSubstr("\n1,1,19,0.44,3,1,0.02,0,1795455600.123456,0.000513\n"));
}

TEST(exporter, writes_text)
{
    const test::temporary_directory directory;
    write_example_recording(directory / "out", 2);
    recording_reader recording(directory / "out");
    const auto files = export_csv(recording, directory / "text");
    EXPECT_EQ(files.size(), 3U);
    const auto text = read_file(directory / "text/group-1-item-1.csv");
    EXPECT_THAT(text, StartsWith("frame,sweep,point,distance_m,real,imag,time_s,missing,utc_s,utc_bound_s\n"
                                 "0,0,0,0.25,3,0,0,0,,\n0,0,1,0.26,3,0,0,0,,\n"));
    EXPECT_THAT(text, HasSubstr("\n0,1,7,0.32,3000,4000,0,0,,\n"));
    EXPECT_THAT(text, HasSubstr("\n1,1,19,0.44,3,1,0.02,0,,\n"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 2 * 40);
    EXPECT_THAT([&] { export_csv(recording, directory / "text"); },
                ThrowsMessage<recording_error>(testing::AllOf(
                    HasSubstr("group-1-item-1.csv: it exists already"), HasSubstr("--output"))));
}

TEST(exporter, writes_numpy_arrays)
{
    const test::temporary_directory directory;
    write_example_recording(directory / "out", 3);
    recording_reader recording(directory / "out");
    export_npy(recording, directory / "arrays");
    const auto file = read_file(directory / "arrays/group-1-item-1.npy");
    EXPECT_THAT(file, StartsWith(std::string("\x93NUMPY\x01\x00", 8)));
    const auto length = static_cast<unsigned char>(file[8]) + 256U * static_cast<unsigned char>(file[9]);
    EXPECT_EQ((10 + length) % 64, 0U);
    EXPECT_THAT(file.substr(10, length),
                StartsWith("{'descr': '<c8', 'fortran_order': False, 'shape': (3, 2, 20), }"));
    ASSERT_EQ(file.size(), 10 + length + 3 * 40 * 8);
    float value = 0.0F;
    std::memcpy(&value, file.data() + 10 + length + (40 + 27) * 8 + 4, sizeof(value));
    EXPECT_EQ(value, 4000.0F);
}

TEST(recording_reader, reports_how_many_frames_were_read)
{
    const test::temporary_directory directory;
    test::write_example_recording(directory / "out", 2);
    recording_reader recording(directory / "out");
    uint64_t reads = 0;
    recording.on_read([&](uint64_t count) { reads = count; });
    export_csv(recording, directory / "csv");
    EXPECT_EQ(reads, recording.frames() * recording.items().size());
}

TEST(recording_reader, opens_the_frame_table_of_each_item)
{
    const test::temporary_directory directory;
    write_example_recording(directory / "out", 2);
    const recording_reader recording(directory / "out");
    EXPECT_EQ(recording.open_table(0).next()->data_valid, true);
    EXPECT_EQ(recording.open_table(1).next()->data_valid, std::nullopt);
    EXPECT_THROW(static_cast<void>(recording.open_table(3)), std::out_of_range);
}

TEST(recording_reader, lists_the_parts_without_gaps)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", test::example_description());
    writer.add(test::example_frame(0));
    auto late = test::example_frame(4);
    late.set_missing(3);
    writer.add(late);
    writer.finish();
    const auto captures = recording_reader(directory / "out").captures();
    ASSERT_EQ(captures.size(), 2U);
    EXPECT_EQ(captures[0].first_frame, 0U);
    EXPECT_EQ(captures[1].first_frame, 1U);
    EXPECT_EQ(captures[1].frames_missing, 3U);
    EXPECT_FALSE(captures[1].begins);
}

TEST(recording_reader, does_not_use_the_current_directory_for_a_missing_one)
{
    const test::temporary_directory directory;
    test::write_example_recording(directory / "out", 1);
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(directory / "out");
    EXPECT_THROW(recording_reader("missing"), bad_recording);
    std::filesystem::current_path(before);
}

} // namespace
} // namespace vantor
