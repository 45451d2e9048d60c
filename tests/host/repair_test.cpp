/** @file
 * Tests of repairing recordings: every file cut at every byte.
 */
#include "recording/repair.h"

#include <fstream>

#include <gmock/gmock.h>

#include "disk_calls.h"
#include "file_size_limit.h"
#include "recording/item_writer.h"
#include "recording/output_file.h"
#include "recording_files.h"
#include "vantor/recording_error.h"
#include "vantor/recording_reader.h"

namespace vantor
{
namespace
{

using test::recording_files;
using testing::HasSubstr;
using testing::ThrowsMessage;

/** The files of a directory with their content. */
std::map<std::string, std::string> read_all(const std::filesystem::path &directory)
{
    std::map<std::string, std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(directory))
    {
        files[entry.path().filename().string()] = test::read_file(entry.path());
    }
    return files;
}

/** Whether a repaired recording is complete and has the first samples and rows of the original one. */
testing::AssertionResult is_whole(const recording_files &files, uint64_t frames)
{
    const auto check = check_recording(files.path);
    if (!check.finished || !check.faults.empty() || check.frames != frames)
    {
        return testing::AssertionFailure()
               << check.frames << " frames; " << testing::PrintToString(check.faults);
    }
    for (const auto &item : check.documents.items)
    {
        for (const char *extension : {".sigmf-data", ".frames.csv"})
        {
            const auto content = test::read_file(files.path / (item.name + extension));
            if (!files.original.at(item.name + extension).starts_with(content))
            {
                return testing::AssertionFailure() << item.name << extension << " has changed";
            }
        }
    }
    return testing::AssertionSuccess();
}

/** Cuts each file of a recording at many bytes, in the campaign at each, and expects that each frame that is
 * whole survives a repair.
 */
void cut_everywhere(const recording_files &files)
{
    for (const auto &[name, content] : files.original)
    {
        for (const auto length : files.cuts(name, 251))
        {
            files.restore();
            files.write(name, content.substr(0, length));
            const auto frames = files.frames_left(name, length);
            if (frames == 0)
            {
                // Both frames are whole in the other files.
                ASSERT_THROW(repair_recording(files.path), damaged_recording) << name << length;
                ASSERT_EQ(test::read_file(files.path / name), content.substr(0, length)) << name << length;
                continue;
            }
            ASSERT_EQ(repair_recording(files.path).frames, frames) << name << length;
            ASSERT_TRUE(is_whole(files, frames)) << name << length;
        }
    }
}

TEST(repair, keeps_each_whole_frame_of_each_file_cut_at_each_byte)
{
    cut_everywhere(recording_files(true));
}

TEST(repair, keeps_each_whole_frame_of_a_killed_program_of_each_file_cut_at_each_byte)
{
    cut_everywhere(recording_files(false));
}

TEST(repair, completes_the_recording_of_a_killed_program)
{
    const recording_files files(false);
    const auto result = repair_recording(files.path);
    EXPECT_TRUE(result.changed);
    EXPECT_EQ(result.removed.samples, 0U);
    EXPECT_TRUE(is_whole(files, recording_files::frames));
    const auto meta = nlohmann::json::parse(test::read_file(files.path / "group-1-item-1.sigmf-meta"));
    EXPECT_EQ(meta["global"]["vantor:frames"], 2);
    EXPECT_EQ(meta["global"]["vantor:frame_rate"], 50.0);
    EXPECT_EQ(meta["global"]["core:sample_rate"], 2000.0);
    EXPECT_EQ(nlohmann::json::parse(
                  test::read_file(files.path / "session.sigmf-collection"))["collection"]["vantor:repaired"],
              true);
}

TEST(repair, leaves_a_complete_recording_as_it_is)
{
    const recording_files files(true);
    const test::disk_calls calls;
    EXPECT_FALSE(repair_recording(files.path).changed);
    EXPECT_THAT(calls.list(), testing::IsEmpty());
}

TEST(repair, restores_each_document_from_the_others)
{
    const recording_files files(true);
    for (const auto &[name, content] : files.original)
    {
        if (name.ends_with(".sigmf-meta") || name.ends_with("collection"))
        {
            std::filesystem::remove(files.path / name);
            repair_recording(files.path);
            auto restored = nlohmann::json::parse(test::read_file(files.path / name));
            auto original = nlohmann::json::parse(content);
            for (auto *const document : {&restored, &original})
            {
                if (document->contains("collection"))
                {
                    (*document)["collection"].erase("vantor:repaired");
                    (*document)["collection"].erase("core:streams");
                }
            }
            EXPECT_EQ(restored, original) << name;
            files.restore();
        }
    }
}

TEST(repair, keeps_the_losses_before_the_frames_that_are_left)
{
    const test::temporary_directory directory;
    {
        recording_writer writer(directory / "out", test::example_description());
        for (uint32_t number = 0; number < 6; ++number)
        {
            auto received = test::example_frame(number);
            received.set_missing(number < 2 ? 0 : number < 4 ? 4 : 8);
            writer.add(received);
        }
        writer.finish();
    }
    std::filesystem::resize_file(directory / "out/group-1-item-2.sigmf-data", 3 * 100);
    std::filesystem::remove(directory / "out/group-2-item-1.sigmf-meta");
    EXPECT_EQ(repair_recording(directory / "out", frame_loss::accepted).frames, 3U);
    const recording_reader repaired(directory / "out");
    for (const auto &item : repaired.items())
    {
        ASSERT_EQ(item.document["captures"].size(), 2U) << item.name;
        EXPECT_EQ(item.document["captures"][1]["core:sample_start"], 2 * item.layout.frame_length);
        EXPECT_EQ(item.document["captures"][1]["core:global_index"], 6 * item.layout.frame_length);
    }
}

/** Writes a recording with gaps and a break, as a program leaves it that is killed. */
void write_killed_recording(const std::filesystem::path &directory)
{
    recording_writer writer(directory, test::example_description());
    writer.add(test::example_frame(0));
    auto late = test::example_frame(5);
    late.set_missing(4);
    writer.add(late);
    writer.begin_segment(
        {.number = 1, .reason = "connected again", .gap = 2.5, .calibration_temperatures = {20, 21, 22}});
    // The ticks of another server.
    for (const uint32_t number : {1U, 3U})
    {
        auto received = test::example_frame(number);
        received.set_missing(number == 1 ? 4 : 5);
        writer.add(received);
    }
}

TEST(repair, finds_the_gaps_and_breaks_of_a_killed_program)
{
    const test::temporary_directory directory;
    write_killed_recording(directory / "out");
    EXPECT_EQ(check_recording(directory / "out").missing, 5U);
    EXPECT_EQ(repair_recording(directory / "out").frames, 4U);
    const auto meta = nlohmann::json::parse(test::read_file(directory / "out/group-1-item-2.sigmf-meta"));
    EXPECT_EQ(meta["global"]["vantor:frames_missing"], 5);
    const auto &captures = meta["captures"];
    ASSERT_EQ(captures.size(), 4U);
    EXPECT_EQ(captures[1]["vantor:frames_missing"], 4);
    EXPECT_EQ(captures[2]["vantor:break"], "connected again");
    EXPECT_EQ(captures[2]["vantor:break_s"], 2.5);
    EXPECT_EQ(captures[2]["vantor:calibration_temperature"], 21);
    EXPECT_EQ(captures[2]["vantor:frames_missing"], 0);
    EXPECT_EQ(captures[3]["vantor:frames_missing"], 1);
}

TEST(repair, restores_the_break_in_lost_metadata)
{
    const test::temporary_directory directory;
    write_killed_recording(directory / "out");
    repair_recording(directory / "out");
    const auto path = directory / "out/group-1-item-2.sigmf-meta";
    const auto before = nlohmann::json::parse(test::read_file(path));
    std::filesystem::remove(path);
    repair_recording(directory / "out");
    const auto after = nlohmann::json::parse(test::read_file(path));
    EXPECT_EQ(after["captures"].size(), before["captures"].size());
    EXPECT_EQ(after["captures"][2]["vantor:break"], "connected again");
}

/** Expects that a recording is refused for this reason, and is not changed. */
void expect_refused(const recording_files &files, const char *reason)
{
    std::map<std::string, std::string> before;
    for (const auto &[name, content] : files.original)
    {
        before[name] = test::read_file(files.path / name);
    }
    EXPECT_THAT([&] { repair_recording(files.path); }, ThrowsMessage<damaged_recording>(HasSubstr(reason)));
    for (const auto &[name, content] : before)
    {
        EXPECT_EQ(test::read_file(files.path / name), content) << name;
    }
    files.restore();
}

/** A complete recording of 20 frames of three items. */
class repair_of_20_frames : public testing::Test
{
protected:
    repair_of_20_frames()
    {
        test::write_example_recording(path, 20);
    }

