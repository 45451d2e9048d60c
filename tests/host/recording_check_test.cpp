/** @file
 * Tests of checking recordings: every file cut at every byte.
 */
#include "recording/recording_check.h"

#include <map>
#include <optional>
#include <utility>

#include <gmock/gmock.h>

#include "disk_calls.h"
#include "recording/output_file.h"
#include "recording/repair.h"
#include "recording/sha512.h"
#include "recording_files.h"
#include "vantor/errors.h"
#include "vantor/recording_error.h"
#include "written_recordings.h"

namespace vantor
{
namespace
{

using test::recording_files;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/** The last file that is written, and has no digest: it is only incomplete without its last character but
 * one. */
bool is_harmless(const std::string &name, size_t missing)
{
    return missing == 0 || (missing == 1 && name == "session.sigmf-collection");
}

TEST(recording_check, reports_a_recorder_that_was_killed_before_it_wrote_documents)
{
    const test::temporary_directory directory;
    recording_writer(directory / "out", test::example_description()).sync();
    for (const char *name : {"session.sigmf-collection", "group-1-item-1.sigmf-meta"})
    {
        std::filesystem::remove(directory / "out" / name);
    }
    EXPECT_THAT([&] { check_recording(directory / "out"); },
                testing::ThrowsMessage<bad_recording>(HasSubstr("Nothing was recorded in ")));
}

TEST(recording_check, says_why_a_place_cannot_be_read)
{
    EXPECT_THAT([] { check_recording(std::string(300, 'a')); },
                testing::ThrowsMessage<bad_recording>(HasSubstr(": File name too long.")));
}

TEST(recording_check, asks_for_patience_while_a_recording_is_created)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", test::example_description());
    for (const char *name : {"session.sigmf-collection", "group-1-item-1.sigmf-meta"})
    {
        std::filesystem::remove(directory / "out" / name);
    }
    EXPECT_THAT([&] { check_recording(directory / "out"); },
                testing::ThrowsMessage<bad_recording>(HasSubstr("is just being started: try again")));
}

TEST(recording_check, finds_no_fault_in_a_complete_recording)
{
    const recording_files files(true);
    const auto check = check_recording(files.path);
    EXPECT_THAT(check.faults, IsEmpty());
    EXPECT_TRUE(check.finished);
    EXPECT_EQ(check.frames, recording_files::frames);
    EXPECT_EQ(check.recorded, recording_files::frames);
    EXPECT_NEAR(check.items[0].level.mean_level().value(), 253.0, 1.0);
    EXPECT_EQ(check.items[0].figures.channel.valid, 2U);
    EXPECT_EQ(check.items[0].figures.channel.highest, 0.75);
    EXPECT_EQ(check.items[1].figures.channel.valid, 0U);
    EXPECT_EQ(check.items[2].figures.seconds, 0.02);
    const auto short_check = check_recording(files.path, {}, {}, check_scope::damage);
    EXPECT_EQ(short_check.items[0].left_digest, check.items[0].left_digest);
    EXPECT_EQ(short_check.items[0].level.sweeps(), 0U);
}

TEST(recording_check, can_be_stopped_while_it_reads_data_without_rows)
{
    const recording_files files(true);
    for (const auto &[name, content] : files.original)
    {
        if (name.ends_with(".frames.csv"))
        {
            files.write(name, content.substr(0, content.find('\n') + 1));
        }
    }
    constexpr uint64_t blocks = 10;
    constexpr uint64_t announced = 1000000;
    for (const auto &[name, content] : files.original)
    {
        if (name.ends_with(".sigmf-meta"))
        {
            auto document = nlohmann::json::parse(content);
            document["global"]["vantor:frames"] = announced;
            files.write(name, document.dump());
        }
        else if (name.ends_with(".sigmf-data"))
        {
            std::filesystem::resize_file(files.path / name,
                                         announced * content.size() / recording_files::frames);
        }
    }
    uint64_t asked = 0;
    const auto stop = [&] {
        if (++asked == blocks)
        {
            throw cancelled();
        }
    };
    EXPECT_THROW(check_recording(files.path, {}, stop), cancelled);
}

TEST(recording_check, reads_the_copies_if_the_collection_is_a_link_to_itself)
{
    const recording_files files(true);
    const auto collection = files.path / "session.sigmf-collection";
    std::filesystem::remove(collection);
    std::filesystem::create_symlink(collection.filename(), collection);
    const auto check = check_recording(files.path);
    EXPECT_EQ(check.frames, recording_files::frames);
    EXPECT_THAT(check.faults, ElementsAre(HasSubstr("Too many levels of symbolic links")));
}

TEST(recording_check, can_be_stopped_while_it_counts_rows)
{
    const recording_files files(true);
    unsigned asked = 0;
    const auto stop = [&] {
        ++asked;
        throw cancelled();
    };
    EXPECT_THROW(check_recording(files.path, {}, stop), cancelled);
    EXPECT_EQ(asked, 1U);
}

TEST(recording_check, is_right_about_each_file_cut_at_each_byte)
{
    const recording_files files(true);
    for (const auto &[name, content] : files.original)
    {
        for (const auto length : files.cuts(name, 101))
        {
            files.write(name, content.substr(0, length));
            const auto check = check_recording(files.path);
            ASSERT_EQ(check.faults.empty(), is_harmless(name, content.size() - length)) << name << length;
            ASSERT_EQ(check.frames, files.frames_left(name, length)) << name << length;
            ASSERT_TRUE(check.finished) << name << length;
        }
        files.restore();
    }
}

TEST(recording_check, is_right_about_each_file_of_a_killed_program_cut_at_each_byte)
{
    const recording_files files(false);
    EXPECT_THAT(check_recording(files.path).faults, IsEmpty());
    for (const auto &[name, content] : files.original)
    {
        for (const auto length : files.cuts(name, 101))
        {
            files.write(name, content.substr(0, length));
            const auto check = check_recording(files.path);
            // A killed program may have written all but a part of the last block, which can have both frames.
            const bool in_block = name.ends_with(".sigmf-data");
            ASSERT_EQ(check.faults.empty(), in_block || is_harmless(name, content.size() - length))
                << name << length;
            ASSERT_EQ(check.frames, files.frames_left(name, length)) << name << length;
            ASSERT_FALSE(check.finished) << name << length;
        }
        files.restore();
    }
}

TEST(recording_check, notices_each_changed_byte_of_samples_tables_and_metadata)
{
    const recording_files files(true);
    for (const auto &[name, content] : files.original)
    {
        if (name.ends_with("collection"))
        {
            continue;
        }
        for (const auto place : files.cuts(name, 101))
        {
            auto changed = content;
            changed[place] = static_cast<char>(changed[place] ^ 1);
            files.write(name, changed);
            ASSERT_FALSE(check_recording(files.path).faults.empty()) << name << place;
        }
        files.restore();
    }
}

/** The description of the session in a collection: the bytes from the first of its members to the last. */
std::pair<size_t, size_t> description_in(const std::string &collection)
{
    return {collection.find("\"vantor:configuration\""), collection.rfind('}', collection.rfind('}') - 1)};
}

TEST(recording_check, notices_each_changed_byte_of_the_description_of_the_session)
{
    const recording_files files(true);
    const std::string name = "session.sigmf-collection";
    const auto &content = files.original.at(name);
    const auto [begin, end] = description_in(content);
    for (const auto place : files.cuts(name, 11))
    {
        if (place < begin || place >= end || std::isspace(content[place]) != 0)
        {
            continue;
        }
        auto changed = content;
        changed[place] = static_cast<char>(changed[place] ^ 1);
        files.write(name, changed);
        ASSERT_FALSE(check_recording(files.path).faults.empty()) << place << content.substr(place, 20);
    }
}

TEST(recording_check, takes_the_session_from_its_copy_if_a_digit_of_the_collection_has_changed)
{
    const recording_files files(true);
    auto collection = files.original.at("session.sigmf-collection");
    collection.replace(collection.find("0.0025"), 6, "0.0035");
    files.write("session.sigmf-collection", collection);
    const auto check = check_recording(files.path);
    EXPECT_THAT(check.faults,
                ElementsAre("session.sigmf-collection: vantor:metadata differs from its copy in "
                            "group-1-item-1.sigmf-meta."));
    EXPECT_EQ(check.documents.items[0].layout.base_step_length_m, 0.0025);
    EXPECT_EQ(check.documents.items[0].layout.distances_m.front(), 0.25);
}

TEST(recording_check, compares_the_collection_with_every_item)
{
    const recording_files files(true);
    auto collection = files.original.at("session.sigmf-collection");
    const auto place = collection.rfind("0.0025");
    collection.replace(place, 6, "0.0035");
    files.write("session.sigmf-collection", collection);
    std::filesystem::remove(files.path / "group-1-item-1.sigmf-meta");
    EXPECT_THAT(check_recording(files.path).faults,
                testing::Contains("group-2-item-1.sigmf-meta: vantor:base_step_length_m differs from the "
                                  "description of the session."));
}

TEST(recording_check, notices_a_changed_cell_of_a_table)
{
    const recording_files files(true);
    const std::string name = "group-1-item-2.frames.csv";
    auto rows = files.original.at(name);
    const auto tick = rows.find("\n1,") + std::string("\n1,0.02,").size();
    rows[tick] = rows[tick] == '1' ? '2' : '1';
    files.write(name, rows);
    EXPECT_THAT(check_recording(files.path).faults,
                ElementsAre("The rows in group-1-item-2.frames.csv differ from those that were recorded."));
    EXPECT_THROW(repair_recording(files.path), damaged_recording);
}

TEST(recording_check, accepts_recordings_without_digests_of_the_tables)
{
    const recording_files files(true);
    auto collection = nlohmann::ordered_json::parse(files.original.at("session.sigmf-collection"));
    for (auto &entry : collection["collection"]["core:streams"])
    {
        const auto name = entry["name"].get<std::string>() + ".sigmf-meta";
        auto meta = nlohmann::ordered_json::parse(files.original.at(name));
        EXPECT_EQ(meta["global"].erase("vantor:frame_table_sha512"), 1U);
        files.write(name, meta.dump());
        entry["hash"] = sha512_of(meta.dump());
    }
    files.write("session.sigmf-collection", collection.dump());
    EXPECT_THAT(check_recording(files.path).faults, IsEmpty());
}

TEST(recording_check, says_how_much_is_missing_or_too_much)
{
    const recording_files files(true);
    const auto &samples = files.original.at("group-1-item-2.sigmf-data");
    files.write("group-1-item-2.sigmf-data", samples.substr(0, samples.size() - 30));
    EXPECT_THAT(check_recording(files.path).faults,
                ElementsAre("group-1-item-2.sigmf-data lacks 30 bytes: it contains 1 of 2 frames."));
    files.write("group-1-item-2.sigmf-data", samples + "rest");
    EXPECT_THAT(check_recording(files.path).faults,
                ElementsAre("group-1-item-2.sigmf-data has 4 bytes after the last frame."));
    files.restore();
    files.write("group-1-item-2.frames.csv", files.original.at("group-1-item-2.frames.csv") + "2,0.");
    EXPECT_THAT(check_recording(files.path).faults,
                ElementsAre("group-1-item-2.frames.csv has 4 bytes after the last row."));
}

TEST(recording_check, notices_null_bytes_after_a_document)
{
    const recording_files files(true);
    const std::string name = "session.sigmf-collection";
    std::filesystem::resize_file(files.path / name, files.original.at(name).size() + 1);
    EXPECT_THAT(check_recording(files.path).faults, ElementsAre(HasSubstr("it contains a null byte")));
}

TEST(recording_check, names_missing_files)
{
    const recording_files files(true);
    for (const auto &[name, content] : files.original)
    {
        std::filesystem::remove(files.path / name);
        const auto check = check_recording(files.path);
        EXPECT_THAT(check.faults, testing::Contains(HasSubstr(name))) << name;
        EXPECT_EQ(check.frames, files.frames_left(name, 0)) << name;
        files.restore();
    }
}

TEST(recording_check, needs_one_description_of_the_session)
{
    const recording_files files(true);
    files.write("session.sigmf-collection", "");
    files.write("group-1-item-1.sigmf-meta", "");
    EXPECT_THROW(check_recording(files.path), damaged_recording);
}

/** Copies a directory before each step in which a function replaces files: what a kill would leave. */
class kill_points
{
public:
    explicit kill_points(const std::filesystem::path &path) : path_(path)
    {
    }

