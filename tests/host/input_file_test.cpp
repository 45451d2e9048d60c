/** @file
 * Tests of reading files that are not what they seem.
 */
#include "recording/input_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "example_recording.h"
#include "temporary_directory.h"
#include "vantor/recording_error.h"
#include "vantor/recording_reader.h"

namespace vantor
{
namespace
{

using testing::HasSubstr;
using testing::ThrowsMessage;

/** The kinds of files of a recording. */
constexpr std::array recording_files{"session.sigmf-collection", "group-1-item-2.sigmf-meta",
                                     "group-1-item-2.sigmf-data", "group-1-item-2.frames.csv"};

/** A recording of three frames in which each test replaces a file. */
class odd_file : public testing::TestWithParam<const char *>
{
protected:
    odd_file()
    {
        test::write_example_recording(place_ / "out", 3);
        std::filesystem::rename(file_, place_ / "original");
    }

    /** Expects that the recording is refused, with this reason. */
    void expect_refused(const char *reason) const
    {
        EXPECT_THAT([&] { recording_reader(place_ / "out"); },
                    ThrowsMessage<bad_recording>(HasSubstr(file_.string() + reason)));
    }

    const test::temporary_directory place_;
    const std::filesystem::path file_ = place_ / "out" / GetParam();
};

TEST_P(odd_file, is_refused_if_it_is_an_endless_device)
{
    std::filesystem::create_symlink("/dev/zero", file_);
    expect_refused(": it is not a regular file.");
}

TEST_P(odd_file, is_refused_if_it_is_a_named_pipe)
{
    ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
    expect_refused(": it is not a regular file.");
}

TEST_P(odd_file, is_refused_if_it_is_a_directory)
{
    std::filesystem::create_directory(file_);
    expect_refused(": it is not a regular file.");
}

TEST_P(odd_file, is_used_if_it_is_a_link_to_a_regular_file)
{
    std::filesystem::create_symlink(place_ / "original", file_);
    EXPECT_EQ(recording_reader(place_ / "out").frames(), 3U);
}

INSTANTIATE_TEST_SUITE_P(files, odd_file, testing::ValuesIn(recording_files));

TEST(input_file, of_a_document_has_at_most_16_megabytes)
{
    const test::temporary_directory directory;
    const auto file = directory.write("document", "{}");
    std::filesystem::resize_file(file, size_t{16} << 20U);
    EXPECT_EQ(read_document_text(file).size(), size_t{16} << 20U);
    std::filesystem::resize_file(file, (size_t{16} << 20U) + 1);
    EXPECT_THAT([&] { read_document_text(file); },
                ThrowsMessage<bad_recording>(HasSubstr("it has more than 16 MB")));
}

TEST(line_reader, returns_the_lines_and_their_length)
{
    const test::temporary_directory directory;
    std::string text;
    for (int i = 0; i < 40'000; ++i)
    {
        text += std::to_string(i) + "\n";
    }
    line_reader lines(directory.write("text", text + "incomplete"));
    for (int i = 0; i < 40'000; ++i)
    {
        ASSERT_EQ(lines.next(), std::to_string(i));
    }
    EXPECT_EQ(lines.position(), text.size());
    EXPECT_EQ(lines.next(), std::nullopt);
    EXPECT_EQ(lines.next(), std::nullopt);
    EXPECT_EQ(lines.position(), text.size());
}

TEST(line_reader, refuses_an_endless_line)
{
    const test::temporary_directory directory;
    const auto file = directory.write("text", "");
    // A file with a hole: it takes no space on the disk.
    std::filesystem::resize_file(file, uint64_t{1} << 40U);
    line_reader lines(file);
    EXPECT_THAT([&] { lines.next(); }, ThrowsMessage<bad_recording>(HasSubstr("more than 4096 bytes")));
}

TEST(line_reader, passes_a_line_that_is_too_long)
{
    const test::temporary_directory directory;
    const std::string long_line(1'000'000, 'x');
    const auto text = long_line + "\nsecond\n" + long_line + "\n\n" + long_line;
    line_reader lines(directory.write("text", text));
    EXPECT_THROW(lines.next(), bad_recording);
    EXPECT_EQ(lines.next(), "second");
    EXPECT_EQ(lines.position(), long_line.size() + 8);
    EXPECT_THROW(lines.next(), bad_recording);
    EXPECT_EQ(lines.next(), "");
    EXPECT_THROW(lines.next(), bad_recording);
    EXPECT_EQ(lines.next(), std::nullopt);
    EXPECT_EQ(lines.position(), text.size());
    lines.seek(long_line.size() + 1);
    EXPECT_EQ(lines.next(), "second");
}

TEST(line_reader, asks_before_each_read)
{
    const test::temporary_directory directory;
    line_reader lines(directory.write("text", std::string(1'000'000, 'x')));
    int left = 5;
    lines.on_read([&left] {
        if (left-- == 0)
        {
            throw std::runtime_error("enough");
        }
    });
    EXPECT_THROW(lines.next(), bad_recording);
    EXPECT_THAT([&] { lines.next(); }, ThrowsMessage<std::runtime_error>("enough"));
}

} // namespace
} // namespace vantor