    /** Expects that nothing is repaired without permission, and that the message has this text. */
    void expect_refused(const std::string &reason) const
    {
        const auto before = read_all(path);
        EXPECT_THAT([&] { repair_recording(path); }, ThrowsMessage<damaged_recording>(HasSubstr(reason)));
        EXPECT_EQ(read_all(path), before);
    }

    const test::temporary_directory directory;
    const std::filesystem::path path = directory / "out";
};

TEST_F(repair_of_20_frames, never_removes_all_of_them)
{
    std::filesystem::resize_file(path / "group-1-item-2.sigmf-data", 0);
    expect_refused("no frame would be left. group-1-item-2.sigmf-data lacks 2000 bytes");
    EXPECT_THROW(repair_recording(path, frame_loss::accepted), damaged_recording);
}

TEST_F(repair_of_20_frames, removes_frames_that_other_items_have_only_with_permission)
{
    std::filesystem::resize_file(path / "group-1-item-2.sigmf-data", 550);
    expect_refused("15 frames whose samples are complete in another file would be removed, and 5 would be "
                   "left. group-1-item-2.sigmf-data lacks 1450 bytes");
    const auto result = repair_recording(path, frame_loss::accepted);
    EXPECT_EQ(result.frames, 5U);
    EXPECT_EQ(result.dropped, 15U);
    EXPECT_THAT(check_recording(path).faults, testing::IsEmpty());
}

TEST_F(repair_of_20_frames, removes_frames_after_a_bad_row_only_with_permission)
{
    const auto table = path / "group-2-item-1.frames.csv";
    auto rows = test::read_file(table);
    rows[rows.find("\n7,") + 3] = 'x';
    std::ofstream(table, std::ios::binary) << rows;
    expect_refused(
        "13 frames whose samples are complete in another file would be removed, and 7 would be left");
    EXPECT_EQ(repair_recording(path, frame_loss::accepted).dropped, 13U);
}

TEST_F(repair_of_20_frames, removes_the_last_frame_if_a_part_of_it_is_missing)
{
    std::filesystem::resize_file(path / "group-1-item-2.sigmf-data", 1999);
    const auto result = repair_recording(path);
    EXPECT_EQ(result.frames, 19U);
    EXPECT_EQ(result.dropped, 1U);
}

TEST_F(repair_of_20_frames, removes_what_is_after_the_last_frame)
{
    std::filesystem::resize_file(path / "group-1-item-2.sigmf-data", 2500);
    const auto result = repair_recording(path);
    EXPECT_EQ(result.frames, 20U);
    EXPECT_EQ(result.dropped, 0U);
}

/** A recording of 100 frames whose program was killed. */
class repair_of_100_unfinished_frames : public testing::Test
{
protected:
    repair_of_100_unfinished_frames()
    {
        recording_writer(path, test::example_description()).add(test::example_frames(0, 100).arrived());
    }

