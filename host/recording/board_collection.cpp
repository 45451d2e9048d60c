/** @file
 * The document of a recording of several boards.
 */
#include "vantor/board_collection.h"

#include <algorithm>
#include <set>
#include <system_error>
#include <utility>

#include "configuration/optional_members.h"
#include "recording/file_replacement.h"
#include "recording/found_boards.h"
#include "recording/input_file.h"
#include "recording/new_directory.h"
#include "recording/printable.h"
#include "recording/recording_documents.h"
#include "recording/sha512.h"
#include "recording/sigmf.h"
#include "vantor/configuration.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::json;
using nlohmann::ordered_json;

constexpr const char *boards_member = "vantor:boards";
constexpr const char *items_member = "core:streams";

/** Longest name that is made for a directory, without the number of a later one. */
constexpr size_t longest_made_name = 100;

/** The place of the document in a directory. */
std::filesystem::path document_path(const std::filesystem::path &directory)
{
    return directory / board_collection_file;
}

/** Whether a character can be in the name of a directory that is made, in lower case. */
bool is_plain(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

/** The character in lower case, if it is a letter of ASCII. */
char in_lower_case(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/** The name of a directory for a board, which others may have, too. */
std::string made_name(const recorded_board &board)
{
    std::string given = board.name.value_or("");
    given += ' ';
    given += board.id.value_or("");
    std::string made;
    for (const char c : given)
    {
        if (made.size() == longest_made_name)
        {
            break;
        }
        if (is_plain(in_lower_case(c)))
        {
            made += in_lower_case(c);
        }
        else if (!made.empty() && made.back() != '-')
        {
            made += '-';
        }
    }
    if (made.ends_with('-'))
    {
        made.pop_back();
    }
    return made.empty() ? "board" : made;
}

/** A text from a document, for messages. */
std::string quoted(const std::string &text)
{
    std::string shown = "\"";
    shown += printable(text);
    shown += '"';
    return shown;
}

/** Throws bad_recording unless the directories of boards are different names of files. */
void check_boards(const std::filesystem::path &document, const std::vector<recorded_board> &boards)
{
    if (boards.empty() || boards.size() > most_recorded_boards)
    {
        throw bad_recording(document.string() + " lists " + std::to_string(boards.size()) +
                            " boards; a recording has 1 to " + std::to_string(most_recorded_boards) + ".");
    }
    std::set<std::string> seen;
    for (const auto &board : boards)
    {
        const auto shown = quoted(board.directory);
        if (!is_file_name(board.directory))
        {
            throw bad_recording(document.string() + ": " + shown +
                                " is not the name of a directory beside this file.");
        }
        if (!seen.insert(board.directory).second)
        {
            throw bad_recording(document.string() + " lists two boards with the directory " + shown + ".");
        }
    }
}

/** Throws bad_recording if the recording of a board is not in the directory of the document. */
void require_inside(const std::filesystem::path &place)
{
    std::error_code failure;
    const auto found = std::filesystem::symlink_status(place, failure);
    if (std::filesystem::is_symlink(found))
    {
        throw bad_recording(place.string() + " is a symbolic link: a recording of several boards must "
                                             "contain the recordings themselves.");
    }
    if (std::filesystem::exists(found) && !std::filesystem::is_directory(found))
    {
        throw bad_recording(place.string() + " is not a directory.");
    }
}

/** A member that may be missing. */
std::optional<std::string> optional_text(const json &members, const char *name)
{
    return members.contains(name) ? std::optional(members[name].get<std::string>()) : std::nullopt;
}

/** Reads the boards, without their items; throws a JSON exception if a member has the wrong type. */
std::vector<recorded_board> read_boards(const json &list)
{
    std::vector<recorded_board> boards;
    for (const auto &entry : list.get_ref<const json::array_t &>())
    {
        boards.push_back({.directory = entry.at("directory").get<std::string>(),
                          .name = optional_text(entry, "name"),
                          .id = optional_text(entry, "id"),
                          .address = optional_text(entry, "address")});
    }
    return boards;
}

/** Gives each item in a list to its board; throws bad_recording if it belongs to none. */
void read_streams(const std::filesystem::path &document, const json &list,
                  std::vector<recorded_board> &boards)
{
    for (const auto &entry : list.get_ref<const json::array_t &>())
    {
        const auto path = entry.at("name").get<std::string>();
        const auto end = path.find('/');
        const auto directory = path.substr(0, end);
        const auto owner = std::ranges::find(boards, directory, &recorded_board::directory);
        if (end == std::string::npos || owner == boards.end() || !is_file_name(path.substr(end + 1)))
        {
            throw bad_recording(document.string() + ": " + quoted(path) +
                                " is not an item of one of the boards.");
        }
        owner->streams.push_back(
            {.name = path.substr(end + 1), .digest = entry.at("hash").get<std::string>()});
    }
}

/** The directory of a document that may be missing. @param place  the document, or its directory */
std::filesystem::path directory_at(const std::filesystem::path &place)
{
    if (place.filename() != board_collection_file)
    {
        return recording_directory(place);
    }
    return place.has_parent_path() ? place.parent_path() : ".";
}

/** Throws damaged_recording if a document is missing beside recordings. */
void require_document(const std::filesystem::path &document)
{
    std::error_code failure;
    const auto directory = document.parent_path();
    if (!std::filesystem::exists(std::filesystem::symlink_status(document, failure)) &&
        has_recordings_inside(directory))
    {
        throw damaged_recording(
            document.string() + " is missing: if the recordings beside it belong together, \"vantor repair " +
            directory.string() + "\" writes it again; otherwise give one of their directories.");
    }
}

/** Reads the boards from the text of a document. */
std::vector<recorded_board> parse_boards(const std::filesystem::path &document, const std::string &text)
try
{
    const auto members = parse_json_text(text, document.string()).at("collection");
    auto boards = read_boards(members.at(boards_member));
    // Before the items, each of which is searched in the list.
    check_boards(document, boards);
    read_streams(document, members.at(items_member), boards);
    return boards;
}
catch (const json::exception &)
{
    throw bad_recording(document.string() + " was not written by \"vantor record\": a member is missing or "
                                            "has the wrong type.");
}
catch (const configuration_error &failure)
{
    throw bad_recording(failure.what());
}

/** Reads the boards from a document. */
std::vector<recorded_board> read_list(const std::filesystem::path &document)
{
    require_document(document);
    const auto text = read_document_text(document);
    try
    {
        return parse_boards(document, text);
    }
    catch (const bad_recording &failure)
    {
        const auto directory = document.parent_path();
        const auto advice = " \"vantor repair " + directory.string() + "\" writes it again.";
        throw damaged_recording(failure.what() + (has_recordings_inside(directory) ? advice : ""));
    }
}

/** The items of all boards, with their paths in the directory of the document. */
std::vector<collection_stream> all_streams(const std::vector<recorded_board> &boards)
{
    std::vector<collection_stream> all;
    for (const auto &board : boards)
    {
        for (const auto &item : board.streams)
        {
            all.push_back({.name = board.directory + "/" + item.name, .digest = item.digest});
        }
    }
    return all;
}

/** The entry of a board. */
ordered_json describe_entry(const recorded_board &board)
{
    ordered_json entry = {{"directory", board.directory}};
    set_if_known(entry, "name", board.name);
    set_if_known(entry, "id", board.id);
    set_if_known(entry, "address", board.address);
    return entry;
}

/** Whether the metadata of an item have a digest. */
bool has_digest(const std::filesystem::path &path, const std::string &digest)
try
{
    return sha512_of(read_document_text(path)) == digest;
}
catch (const bad_recording &)
{
    return false;
}

} // namespace

void name_directories(std::vector<recorded_board> &boards)
{
    std::set<std::string> taken;
    for (auto &board : boards)
    {
        const auto first = made_name(board);
        board.directory = first;
        for (size_t i = 2; !taken.insert(board.directory).second; ++i)
        {
            board.directory = first + "-" + std::to_string(i);
        }
    }
}

bool board_collection::is_at(const std::filesystem::path &place)
{
    std::error_code failure;
    return place.filename() == board_collection_file ||
           std::filesystem::exists(document_path(place), failure) || has_recordings_inside(place);
}

board_collection board_collection::read(const std::filesystem::path &place)
{
    const auto directory = directory_at(place);
    board_collection collection(directory, read_list(document_path(directory)));
    for (size_t i = 0; i < collection.boards_.size(); ++i)
    {
        require_inside(collection.directory_of(i));
    }
    return collection;
}

board_collection board_collection::rebuild(const std::filesystem::path &place)
{
    const auto directory = directory_at(place);
    auto boards = find_boards(directory);
    if (boards.empty())
    {
        throw damaged_recording(document_path(directory).string() +
                                " cannot be written again: no directory beside it has a recording.");
    }
    return {directory, std::move(boards)};
}

board_collection::board_collection(std::filesystem::path directory, std::vector<recorded_board> boards)
    : directory_(std::move(directory)), boards_(std::move(boards))
{
    check_boards(document_path(directory_), boards_);
}

std::filesystem::path board_collection::directory_of(size_t index) const
{
    return directory_ / boards_.at(index).directory;
}

void board_collection::set_streams(size_t index, std::vector<collection_stream> streams)
{
    boards_.at(index).streams = std::move(streams);
}

std::vector<std::filesystem::path> board_collection::changed_documents() const
{
    std::vector<std::filesystem::path> changed;
    for (const auto &item : all_streams(boards_))
    {
        const auto name = item.name + ".sigmf-meta";
        if (!has_digest(directory_ / name, item.digest))
        {
            changed.emplace_back(name);
        }
    }
    return changed;
}

void board_collection::create_directory() const
{
    make_new_directory(directory_);
}

void board_collection::write() const
{
    auto list = ordered_json::array();
    for (const auto &board : boards_)
    {
        list.push_back(describe_entry(board));
    }
    auto collection = empty_collection();
    collection[items_member] = describe_streams(all_streams(boards_));
    collection[boards_member] = std::move(list);
    const ordered_json document = {{"collection", std::move(collection)}};
    // Addresses can contain file names, which need not be UTF-8.
    const auto text = document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
    replace_files({{.path = document_path(directory_), .text = text}}, link_rule::refused);
}

} // namespace vantor
