/** @file
 * Tests of exporting a recording when files cannot be written.
 */
#include "export/exporter.h"

#include <iterator>

#include <gmock/gmock.h>

#include "example_recording.h"
#include "file_size_limit.h"
#include "recording/recording_error.h"
#include "temporary_directory.h"

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
        return GetParam()(recording, output_);
    }

    const test::temporary_directory place_;
    const std::filesystem::path output_ = place_ / "output";
};

TEST_P(exporter, leaves_no_incomplete_file_when_the_disk_is_full)
{
    for (const rlim_t bytes : {0, 10, 500, 2600, 3000})
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

INSTANTIATE_TEST_SUITE_P(formats, exporter, testing::Values(export_csv, export_npy, export_npz));

} // namespace
} // namespace vantor