    const test::temporary_directory directory;
    const std::filesystem::path path = directory / "out";
};

TEST_F(repair_of_100_unfinished_frames, removes_the_last_block_if_an_item_lacks_it)
{
    std::filesystem::resize_file(path / "group-2-item-1.sigmf-data",
                                 (100 - test::example_block_frames) * 120);
    EXPECT_THAT(check_recording(path).faults, testing::IsEmpty());
    const auto result = repair_recording(path);
    EXPECT_EQ(result.frames, 100U - test::example_block_frames);
    EXPECT_EQ(result.dropped, test::example_block_frames);
    EXPECT_THAT(check_recording(path).faults, testing::IsEmpty());
}

TEST_F(repair_of_100_unfinished_frames, removes_more_than_a_block_only_with_permission)
{
    std::filesystem::resize_file(path / "group-2-item-1.sigmf-data",
                                 (100 - test::example_block_frames) * 120 - 1);
    EXPECT_THAT(check_recording(path).faults,
                testing::ElementsAre("group-2-item-1.sigmf-data contains 56 of 57 frames."));
    EXPECT_THAT([&] { repair_recording(path); },
                ThrowsMessage<damaged_recording>(HasSubstr("44 frames whose samples are complete")));
    EXPECT_EQ(repair_recording(path, frame_loss::accepted).frames, 56U);
}

TEST_F(repair_of_100_unfinished_frames, believes_no_impossible_block)
{
    const auto meta = path / "group-1-item-2.sigmf-meta";
    auto document = nlohmann::json::parse(test::read_file(meta));
    document["global"]["vantor:frames_per_block"] = 65;
    std::ofstream(meta) << document;
    EXPECT_THAT(check_recording(path).faults, testing::Contains(HasSubstr("group-1-item-2.sigmf-meta")));
}

TEST(repair, keeps_tables_without_utc)
{
    const test::temporary_directory directory;
    const auto path = directory / "out";
    {
        recording_writer writer(path, test::example_description());
        writer.add(test::example_frame(0));
        writer.sync();
    }
    const std::string head(frame_table_head_without_utc);
    const std::string row = "0,0,0,-3,0,0,0,,,,\n";
    for (const char *name : {"group-1-item-1", "group-1-item-2", "group-2-item-1"})
    {
        std::ofstream(path / (name + std::string(".frames.csv")), std::ios::binary) << head << row << "1,0";
    }
    EXPECT_EQ(repair_recording(path).frames, 1U);
    EXPECT_EQ(test::read_file(path / "group-1-item-1.frames.csv"), head + row);
    EXPECT_TRUE(check_recording(path).faults.empty());
    // Without frames, too.
    const auto empty = directory / "empty";
    recording_writer(empty, test::example_description()).sync();
    std::ofstream(empty / "group-1-item-2.frames.csv", std::ios::binary) << head << "0,0,";
    EXPECT_EQ(repair_recording(empty).frames, 0U);
    EXPECT_EQ(test::read_file(empty / "group-1-item-2.frames.csv"), head);
}

TEST(repair, writes_the_head_of_a_table_without_rows)
{
    const test::temporary_directory directory;
    const auto path = directory / "out";
    recording_writer(path, test::example_description()).sync();
    const auto head = test::read_file(path / "group-1-item-2.frames.csv");
    for (const size_t length : {size_t{0}, size_t{20}, head.size() - 1, head.size()})
    {
        std::ofstream(path / "group-1-item-2.frames.csv", std::ios::binary) << head.substr(0, length);
        std::ofstream(path / "group-1-item-1.frames.csv", std::ios::binary) << head << "0,0,";
        EXPECT_EQ(repair_recording(path).frames, 0U) << length;
        EXPECT_EQ(test::read_file(path / "group-1-item-2.frames.csv"), head);
        EXPECT_EQ(test::read_file(path / "group-1-item-1.frames.csv"), head);
    }
}

TEST(repair, refuses_samples_that_differ_from_those_that_were_recorded)
{
    const recording_files files(true);
    auto samples = files.original.at("group-2-item-1.sigmf-data");
    samples[0] = static_cast<char>(samples[0] ^ 1);
    files.write("group-2-item-1.sigmf-data", samples);
    expect_refused(files, "differ from those that were recorded");
}

TEST(repair, restores_a_changed_digit_of_the_collection)
{
    const recording_files files(true);
    const std::string name = "session.sigmf-collection";
    auto collection = files.original.at(name);
    collection.replace(collection.find("0.0025"), 6, "0.0035");
    files.write(name, collection);
    repair_recording(files.path);
    EXPECT_TRUE(is_whole(files, recording_files::frames));
    EXPECT_EQ(nlohmann::json::parse(test::read_file(files.path / name))["collection"]["vantor:metadata"],
              nlohmann::json::parse(files.original.at(name))["collection"]["vantor:metadata"]);
}

TEST(repair, refuses_documents_that_contradict_each_other)
{
    const recording_files files(true);
    for (const std::string name : {"session.sigmf-collection", "group-1-item-1.sigmf-meta"})
    {
        auto document = files.original.at(name);
        document.replace(document.rfind("0.0025"), 6, "0.0035");
        files.write(name, document);
    }
    files.write("group-1-item-1.sigmf-meta", files.original.at("group-1-item-1.sigmf-meta") + " ");
    expect_refused(files, "Which of them is right is unknown.");
}

TEST(repair, refuses_a_recording_that_is_still_written)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", test::example_description());
    writer.add(test::example_frame(0));
    EXPECT_THAT([&] { repair_recording(directory / "out"); },
                ThrowsMessage<damaged_recording>(HasSubstr("another program is still writing it")));
    writer.add(test::example_frame(1));
    writer.finish();
    EXPECT_EQ(recording_reader(directory / "out").frames(), 2U);
}

