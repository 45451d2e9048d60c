/** @file
 * Tests of the document of a recording of several boards.
 */
#include "vantor/board_collection.h"

#include <cstddef>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "example_recording.h"
#include "recording/sha512.h"
#include "temporary_directory.h"
#include "vantor/recording_error.h"
#include "vantor/recording_writer.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

/** The directories that boards with these names and numbers get. */
std::vector<std::string>
directories_of(const std::vector<std::pair<std::optional<std::string>, std::optional<std::string>>> &boards)
{
    std::vector<recorded_board> named;
    for (const auto &[name, id] : boards)
    {
        named.push_back({.directory = "", .name = name, .id = id, .address = "sim:"});
    }
    name_directories(named);
    std::vector<std::string> directories;
    for (const auto &board : named)
    {
        directories.push_back(board.directory);
    }
    return directories;
}

TEST(board_directories, have_the_name_and_the_id_of_the_board)
{
    EXPECT_THAT(directories_of({{"Ceiling", "A17"}, {"Wall_2", "  x/y "}, {"floor", std::nullopt}}),
                ElementsAre("ceiling-a17", "wall-2-x-y", "floor"));
}

TEST(board_directories, are_called_board_without_letters_and_digits)
{
    EXPECT_THAT(directories_of({{std::nullopt, std::nullopt}, {"../..", "\xc3\xa4\xe6\x9f\xb1"}}),
                ElementsAre("board", "board-2"));
}

TEST(board_directories, are_numbered_if_names_repeat)
{
    EXPECT_THAT(directories_of({{"a", "1"}, {"A", "1"}, {"a-1", "2"}, {"a", "1"}}),
                ElementsAre("a-1", "a-1-2", "a-1-2-2", "a-1-3"));
}

TEST(board_directories, are_short_enough_for_every_file_system)
{
    EXPECT_THAT(directories_of({{std::string(300, 'X'), "1"}, {std::string(300, 'x'), "2"}}),
                ElementsAre(std::string(100, 'x'), std::string(100, 'x') + "-2"));
}

/** A directory for a recording of two boards. */
class board_collection_file_test : public testing::Test
{
protected:
    /** Records frames of a board, and returns its entry. */
    recorded_board record(const std::string &directory) const
    {
        const auto place = place_ / directory;
        recording_writer writer(place, example_description_);
        writer.finish();
        return {.directory = directory,
                .name = "ceiling",
                .id = std::nullopt,
                .address = "tcp:[::1]:6110",
                .streams = writer.streams()};
    }

    /** The text of a document with these members of the collection. */
    static std::string document(const json &boards, const json &streams = json::array({}))
    {
        return json{{"collection", {{"core:streams", streams}, {"vantor:boards", boards}}}}.dump();
    }

    /** A board in a document. */
    static json board(const json &directory)
    {
        return {{"directory", directory}, {"address", "sim:"}};
    }

    /** Expects that a document is refused, with this reason. */
    void expect_refused(const std::string &text, const std::string &reason) const
    {
        const auto file = place_.write(board_collection_file, text);
        EXPECT_THAT([&] { board_collection::read(file); }, ThrowsMessage<bad_recording>(HasSubstr(reason)))
            << text;
    }

    test::temporary_directory place_;
    session_description example_description_ = test::example_description();
};

TEST_F(board_collection_file_test, is_read_as_it_was_written)
{
    const auto root = place_ / ".";
    board_collection written(root, {record("one"), record("two")});
    EXPECT_TRUE(board_collection::is_at(root));
    written.write();
    EXPECT_TRUE(board_collection::is_at(root));
    EXPECT_TRUE(board_collection::is_at(root / board_collection_file));
    EXPECT_FALSE(board_collection::is_at(place_ / "one"));
    for (const auto &place : {root, root / board_collection_file})
    {
        const auto read = board_collection::read(place);
        ASSERT_EQ(read.boards().size(), 2U);
        EXPECT_EQ(read.boards()[0].directory, "one");
        EXPECT_EQ(read.boards()[0].name, "ceiling");
        EXPECT_EQ(read.boards()[0].id, std::nullopt);
        EXPECT_EQ(read.boards()[0].address, "tcp:[::1]:6110");
        EXPECT_EQ(read.boards()[1].directory, "two");
        ASSERT_EQ(read.boards()[1].streams.size(), written.boards()[1].streams.size());
        EXPECT_EQ(read.boards()[1].streams[0].name, written.boards()[1].streams[0].name);
        EXPECT_EQ(read.directory_of(1), root / "two");
        EXPECT_THAT(read.changed_documents(), IsEmpty());
    }
}

