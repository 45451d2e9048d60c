/** @file
 * What `vantor info` shows of a recording of several boards.
 */
#include "commands/info_boards.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "commands/info_document.h"
#include "commands/next_command.h"
#include "commands/text_table.h"
#include "recording/number_text.h"
#include "recording/printable.h"
#include "recording/utc_text.h"
#include "vantor/recording_error.h"

namespace vantor
{
namespace
{

using nlohmann::ordered_json;
using utc_moment = std::chrono::sys_time<std::chrono::nanoseconds>;

/** The times of the frames of a board. */
struct board_times
{
    utc_moment first;
    utc_moment last;
};

/** The times in a check; nothing if they are not known. */
std::optional<board_times> times_of(const recording_check &check)
{
    if (check.items.empty() || !check.items.front().figures.times.first)
    {
        return std::nullopt;
    }
    const auto &times = check.items.front().figures.times;
    return board_times{.first = times.first->utc.moment, .last = times.last->utc.moment};
}

/** What the list says of a board. */
ordered_json describe_entry(const recorded_board &board)
{
    ordered_json entry = {{"directory", board.directory}};
    entry["address"] = board.address ? ordered_json(*board.address) : ordered_json();
    entry["name"] = board.name ? ordered_json(*board.name) : ordered_json();
    entry["id"] = board.id ? ordered_json(*board.id) : ordered_json();
    return entry;
}

/** Where the frames of a board are on an axis that begins at a moment, in seconds; null if unknown. */
ordered_json on_axis(const std::optional<board_times> &times, utc_moment start)
{
    const auto seconds = [&](utc_moment moment) {
        return std::chrono::duration<double>(moment - start).count();
    };
    return times ? ordered_json{seconds(times->first), seconds(times->last)} : ordered_json();
}

/** The documents that are not those in the list, as faults. */
std::vector<std::string> list_faults(const board_collection &collection)
{
    std::vector<std::string> faults;
    for (const auto &path : collection.changed_documents())
    {
        faults.push_back(path.string() + " is not the one that " + board_collection_file + " lists.");
    }
    return faults;
}

/** Adds the description of a board; returns the times of its frames. */
std::optional<board_times> add_board(ordered_json &boards, const board_collection &collection, size_t index,
                                     const check_progress &progress)
{
    auto &entry = boards.emplace_back(describe_entry(collection.boards()[index]));
    try
    {
        const auto check = check_recording(collection.directory_of(index), progress);
        entry.update(to_json(check));
        return times_of(check);
    }
    catch (const bad_recording &failure)
    {
        entry["damage"] = {failure.what()};
        return std::nullopt;
    }
}

/** Whether a board is complete. */
bool is_complete(const ordered_json &board)
{
    return board.value("complete", false);
}

/** Whether a board is still being recorded. */
bool is_in_progress(const ordered_json &board)
{
    return board.value("in_progress", false);
}

/** A number of seconds, or "-". */
std::string second(const ordered_json &axis, size_t index)
{
    constexpr int digits = 3;
    return axis.is_null() ? "-" : fixed(axis[index].get<double>(), digits);
}

/** The largest bound of the times of a board in milliseconds, or "-". */
std::string bound_text(const ordered_json &board)
{
    constexpr double milliseconds = 1e3;
    const auto times = board.value("times", ordered_json());
    return times.is_null() ? "-" : three_digits(times["largest_bound_s"].get<double>() * milliseconds);
}

/** A count of a board, or "-". */
std::string count_of(const ordered_json &board, const char *name)
{
    return board.contains(name) ? board[name].dump() : "-";
}

/** The number of frames without a time in UTC; all of them if no time is known. */
std::string undated_text(const ordered_json &board)
{
    const auto times = board.value("times", ordered_json());
    return times.is_null() ? count_of(board, "frames") : times["frames_unknown"].dump();
}

/** The state of a board in a word. */
std::string state_of(const ordered_json &board)
{
    if (!board["damage"].empty())
    {
        return "damaged";
    }
    if (is_in_progress(board))
    {
        return "still being recorded";
    }
    return is_complete(board) ? "complete" : "incomplete";
}

/** The number of breaks of a board. */
uint64_t breaks_of(const ordered_json &board)
{
    return board.contains("breaks") ? board["breaks"].size() + board["breaks_not_listed"].get<uint64_t>() : 0;
}

} // namespace

ordered_json describe_boards(const board_collection &collection, const check_progress &progress)
{
    auto boards = ordered_json::array();
    std::vector<std::optional<board_times>> times;
    auto start = utc_moment::max();
    for (size_t i = 0; i < collection.boards().size(); ++i)
    {
        times.push_back(add_board(boards, collection, i, progress));
        start = times.back() ? std::min(start, times.back()->first) : start;
    }
    const bool complete = std::all_of(boards.begin(), boards.end(), is_complete);
    for (size_t i = 0; i < boards.size(); ++i)
    {
        boards[i]["on_axis_s"] = on_axis(times[i], start);
    }
    ordered_json about = {{"recording", collection.directory().string()}, {"complete", complete}};
    about["axis_start_utc"] =
        start == utc_moment::max() ? ordered_json() : ordered_json(exact_utc_text(start));
    const bool in_progress = std::any_of(boards.begin(), boards.end(), is_in_progress);
    // Before the end, the documents change.
    about["damage"] =
        complete && !in_progress ? ordered_json(list_faults(collection)) : ordered_json::array();
    about["boards"] = std::move(boards);
    return about;
}

void print_boards(std::ostream &out, const ordered_json &about)
{
    const auto &boards = about["boards"];
    const auto &start = about["axis_start_utc"];
    out << printable(about["recording"].get<std::string>()) << ": " << counted(boards.size(), "board")
        << (start.is_null() ? "" : ", times count from " + start.get<std::string>()) << "\n";
    const bool has_breaks = std::any_of(boards.begin(), boards.end(),
                                        [](const ordered_json &board) { return breaks_of(board) > 0; });
    const auto row = [&](std::vector<std::string> cells, std::string breaks) {
        if (has_breaks)
        {
            // After the frames and those that are missing.
            cells.insert(cells.begin() + 3, std::move(breaks));
        }
        return cells;
    };
    text_table table(
        row({"board", "frames", "missing", "from (s)", "to (s)", "known within (ms)", "without UTC", "state"},
            "breaks"));
    for (const auto &board : boards)
    {
        table.add(
            row({printable(board["directory"].get<std::string>()), count_of(board, "frames"),
                 count_of(board, "frames_missing"), second(board["on_axis_s"], 0),
                 second(board["on_axis_s"], 1), bound_text(board), undated_text(board), state_of(board)},
                std::to_string(breaks_of(board))));
    }
    table.print(out);
    for (const auto &fault : about["damage"])
    {
        out << "damage: " << printable(fault.get<std::string>()) << "\n";
    }
    if (!about["damage"].empty())
    {
        out << "to bring the list up to date: vantor repair "
            << shell_word(about["recording"].get<std::string>()) << "\n";
    }
}

} // namespace vantor