TEST(repair, refuses_links_before_it_changes_anything)
{
    const recording_files files(false);
    for (const auto &[name, content] : files.original)
    {
        const auto target = files.directory.write("target", content);
        std::filesystem::remove(files.path / name);
        std::filesystem::create_symlink(target, files.path / name);
        EXPECT_THAT([&] { repair_recording(files.path); },
                    ThrowsMessage<recording_error>(HasSubstr("is a symbolic link in a recording")))
            << name;
        EXPECT_EQ(test::read_file(target), content);
        std::filesystem::remove(files.path / name);
        files.restore();
    }
}

TEST(repair, refuses_links_also_if_the_collection_is_missing)
{
    for (const char *name : {"group-1-item-1.sigmf-meta", "group-1-item-2.sigmf-meta"})
    {
        const recording_files files(true);
        const auto target = files.directory.write("target", files.original.at(name));
        std::filesystem::remove(files.path / "session.sigmf-collection");
        std::filesystem::remove(files.path / name);
        std::filesystem::create_symlink(target, files.path / name);
        EXPECT_THAT([&] { repair_recording(files.path); },
                    ThrowsMessage<recording_error>(HasSubstr("is a symbolic link in a recording")))
            << name;
        EXPECT_EQ(test::read_file(target), files.original.at(name));
    }
}