TEST_F(board_collection_file_test, lists_all_items_with_the_digests_of_their_metadata)
{
    board_collection(place_ / ".", {record("one"), record("two")}).write();
    const auto text = json::parse(test::read_file(place_ / board_collection_file));
    const auto &collection = text.at("collection");
    EXPECT_TRUE(collection.contains("core:version"));
    EXPECT_EQ(collection.at("core:extensions")[0].at("name"), "vantor");
    EXPECT_EQ(collection.at("vantor:boards")[1],
              (json{{"directory", "two"}, {"name", "ceiling"}, {"address", "tcp:[::1]:6110"}}));
    const auto &streams = collection.at("core:streams");
    ASSERT_EQ(streams.size(), 2 * example_description_.metadata.items.size());
    EXPECT_EQ(streams[0].at("name"), "one/group-1-item-1");
    for (const auto &stream : streams)
    {
        const auto meta = test::read_file(place_ / (stream.at("name").get<std::string>() + ".sigmf-meta"));
        EXPECT_EQ(stream.at("hash"), sha512_of(meta));
    }
}

TEST_F(board_collection_file_test, reports_metadata_that_are_changed_or_missing)
{
    board_collection(place_ / ".", {record("one"), record("two")}).write();
    static_cast<void>(place_.write("two/group-1-item-1.sigmf-meta", "{}"));
    std::filesystem::remove(place_ / "one/group-1-item-2.sigmf-meta");
    EXPECT_THAT(board_collection::read(place_ / ".").changed_documents(),
                ElementsAre("one/group-1-item-2.sigmf-meta", "two/group-1-item-1.sigmf-meta"));
}

TEST_F(board_collection_file_test, can_be_written_again_with_other_items)
{
    board_collection collection(place_ / ".", {record("one")});
    collection.write();
    collection.set_streams(0, {{.name = "group-1-item-1", .digest = "abc"}});
    collection.write();
    const auto read = board_collection::read(place_ / ".");
    ASSERT_EQ(read.boards()[0].streams.size(), 1U);
    EXPECT_EQ(read.boards()[0].streams[0].digest, "abc");
}

TEST_F(board_collection_file_test, is_rebuilt_from_the_recordings)
{
    example_description_.source = {{"address", "tcp:one:6110"}, {"board", {{"name", "Wall"}, {"id", "3"}}}};
    const auto two = record("two");
    example_description_.source = {{"address", 7}, {"board", "Wall"}};
    const auto one = record("one");
    static_cast<void>(record(".hidden"));
    std::filesystem::create_directory_symlink("two", place_ / "link");
    std::filesystem::create_directory(place_ / "empty");
    static_cast<void>(place_.write("file", "text"));
    const auto rebuilt = board_collection::rebuild(place_ / board_collection_file);
    ASSERT_EQ(rebuilt.boards().size(), 2U);
    EXPECT_EQ(rebuilt.directory_of(0), place_ / "one");
    EXPECT_EQ(rebuilt.boards()[0].address, std::nullopt);
    EXPECT_EQ(rebuilt.boards()[0].name, std::nullopt);
    EXPECT_EQ(rebuilt.boards()[1].address, "tcp:one:6110");
    EXPECT_EQ(rebuilt.boards()[1].name, "Wall");
    EXPECT_EQ(rebuilt.boards()[1].id, "3");
    EXPECT_EQ(rebuilt.boards()[1].streams[0].digest, two.streams[0].digest);
    rebuilt.write();
    EXPECT_EQ(board_collection::read(place_ / ".").boards()[0].address, std::nullopt);
    EXPECT_THAT(board_collection::read(place_ / ".").changed_documents(), IsEmpty());
}

