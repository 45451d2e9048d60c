/** @file
 * Finds the recordings of boards in a directory.
 */
#include "recording/found_boards.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <system_error>

#include "recording/printable.h"
#include "recording/recording_documents.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;

/** Longest name of a directory that is accepted: that of file systems. */
constexpr size_t longest_name = 255;

/** Whether a path is the directory of a recording that can be listed. */
bool is_board(const std::filesystem::directory_entry &entry)
{
    std::error_code failure;
    return !entry.is_symlink(failure) && entry.is_directory(failure) &&
           is_file_name(entry.path().filename().string()) && has_documents(entry.path());
}

/** A member of an object, if there is one that is a text. */
std::optional<std::string> text_member(const ordered_json &members, const char *name)
{
    const bool is_text = members.is_object() && members.contains(name) && members[name].is_string();
    return is_text ? std::optional(members[name].get<std::string>()) : std::nullopt;
}

/** Describes the recording in a directory; only by its name if its documents cannot be read. */
recorded_board describe(const std::filesystem::path &recording)
{
    recorded_board found{.directory = recording.filename().string()};
    try
    {
        const auto documents = read_documents(recording);
        const auto &source = documents.session.source;
        const auto board = source.is_object() ? source.value("board", ordered_json()) : ordered_json();
        found.name = text_member(board, "name");
        found.id = text_member(board, "id");
        found.address = text_member(source, "address");
        found.streams = listed_streams(documents);
    }
    catch (const bad_recording &)
    {
        // Repairing it reports why.
    }
    return found;
}

} // namespace

bool is_file_name(const std::string &text)
{
    return !text.empty() && text.size() <= longest_name && !text.starts_with('.') &&
           text.find('/') == std::string::npos && printable(text) == text;
}

bool has_recordings_inside(const std::filesystem::path &directory)
{
    std::error_code failure;
    const std::filesystem::directory_iterator entries(directory, failure);
    return !failure && !has_documents(directory) && std::any_of(begin(entries), end(entries), is_board);
}

std::vector<recorded_board> find_boards(const std::filesystem::path &directory)
{
    std::error_code failure;
    const std::filesystem::directory_iterator entries(directory, failure);
    if (failure)
    {
        throw bad_recording("Cannot read " + directory.string() + ": " + failure.message() + ".");
    }
    std::vector<recorded_board> boards;
    for (const auto &entry : entries)
    {
        if (is_board(entry))
        {
            boards.push_back(describe(entry.path()));
        }
    }
    std::ranges::sort(boards, {}, &recorded_board::directory);
    return boards;
}

} // namespace vantor