TEST(repair, checks_all_files_before_it_changes_the_first)
{
    const recording_files files(true);
    const auto longer = files.original.at("group-1-item-1.sigmf-data") + "tail";
    files.write("group-1-item-1.sigmf-data", longer);
    std::filesystem::remove(files.path / "group-1-item-2.sigmf-meta");
    std::filesystem::create_directory(files.path / "group-1-item-2.sigmf-meta");
    EXPECT_THAT([&] { repair_recording(files.path); },
                ThrowsMessage<recording_error>(HasSubstr("it is not a regular file")));
    EXPECT_EQ(test::read_file(files.path / "group-1-item-1.sigmf-data"), longer);
}

TEST(repair, removes_the_temporary_files_of_killed_programs_only)
{
    const recording_files files(true);
    for (const char *name : {"group-1-item-1.sigmf-meta.1f.new", "session.sigmf-collection.7a2b.new"})
    {
        files.write(name, "part");
    }
    for (const char *name : {"group-1-item-1.sigmf-meta.new", "notes.1f.new", "picture.png.xyz.new"})
    {
        files.write(name, "of the user");
    }
    repair_recording(files.path);
    EXPECT_FALSE(std::filesystem::exists(files.path / "group-1-item-1.sigmf-meta.1f.new"));
    EXPECT_FALSE(std::filesystem::exists(files.path / "session.sigmf-collection.7a2b.new"));
    EXPECT_EQ(read_all(files.path).size(), files.original.size() + 3);
}