TEST_F(board_collection_file_test, is_not_rebuilt_without_recordings)
{
    std::filesystem::create_directory(place_ / "empty");
    EXPECT_FALSE(board_collection::is_at(place_ / "."));
    EXPECT_THAT([&] { board_collection::rebuild(place_ / "."); },
                ThrowsMessage<damaged_recording>(HasSubstr("no directory beside it has a recording")));
}

TEST_F(board_collection_file_test, lists_a_damaged_recording_by_its_directory)
{
    static_cast<void>(record("one"));
    static_cast<void>(place_.write("one/session.sigmf-collection", "{"));
    static_cast<void>(place_.write("one/group-1-item-1.sigmf-meta", "{"));
    const auto rebuilt = board_collection::rebuild(place_ / ".");
    ASSERT_EQ(rebuilt.boards().size(), 1U);
    EXPECT_EQ(rebuilt.boards()[0].directory, "one");
    EXPECT_THAT(rebuilt.boards()[0].streams, IsEmpty());
}

TEST_F(board_collection_file_test, is_written_to_a_new_directory_only)
{
    const board_collection first(place_ / "a/b", {{.directory = "one", .address = "sim:"}});
    first.create_directory();
    first.create_directory();
    first.write();
    EXPECT_THAT([&] { first.create_directory(); }, ThrowsMessage<recording_error>(HasSubstr("is not empty")));
}

TEST_F(board_collection_file_test, accepts_addresses_that_are_not_utf_8)
{
    auto board = record("one");
    board.address = "sim:--scene \xe9.json";
    board_collection(place_ / ".", {board}).write();
    EXPECT_EQ(board_collection::read(place_ / ".").boards()[0].address, "sim:--scene \xef\xbf\xbd.json");
}

TEST_F(board_collection_file_test, can_be_read_if_a_recording_is_missing)
{
    board_collection(place_ / ".", {record("one"), record("two")}).write();
    std::filesystem::remove_all(place_ / "one");
    EXPECT_EQ(board_collection::read(place_ / ".").boards().size(), 2U);
}

TEST_F(board_collection_file_test, is_refused_if_it_names_a_place_elsewhere)
{
    for (const char *directory : {"../x", "/etc", "a/b", "..", ".", "", ".hidden", "a\x1b[2J"})
    {
        expect_refused(document(json::array({board(directory)})),
                       "is not the name of a directory beside this file");
    }
    expect_refused(document(json::array({board(std::string(256, 'x'))})), "is not the name of a directory");
    EXPECT_NO_THROW(board_collection::read(
        place_.write(board_collection_file, document(json::array({board(std::string(255, 'x'))})))));
}

TEST_F(board_collection_file_test, does_not_pass_control_characters_on)
{
    const auto file = place_.write(board_collection_file, document(json::array({board("a\x1b[2J")})));
    EXPECT_THAT([&] { board_collection::read(file); },
                ThrowsMessage<bad_recording>(testing::Not(HasSubstr("\x1b"))));
}

TEST_F(board_collection_file_test, is_refused_if_a_directory_is_a_link)
{
    std::filesystem::create_directory(place_ / "other");
    std::filesystem::create_symlink(place_ / "other", place_ / "one");
    expect_refused(document(json::array({board("one")})), "is a symbolic link");
    std::filesystem::remove_all(place_ / "other");
    expect_refused(document(json::array({board("one")})), "is a symbolic link");
}

TEST_F(board_collection_file_test, is_refused_if_a_directory_is_something_else)
{
    static_cast<void>(place_.write("one", "text"));
    expect_refused(document(json::array({board("one")})), "is not a directory");
    ASSERT_EQ(mkfifo((place_ / "two").c_str(), 0600), 0);
    expect_refused(document(json::array({board("two")})), "is not a directory");
}