    template <typename function_t> void observe(function_t work)
    {
        const test::disk_calls calls([this] {
            copies_.push_back(directory_ / std::to_string(copies_.size()));
            std::filesystem::copy(path_, copies_.back());
        });
        work();
    }

    [[nodiscard]] const std::vector<std::filesystem::path> &copies() const
    {
        return copies_;
    }

private:
    std::filesystem::path path_;
    test::temporary_directory directory_;
    std::vector<std::filesystem::path> copies_;
};

TEST(recording_check, finds_no_damage_whenever_a_program_is_killed)
{
    const test::temporary_directory directory;
    recording_writer writer(directory / "out", test::example_description());
    writer.add(test::example_frame(0));
    kill_points points(directory / "out");
    points.observe([&] {
        writer.begin_segment(
            {.number = 1, .reason = "connected again", .gap = 2.5, .calibration_temperatures = {20, 21, 22}});
        writer.add(test::example_frame(1));
        writer.finish();
    });
    // Twice three items, and the collection before and after them.
    ASSERT_GE(points.copies().size(), 2 * 5U);
    for (const auto &copy : points.copies())
    {
        EXPECT_THAT(check_recording(copy).faults, IsEmpty()) << copy;
        EXPECT_EQ(repair_recording(copy).frames, 2U) << copy;
        EXPECT_TRUE(check_recording(copy).finished) << copy;
    }
}

TEST(recording_check, finds_no_damage_whenever_a_repair_is_killed)
{
    const recording_files files(false);
    kill_points points(files.path);
    points.observe([&] { repair_recording(files.path); });
    for (const auto &copy : points.copies())
    {
        EXPECT_THAT(check_recording(copy).faults, IsEmpty()) << copy;
        EXPECT_EQ(repair_recording(copy).frames, 2U) << copy;
    }
}

TEST(recording_check, finds_no_damage_while_it_is_recorded)
{
    const recording_files files(false);
    const auto name = "group-1-item-2.frames.csv";
    std::filesystem::remove(files.path / name);
    EXPECT_FALSE(check_recording(files.path).faults.empty());
    output_file table(files.path / name);
    const auto &rows = files.original.at(name);
    table.append(rows.substr(0, rows.find('\n') + 1));
    EXPECT_THAT(check_recording(files.path).faults, testing::SizeIs(1));
    files.write("group-1-item-2.sigmf-data", "");
    std::filesystem::remove(files.path / "group-1-item-2.sigmf-data");
    const output_file data(files.path / "group-1-item-2.sigmf-data");
    const auto check = check_recording(files.path);
    EXPECT_THAT(check.faults, IsEmpty());
    EXPECT_TRUE(check.in_progress);
}

TEST(recording_check, counts_the_gaps_before_a_cut_that_are_not_listed)
{
    const test::temporary_directory directory;
    test::write_many_gaps(directory / "out");
    EXPECT_EQ(check_recording(directory / "out").missing, test::frames_between_gaps - 1U);
    const auto samples = directory / "out/group-1-item-1.sigmf-data";
    std::filesystem::resize_file(samples, std::filesystem::file_size(samples) - 1);
    EXPECT_EQ(check_recording(directory / "out").missing, test::frames_between_gaps - 2U);
}

TEST(recording_check, takes_the_number_of_gaps_that_are_not_listed_and_have_no_period)
{
    const test::temporary_directory directory;
    test::write_many_gaps(directory / "out", false);
    const auto check = check_recording(directory / "out");
    EXPECT_THAT(check.faults, testing::IsEmpty());
    EXPECT_EQ(check.missing, test::frames_between_gaps - 1U);
}

TEST(recording_check, compares_no_samples_across_gaps)
{
    // The level changes where frames are missing, at a break, and where a frame is not valid.
    const test::written_item item{
        .config = nlohmann::json::object(), .missing = {{5, 3}, {10, 3}}, .breaks = {{15, 2.0}}};
    const test::temporary_directory directory;
    test::write_item(
        directory / "out", item, 25, [](int number, size_t, size_t) { return 100.0 * (number / 5); },
        [](int number, nlohmann::json &info) { info["data_valid"] = number != 20; });
    const auto check = check_recording(directory / "out");
    EXPECT_EQ(check.items[0].level.background_of(0).noise, 0.0);
}

TEST(recording_check, compares_samples_of_frames_between_which_others_are_always_missing)
{
    std::map<int, uint64_t> missing;
    for (int number = 1; number < 20; ++number)
    {
        missing[number] = 1;
    }
    const test::temporary_directory directory;
    test::write_item(directory / "out", {.config = nlohmann::json::object(), .missing = missing}, 20,
                     [](int number, size_t, size_t) { return number % 2 == 0 ? 100.0 : 0.0; });
    const auto check = check_recording(directory / "out");
    EXPECT_GT(check.items[0].level.background_of(0).noise, 50.0);
}

TEST(recording_check, takes_a_recording_that_is_finished_meanwhile_for_finished)
{
    const test::temporary_directory directory;
    std::optional<recording_writer> writer(std::in_place, directory / "out", test::example_description());
    writer->add(test::example_frame(0));
    const test::lock_calls calls([&] {
        if (writer)
        {
            writer->add(test::example_frame(1));
            writer->finish();
            writer.reset();
        }
    });
    const auto check = check_recording(directory / "out");
    EXPECT_FALSE(writer);
    EXPECT_THAT(check.faults, IsEmpty());
    EXPECT_TRUE(check.finished);
    EXPECT_EQ(check.frames, 2U);
}

} // namespace
} // namespace vantor
