/** @file
 * Tests of replacing files.
 */
#include "recording/output_file.h"

#include <csignal>
#include <iterator>

#include <gmock/gmock.h>

#include "disk_calls.h"
#include "example_recording.h"
#include "file_size_limit.h"
#include "recording/file_replacement.h"
#include "temporary_directory.h"
#include "vantor/recording_error.h"

namespace vantor::test
{
namespace
{

TEST(output_file, replaces_all_files)
{
    const temporary_directory directory;
    const auto first = directory / "first";
    const auto second = directory / "second";
    replace_files({{first, "one"}});
    replace_files({{first, "three"}, {second, "four"}});
    EXPECT_EQ(read_file(first), "three");
    EXPECT_EQ(read_file(second), "four");
}

TEST(output_file, replaces_no_file_when_one_cannot_be_written)
{
    const temporary_directory directory;
    const auto first = directory / "first";
    replace_files({{first, "old"}});
    EXPECT_THROW(replace_files({{first, "new"}, {first / "second", "new"}}), recording_error);
    EXPECT_EQ(read_file(first), "old");
    const std::filesystem::directory_iterator files(first.parent_path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST(output_file, leaves_other_files_alone)
{
    const temporary_directory directory;
    const auto other = directory.write("first.new", "of the user");
    replace_files({{directory / "first", "one"}});
    EXPECT_THROW(replace_files({{directory / "first", "new"}, {other / "second", "new"}}), recording_error);
    EXPECT_EQ(read_file(directory / "first"), "one");
    EXPECT_EQ(read_file(other), "of the user");
}

TEST(output_file, keeps_the_old_file_when_the_disk_is_full)
{
    const temporary_directory directory;
    const auto file = directory.write("file", "old");
    {
        const file_size_limit limit(10);
        EXPECT_THROW(replace_files({{file, std::string(11, 'x')}}), recording_error);
    }
    EXPECT_EQ(read_file(file), "old");
    const std::filesystem::directory_iterator files(file.parent_path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST(output_file, replaces_the_target_of_a_symbolic_link)
{
    const temporary_directory directory;
    const auto file = directory.write("file", "old");
    const auto link = directory / "link";
    std::filesystem::create_symlink("file", link);
    replace_files({{link, "new"}});
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(read_file(file), "new");
}

TEST(output_file, creates_missing_directories)
{
    const temporary_directory directory;
    const auto file = directory / "missing/one/file";
    replace_files({{file, "new"}});
    EXPECT_EQ(read_file(file), "new");
}

TEST(output_file, names_the_directory_that_cannot_be_created)
{
    const temporary_directory directory;
    const auto place = directory.write("file", "old") / "one";
    EXPECT_THAT(
        [&] {
            replace_files({{place / "file", "new"}});
        },
        testing::ThrowsMessage<recording_error>("Cannot create " + (place / "file").string() +
                                                ": the directory " + place.string() +
                                                " cannot be created: Not a directory."));
}

TEST(output_file, replaces_files_only_and_leaves_nothing_behind)
{
    const temporary_directory directory;
    const auto folder = directory / "folder";
    std::filesystem::create_directory(folder);
    EXPECT_THROW(replace_files({{folder, "new"}}), recording_error);
    const auto device = directory / "device";
    std::filesystem::create_symlink("/dev/null", device);
    EXPECT_THROW(replace_files({{device, "new"}}), recording_error);
    EXPECT_TRUE(std::filesystem::is_symlink(device));
    const std::filesystem::directory_iterator files(folder.parent_path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 2);
}

TEST(output_file, is_on_the_disk_before_it_has_its_name)
{
    const temporary_directory directory;
    const auto first = (directory / "first").string();
    const auto second = (directory / "second").string();
    const auto folder = std::filesystem::path(first).parent_path().string();
    const disk_calls calls;
    replace_files({{first, "one"}, {second, "two"}});
    EXPECT_THAT(calls.list(),
                testing::ElementsAre("sync " + first + ".new", "sync " + second + ".new", "rename " + first,
                                     "sync " + folder, "rename " + second, "sync " + folder));
}

TEST(output_file, is_written_to_the_disk_by_sync)
{
    const temporary_directory directory;
    const auto path = directory / "file";
    output_file file(path);
    file.append("text");
    const disk_calls calls;
    file.sync();
    EXPECT_THAT(calls.list(), testing::ElementsAre("sync " + path.string()));
}

TEST(output_file, delays_signals_until_no_temporary_file_is_left)
{
    const temporary_directory directory;
    static size_t files_at_signal = 0;
    static std::filesystem::path folder;
    folder = directory / "";
    static std::vector<int> arrived;
    arrived.clear();
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
    {
        std::signal(number, [](int received) {
            const std::filesystem::directory_iterator files(folder);
            files_at_signal = static_cast<size_t>(std::distance(begin(files), end(files)));
            arrived.push_back(received);
        });
        const disk_calls calls([=] { std::raise(number); });
        replace_files({{directory / "first", "one"}, {directory / "second", "two"}});
        EXPECT_EQ(files_at_signal, 2U);
        EXPECT_EQ(arrived.back(), number);
        std::signal(number, SIG_DFL);
    }
}

TEST(output_file, is_not_written_through_a_link_in_a_recording)
{
    const temporary_directory directory;
    const auto target = directory.write("target", "of the user");
    const auto recording = directory / "recording";
    write_example_recording(recording, 1);
    std::filesystem::create_directory(recording / "folder");
    std::filesystem::create_directory_symlink(directory / "", recording / "link");
    for (const char *name : {"picture.png", "folder/picture.png", "link/target"})
    {
        if (name != std::string("link/target"))
        {
            std::filesystem::create_symlink(target, recording / name);
        }
        EXPECT_THAT(
            [&] {
                replace_files({{recording / name, "new"}});
            },
            testing::ThrowsMessage<recording_error>(testing::HasSubstr("is a symbolic link in a recording")))
            << name;
    }
    EXPECT_EQ(read_file(target), "of the user");
}

TEST(output_file, is_not_written_through_a_link_in_a_recording_without_a_collection)
{
    const temporary_directory directory;
    const auto target = directory.write("target", "of the user");
    write_example_recording(directory / "recording", 1);
    std::filesystem::remove(directory / "recording/session.sigmf-collection");
    std::filesystem::create_symlink(target, directory / "recording/picture.png");
    EXPECT_THROW(replace_files({{directory / "recording/picture.png", "new"}}), recording_error);
    EXPECT_EQ(read_file(target), "of the user");
}

TEST(output_file, may_be_in_a_recording_that_a_link_leads_to)
{
    const temporary_directory directory;
    write_example_recording(directory / "recording", 1);
    std::filesystem::create_directory_symlink(directory / "recording", directory / "link");
    replace_files({{directory / "link/picture.png", "new"}});
    EXPECT_EQ(read_file(directory / "recording/picture.png"), "new");
}

TEST(shorten_file, removes_the_end_durably)
{
    const temporary_directory directory;
    const auto file = directory.write("file", "0123456789");
    const disk_calls calls;
    shorten_file(file, 4);
    EXPECT_EQ(read_file(file), "0123");
    shorten_file(file, 4);
    EXPECT_THAT(calls.list(), testing::ElementsAre("sync " + file.string()));
}

TEST(shorten_file, refuses_links_and_files_that_are_being_written)
{
    const temporary_directory directory;
    const auto file = directory.write("file", "0123456789");
    std::filesystem::create_symlink(file, directory / "link");
    EXPECT_THROW(shorten_file(directory / "link", 4), recording_error);
    EXPECT_EQ(read_file(file), "0123456789");
    output_file written(directory / "other");
    written.append("0123456789");
    EXPECT_THAT([&] { shorten_file(directory / "other", 4); },
                testing::ThrowsMessage<recording_error>(testing::HasSubstr("another program is writing it")));
    EXPECT_EQ(read_file(directory / "other"), "0123456789");
    written.close();
    shorten_file(directory / "other", 4);
    EXPECT_EQ(read_file(directory / "other"), "0123");
}

TEST(require_replaceable, changes_nothing)
{
    const test::temporary_directory directory;
    const auto file = directory.write("present", "old");
    require_replaceable(file);
    EXPECT_EQ(read_file(file), "old");
    require_replaceable(directory / "other");
    require_replaceable(directory / "missing/one/other");
    EXPECT_THROW(require_replaceable(file / "other"), recording_error);
    EXPECT_THROW(require_replaceable(directory / ""), recording_error);
    const auto entries = std::filesystem::directory_iterator(directory / "");
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST(replace_files, leaves_no_new_directory_if_it_fails)
{
    const temporary_directory directory;
    const auto file = directory / "x" / "y" / std::string(300, 'n');
    EXPECT_THROW(replace_files({{.path = file, .text = "text"}}), recording_error);
    EXPECT_FALSE(std::filesystem::exists(directory / "x"));
    EXPECT_THROW(require_replaceable(file), recording_error);
    EXPECT_FALSE(std::filesystem::exists(directory / "x"));
}

} // namespace
} // namespace vantor::test