TEST_F(board_collection_file_test, is_refused_if_members_are_missing_or_have_the_wrong_type)
{
    const std::string reason = "a member is missing or has the wrong type";
    expect_refused("[]", reason);
    expect_refused("{}", reason);
    expect_refused(R"({"collection":7})", reason);
    expect_refused(R"({"collection":{"core:streams":[]}})", reason);
    expect_refused(R"({"collection":{"vantor:boards":[{"directory":"a","address":"sim:"}]}})", reason);
    expect_refused(document("one"), reason);
    expect_refused(document(json::array({json{{"address", "sim:"}}})), reason);
    expect_refused(document(json::array({json{{"directory", "one"}, {"address", 7}}})), reason);
    expect_refused(document(json::array({board(7)})), reason);
    expect_refused(document(json::array({json{{"directory", "one"}, {"address", "sim:"}, {"name", 7}}})),
                   reason);
    expect_refused(document(json::array({"one"})), reason);
    expect_refused(document(json::array({board("one")}), json::array({"one/group-1-item-1"})), reason);
    expect_refused(document(json::array({board("one")}), json::array({json{{"name", "one/group-1-item-1"}}})),
                   reason);
}

TEST_F(board_collection_file_test, is_refused_if_an_item_belongs_to_no_board)
{
    for (const char *name : {"two/group-1-item-1", "group-1-item-1", "one/", "one/../x", "one/a/b", "/one/x"})
    {
        expect_refused(
            document(json::array({board("one")}), json::array({json{{"name", name}, {"hash", ""}}})),
            "is not an item of one of the boards");
    }
}

TEST_F(board_collection_file_test, is_refused_if_boards_share_a_directory)
{
    expect_refused(document(json::array({board("one"), board("two"), board("one")})),
                   "two boards with the directory \"one\"");
}

TEST_F(board_collection_file_test, is_refused_without_boards_or_with_too_many)
{
    expect_refused(document(json::array({})), "lists 0 boards");
    auto many = json::array({});
    for (size_t i = 0; i < most_recorded_boards; ++i)
    {
        many.push_back(board("b" + std::to_string(i)));
    }
    EXPECT_EQ(board_collection::read(place_.write(board_collection_file, document(many))).boards().size(),
              most_recorded_boards);
    many.push_back(board("last"));
    expect_refused(document(many), "lists 1025 boards; a recording has 1 to 1024");
}

TEST_F(board_collection_file_test, is_refused_if_it_is_not_json_of_a_possible_size)
{
    expect_refused("{", "not valid JSON");
    expect_refused(R"({"collection":{},"collection":{}})", "twice");
    expect_refused(std::string((size_t{16} << 20U) + 1, ' '), "too large");
    expect_refused(document(json::array({board("one")}), json(std::vector<int>(200'001))), "values");
}

TEST_F(board_collection_file_test, is_refused_if_it_is_missing_or_not_a_file)
{
    EXPECT_THAT([&] { board_collection::read(place_ / "."); },
                ThrowsMessage<bad_recording>(HasSubstr(board_collection_file)));
    EXPECT_THAT([&] { board_collection::read(place_ / "nowhere"); },
                ThrowsMessage<bad_recording>(HasSubstr("does not exist")));
    ASSERT_EQ(mkfifo((place_ / board_collection_file).c_str(), 0600), 0);
    EXPECT_THAT([&] { board_collection::read(place_ / "."); },
                ThrowsMessage<bad_recording>(HasSubstr("not a regular file")));
}

TEST_F(board_collection_file_test, is_not_written_through_a_link)
{
    const auto other = place_.write("other", "text");
    std::filesystem::create_symlink(other, place_ / board_collection_file);
    EXPECT_THAT([&] { board_collection(place_ / ".", {record("one")}).write(); },
                ThrowsMessage<recording_error>(HasSubstr("symbolic link")));
    EXPECT_EQ(test::read_file(other), "text");
}

TEST_F(board_collection_file_test, makes_its_directory_a_recording_in_which_no_link_is_followed)
{
    board_collection(place_ / ".", {record("one")}).write();
    std::filesystem::rename(place_ / "one", place_ / "moved");
    std::filesystem::create_symlink(place_ / "moved", place_ / "one");
    EXPECT_THAT([&] { recording_writer(place_ / "one/new", test::example_description()); },
                ThrowsMessage<recording_error>(HasSubstr("symbolic link")));
}

} // namespace
} // namespace vantor