TEST(repair, leaves_large_metadata_readable)
{
    const recording_files files(false);
    auto meta = nlohmann::json::parse(files.original.at("group-1-item-2.sigmf-meta"));
    // 5 MB, but more than 16 MiB with indentation.
    auto values = nlohmann::json(190'000, std::string(25, 'x'));
    for (int depth = 0; depth < 30; ++depth)
    {
        values = nlohmann::json::array({std::move(values)});
    }
    meta["values"] = std::move(values);
    ASSERT_GT(meta.dump(2).size(), size_t{16} << 20U);
    files.write("group-1-item-2.sigmf-meta", meta.dump());
    repair_recording(files.path);
    EXPECT_TRUE(is_whole(files, recording_files::frames));
}

TEST(repair, changes_nothing_if_the_metadata_would_be_too_large)
{
    const recording_files files(false);
    files.write("group-1-item-1.sigmf-data", files.original.at("group-1-item-1.sigmf-data") + "tail");
    auto meta = nlohmann::json::parse(files.original.at("group-1-item-2.sigmf-meta"));
    meta["text"] = "";
    meta["text"] = std::string((size_t{16} << 20U) - meta.dump().size(), 'x');
    files.write("group-1-item-2.sigmf-meta", meta.dump());
    const auto before = read_all(files.path);
    EXPECT_THAT(
        [&] { repair_recording(files.path); },
        ThrowsMessage<damaged_recording>(HasSubstr("was not changed: group-1-item-2.sigmf-meta would be too "
                                                   "large: it would have more than 16 MB.")));
    EXPECT_EQ(read_all(files.path), before);
}

TEST(repair, can_be_repeated_after_the_disk_was_full)
{
    const recording_files files(false);
    files.write("group-1-item-1.sigmf-data", files.original.at("group-1-item-1.sigmf-data").substr(0, 170));
    {
        const test::file_size_limit limit(1000);
        EXPECT_THROW(repair_recording(files.path), recording_error);
    }
    EXPECT_EQ(repair_recording(files.path).frames, 1U);
    EXPECT_TRUE(is_whole(files, 1));
}

TEST(repair, has_the_frames_on_the_disk_before_the_documents)
{
    const recording_files files(false);
    files.write("group-1-item-1.sigmf-data", files.original.at("group-1-item-1.sigmf-data").substr(0, 170));
    const test::disk_calls calls;
    repair_recording(files.path);
    EXPECT_EQ(calls.list().front(), "sync " + (files.path / "group-1-item-1.sigmf-data").string());
    EXPECT_THAT(calls.list(),
                testing::Contains("rename " + (files.path / "session.sigmf-collection").string()));
    EXPECT_EQ(calls.list().back(), "sync " + files.path.string());
}

TEST(repair, keeps_the_number_of_breaks_that_are_not_listed)
{
    const recording_files files(false);
    const std::string name = "group-1-item-1.sigmf-meta";
    auto meta = nlohmann::json::parse(files.original.at(name));
    meta["global"]["vantor:breaks_not_listed"] = 7;
    files.write(name, meta.dump());
    EXPECT_EQ(check_recording(files.path).unlisted_breaks, 7U);
    std::filesystem::remove(files.path / "group-1-item-2.sigmf-meta");
    repair_recording(files.path);
    meta = nlohmann::json::parse(test::read_file(files.path / "group-1-item-2.sigmf-meta"));
    EXPECT_EQ(meta["global"]["vantor:breaks_not_listed"], 7);
    meta["global"]["vantor:breaks_not_listed"] = "many";
    files.write("group-1-item-2.sigmf-meta", meta.dump());
    EXPECT_FALSE(check_recording(files.path).faults.empty());
}

/** Replaces the value of a member in the metadata of an item. */
void change_member(const recording_files &files, const std::string &item, const std::string &member,
                   const std::string &from, const std::string &to)
{
    auto meta = files.original.at(item + ".sigmf-meta");
    const auto place = meta.find('"' + member + "\": " + from);
    ASSERT_NE(place, std::string::npos);
    meta.replace(place + member.size() + 4, from.size(), to);
    files.write(item + ".sigmf-meta", meta);
}

TEST(repair, restores_a_changed_digit_of_an_item)
{
    const recording_files files(true);
    for (const std::string item : {"group-1-item-1", "group-1-item-2"})
    {
        const std::string points = item == "group-1-item-1" ? "20" : "25";
        change_member(files, item, "vantor:samples_per_sweep", points, "24");
        EXPECT_THAT(
            check_recording(files.path).faults,
            testing::ElementsAre(
                item + ".sigmf-meta: vantor:samples_per_sweep differs from the description of the session.",
                item + ".sigmf-meta differs from what was recorded."));
        repair_recording(files.path);
        EXPECT_EQ(nlohmann::json::parse(test::read_file(files.path / (item + ".sigmf-meta"))),
                  nlohmann::json::parse(files.original.at(item + ".sigmf-meta")));
        files.restore();
        change_member(files, item, "vantor:base_step_length_m", "0.0025", "0.0035");
        repair_recording(files.path);
        EXPECT_EQ(nlohmann::json::parse(test::read_file(files.path / (item + ".sigmf-meta"))),
                  nlohmann::json::parse(files.original.at(item + ".sigmf-meta")));
        files.restore();
    }
}

TEST(repair, does_not_guess_which_document_is_right_without_a_second_witness)
{
    const recording_files files(true);
    change_member(files, "group-1-item-2", "vantor:samples_per_sweep", "25", "24");
    files.write("group-1-item-1.sigmf-meta", "");
    expect_refused(files, "Which of them is right is unknown.");
}

} // namespace
} // namespace vantor
