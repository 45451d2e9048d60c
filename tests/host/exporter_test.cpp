/** @file
 * Tests of exporting a recording when files cannot be written.
 */
#include "export/exporter.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <complex>
#include <csignal>
#include <cstring>
#include <iterator>
#include <span>
#include <sstream>
#include <utility>

#include <gmock/gmock.h>

#include "commands/command_line.h"
#include "disk_calls.h"
#include "example_recording.h"
#include "export/missing_counter.h"
#include "file_size_limit.h"
#include "temporary_directory.h"
#include "vantor/recording_error.h"
#include "vantor/recording_writer.h"
#include "written_recordings.h"

namespace vantor
{
namespace
{

/** Number of files in a directory. */
auto count_files(const std::filesystem::path &directory)
{
    const std::filesystem::directory_iterator files(directory);
    return std::distance(begin(files), end(files));
}

/** The functions that export. */
class exporter : public testing::TestWithParam<decltype(&export_csv)>
{
protected:
    exporter()
    {
        test::write_example_recording(place_ / "recording", 10);
    }

    /** Exports the recording. */
    [[nodiscard]] std::vector<std::filesystem::path> run() const
    {
        recording_reader recording(place_ / "recording");
        return GetParam()(recording, output_, {});
    }

    const test::temporary_directory place_;
    const std::filesystem::path output_ = place_ / "output";
};

TEST_P(exporter, leaves_no_incomplete_file_when_the_disk_is_full)
{
    for (const rlim_t bytes : {0U, 10U, 500U, 2600U, 3000U})
    {
        const test::file_size_limit limit(bytes);
        EXPECT_THROW(static_cast<void>(run()), recording_error) << bytes;
        EXPECT_EQ(count_files(output_), 0) << bytes;
    }
    EXPECT_EQ(run().size(), 3U);
    EXPECT_EQ(count_files(output_), 3);
}

TEST_P(exporter, writes_no_file_when_one_exists_already)
{
    const auto last = run().back();
    std::filesystem::remove_all(output_);
    std::filesystem::create_directory(output_);
    std::filesystem::copy_file(place_ / "recording/session.sigmf-collection", last);
    EXPECT_THROW(static_cast<void>(run()), recording_error);
    EXPECT_EQ(count_files(output_), 1);
    EXPECT_EQ(test::read_file(last), test::read_file(place_ / "recording/session.sigmf-collection"));
}

TEST_P(exporter, leaves_no_file_when_one_cannot_be_put_into_place)
{
    int renames = 0;
    std::filesystem::path blocked;
    {
        const test::disk_calls *observed = nullptr;
        const test::disk_calls calls([&] {
            const auto &call = observed->list().back();
            if (call.starts_with("rename ") && ++renames == 2)
            {
                blocked = call.substr(std::string("rename ").size());
                std::filesystem::create_directory(blocked);
            }
        });
        observed = &calls;
        EXPECT_THROW(static_cast<void>(run()), recording_error);
    }
    EXPECT_TRUE(std::filesystem::is_directory(blocked));
    EXPECT_EQ(count_files(output_), 1);
}

TEST_P(exporter, leaves_no_file_if_the_check_of_the_recording_is_stopped)
{
    recording_reader recording(place_ / "recording");
    int files = 0;
    const auto stop = [&] {
        files = static_cast<int>(count_files(output_));
        throw recording_error("stopped");
    };
    EXPECT_THROW(GetParam()(recording, output_, {.complete = stop}), recording_error);
    // All items were written.
    EXPECT_EQ(files, 3);
    EXPECT_EQ(count_files(output_), 0);
}

TEST_P(exporter, does_not_write_through_a_link_in_the_recording)
{
    const auto outside = place_ / "outside";
    std::filesystem::create_directory(outside);
    std::filesystem::create_directory_symlink(outside, place_ / "recording/export");
    recording_reader recording(place_ / "recording");
    for (const char *name : {"recording/export", "recording/export/deeper"})
    {
        EXPECT_THAT(
            [&] { GetParam()(recording, place_ / name, {}); },
            testing::ThrowsMessage<recording_error>(testing::HasSubstr("is a symbolic link in a recording")));
    }
    EXPECT_EQ(count_files(outside), 0);
}

TEST_P(exporter, writes_through_a_link_elsewhere)
{
    std::filesystem::create_directory(place_ / "disk");
    std::filesystem::create_directory_symlink(place_ / "disk", output_);
    EXPECT_EQ(run().size(), 3U);
    EXPECT_EQ(count_files(place_ / "disk"), 3);
}

TEST_P(exporter, replaces_no_link_that_leads_nowhere)
{
    const auto last = run().back();
    std::filesystem::remove_all(output_);
    std::filesystem::create_directory(output_);
    std::filesystem::create_symlink("nowhere", last);
    EXPECT_THROW(static_cast<void>(run()), recording_error);
    EXPECT_TRUE(std::filesystem::is_symlink(last));
}

TEST_P(exporter, leaves_nothing_behind_after_a_signal)
{
    const std::string format = GetParam() == export_csv ? "csv" : GetParam() == export_npy ? "npy" : "npz";
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
    {
        std::ostringstream out;
        std::ostringstream err;
        // At the end of the first file, the others are still to be read.
        bool raised = false;
        const test::disk_calls calls([&] { std::exchange(raised, true) ? 0 : std::raise(number); });
        EXPECT_EQ(run_command_line({"export", (place_ / "recording").string(), "--format", format, "--output",
                                    output_.string()},
                                   {out, err}),
                  exit_code::interrupted);
        EXPECT_EQ(err.str(), "vantor: Interrupted; no file was written.\n");
        EXPECT_EQ(count_files(output_), 0);
    }
}

TEST(export_npy, has_every_frame_of_a_long_recording)
{
    // Far more samples than are converted at once.
    constexpr uint32_t frames = 2000;
    const test::temporary_directory directory;
    test::write_example_recording(directory / "out", frames);
    recording_reader recording(directory / "out");
    const auto text = test::read_file(export_npy(recording, directory / "arrays").at(0));
    const auto length = recording.items()[0].layout.frame_length;
    const auto head = text.size() - frames * length * sizeof(std::complex<float>);
    EXPECT_EQ(head % 64, 0U);
    std::vector<std::complex<float>> values(frames * length);
    std::memcpy(values.data(), text.data() + head, text.size() - head);
    std::vector<sample> samples;
    for (uint32_t number = 0; number < frames; ++number)
    {
        recording.read_frame(0, number, samples);
        const std::vector<std::complex<float>> expected(samples.begin(), samples.end());
        ASSERT_TRUE(std::ranges::equal(expected, std::span(values).subspan(number * length, length)))
            << number;
    }
}

TEST(export_npz, checks_for_signals_at_each_row_of_each_column)
{
    const test::temporary_directory place;
    test::write_example_recording(place / "recording", 10);
    recording_reader recording(place / "recording");
    int checks = 0;
    export_npz(recording, place / "output", {.row = [&] { ++checks; }});
    // Ten columns of three items.
    EXPECT_EQ(checks, 10 * 3 * 10);
}

/** Writes a recording of frames 0, 1, 5 and 6: three are missing. */
void write_gap(const std::filesystem::path &directory, bool finished)
{
    recording_writer writer(directory, test::example_description());
    for (const uint32_t number : {0U, 1U, 5U, 6U})
    {
        auto received = test::example_frame(number);
        received.set_missing(number < 5 ? 0 : 3);
        writer.add(received);
    }
    if (finished)
    {
        writer.finish();
    }
}

TEST(export_csv, numbers_the_missing_frames)
{
    for (const bool finished : {true, false})
    {
        const test::temporary_directory place;
        write_gap(place / "recording", finished);
        recording_reader recording(place / "recording");
        export_csv(recording, place / "output");
        const auto text = test::read_file(place / "output/group-1-item-1.csv");
        EXPECT_THAT(text, testing::StartsWith(
                              "frame,sweep,point,distance_m,real,imag,time_s,missing,utc_s,utc_bound_s\n"));
        EXPECT_THAT(text, testing::ContainsRegex("\n1,0,0,0.25,[-0-9]+,[-0-9]+,0.02,0,,\n"));
        EXPECT_THAT(text, testing::ContainsRegex("\n2,0,0,0.25,[-0-9]+,[-0-9]+,0.1,3,,\n"));
        EXPECT_THAT(text, testing::ContainsRegex("\n3,0,0,0.25,[-0-9]+,[-0-9]+,0.12,3,,\n"));
    }
}

TEST(export_npz, has_an_array_of_the_numbers_of_missing_frames)
{
    const test::temporary_directory place;
    write_gap(place / "recording", true);
    recording_reader recording(place / "recording");
    export_npz(recording, place / "output");
    const auto archive = test::read_file(place / "output/group-1-item-2.npz");
    const auto name = archive.find("missing.npy");
    const auto data = archive.find('\n', name) + 1;
    const std::string three("\3\0\0\0\0\0\0\0", 8);
    EXPECT_EQ(archive.substr(data, 32), std::string(16, '\0') + three + three);
}

TEST(export_npz, has_arrays_of_the_times_in_utc)
{
    const test::temporary_directory place;
    recording_writer writer(place / "recording", test::example_description());
    writer.add(test::example_frame(0));
    writer.add(test::example_frame_at(1, {.moment = std::chrono::sys_time<std::chrono::microseconds>(
                                              std::chrono::microseconds(1795455600123457)),
                                          .bound = std::chrono::milliseconds(3)}));
    writer.finish();
    recording_reader recording(place / "recording");
    export_npz(recording, place / "output");
    const auto archive = test::read_file(place / "output/group-1-item-1.npz");
    for (const auto &[name, second] : {std::pair("utc_s.npy", 1795455600.123457), {"utc_bound_s.npy", 0.003}})
    {
        const auto data = archive.find('\n', archive.find(name)) + 1;
        std::array<double, 2> values{};
        std::memcpy(values.data(), archive.data() + data, sizeof(values));
        EXPECT_TRUE(std::isnan(values[0])) << name;
        EXPECT_EQ(values[1], second) << name;
    }
}

TEST(missing_counter, goes_on_after_the_last_listed_gap)
{
    const test::temporary_directory place;
    test::write_many_gaps(place / "recording");
    const recording_reader recording(place / "recording");
    missing_counter missing(recording);
    auto table = recording.open_table(0);
    for (uint64_t number = 0; number < test::frames_between_gaps; ++number)
    {
        ASSERT_EQ(missing.next(table.next().value()), number);
    }
}

INSTANTIATE_TEST_SUITE_P(formats, exporter, testing::Values(export_csv, export_npy, export_npz));

} // namespace
} // namespace vantor
