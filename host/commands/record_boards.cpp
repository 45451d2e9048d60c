/** @file
 * Records several boards at the same time.
 */
#include "commands/record_boards.h"

#include <algorithm>
#include <deque>
#include <numeric>
#include <ostream>
#include <string>
#include <utility>

#include "commands/common_options.h"
#include "commands/failure_report.h"
#include "commands/interrupt.h"
#include "commands/next_command.h"
#include "commands/open_files.h"
#include "commands/progress.h"
#include "commands/recording_report.h"
#include "configuration/optional_members.h"
#include "recording/printable.h"
#include "vantor/blocking_work.h"
#include "vantor/board_collection.h"
#include "vantor/errors.h"

namespace vantor
{
namespace
{

/** A board, and what the collection and messages say about it. */
struct named_board
{
    named_board(const record_options &options, board_source source, std::shared_ptr<event_loop> loop)
        : recording(options, std::move(source), std::move(loop))
    {
    }

    board_recording recording;
    recorded_board entry;
};

using named_boards = std::deque<named_board>;

/** Prints the failures of boards; returns the exit code of the first one, or success. */
exit_code report_failures(std::ostream &err, const std::vector<std::string> &names,
                          const std::vector<std::exception_ptr> &failures)
{
    auto result = exit_code::success;
    for (size_t i = 0; i < failures.size(); ++i)
    {
        if (failures[i])
        {
            const auto code = report_failure(err, failures[i], names[i]);
            result = result == exit_code::success ? code : result;
        }
    }
    return result;
}

/** Calls a function for each board, all at the same time; returns the failure of each, null if none. */
template <typename function_t>
std::vector<std::exception_ptr> for_each_board(named_boards &boards, event_loop &loop, function_t work)
{
    for (auto &board : boards)
    {
        loop.spawn([&board, work] { work(board); });
    }
    return loop.run_tasks();
}

/** Whether waiting was cancelled, and nothing else has failed. */
bool are_cancelled(const std::vector<std::exception_ptr> &failures)
{
    const auto is_other = [](const std::exception_ptr &failure) {
        try
        {
            if (failure)
            {
                std::rethrow_exception(failure);
            }
            return false;
        }
        catch (const cancelled &)
        {
            return false;
        }
        catch (...)
        {
            return true;
        }
    };
    return std::any_of(failures.begin(), failures.end(),
                       [](const auto &failure) { return failure != nullptr; }) &&
           std::none_of(failures.begin(), failures.end(), is_other);
}

/** Connects to all boards and sets up their sessions; returns the exit code of the first failure. */
exit_code set_up(named_boards &boards, event_loop &loop, std::ostream &err)
{
    const auto failures = for_each_board(boards, loop, [](named_board &board) { board.recording.set_up(); });
    if (are_cancelled(failures))
    {
        throw cancelled();
    }
    std::vector<std::string> addresses;
    for (const auto &board : boards)
    {
        addresses.push_back(board.recording.address_text());
    }
    return report_failures(err, addresses, failures);
}

/** Describes the boards for the collection, and names their directories. */
std::vector<recorded_board> describe_boards(const named_boards &boards)
{
    std::vector<recorded_board> entries;
    for (const auto &board : boards)
    {
        const auto about = board.recording.server().board.value_or(board_info{});
        entries.push_back({.directory = "",
                           .name = about.name,
                           .id = about.id,
                           .address = to_string(parse_address(board.recording.address_text()))});
    }
    name_directories(entries);
    return entries;
}

/** Writes the collection, with the items as they are now. */
void write_collection(board_collection &collection, const named_boards &boards)
{
    for (size_t i = 0; i < boards.size(); ++i)
    {
        collection.set_streams(i, boards[i].recording.writer().streams());
    }
    collection.write();
}

/** Like the function above, but returns the failure. */
std::exception_ptr write_final_collection(board_collection &collection, const named_boards &boards)
try
{
    write_collection(collection, boards);
    return nullptr;
}
catch (...)
{
    return std::current_exception();
}

/** Creates the files of all boards. */
board_collection create_files(named_boards &boards, const std::filesystem::path &directory)
{
    require_open_files(
        std::accumulate(boards.begin(), boards.end(), size_t{0}, [](size_t sum, const named_board &board) {
            return sum + board.recording.open_files();
        }));
    board_collection collection(directory, describe_boards(boards));
    collection.create_directory();
    for (size_t i = 0; i < boards.size(); ++i)
    {
        boards[i].entry = collection.boards()[i];
        boards[i].recording.create_files(collection.directory_of(i));
    }
    write_collection(collection, boards);
    return collection;
}

/** What a person should know while boards are recorded: which of them have troubles. */
std::string describe_troubles(const named_boards &boards)
{
    std::string text;
    for (const auto &board : boards)
    {
        const auto troubles = board.recording.has_failed() ? ", failed" : board.recording.warnings();
        if (!troubles.empty())
        {
            text += "; " + board.entry.directory + ": " + troubles.substr(2);
        }
    }
    return text;
}

/** Records until all boards have ended; shows progress on a terminal. */
void run(named_boards &boards, event_loop &loop, const record_options &options,
         const command_streams &streams)
{
    progress_line line(streams.err, streams.terminal,
                       {.frames = options.frames * boards.size(), .seconds = options.seconds.value_or(0.0)},
                       loop.clock());
    const auto check = [&] {
        const auto frames =
            std::accumulate(boards.begin(), boards.end(), uint64_t{0},
                            [](uint64_t sum, const auto &board) { return sum + board.recording.frames(); });
        line.update(frames, [&] { return describe_troubles(boards); });
        return interrupt_watch::interrupted();
    };
    const auto failures = for_each_board(boards, loop, [&](named_board &board) {
        board.recording.run(check);
        std::exception_ptr failure;
        run_beside(loop, [&] { failure = board.recording.complete_files(); });
        board.recording.note(failure);
    });
    for (size_t i = 0; i < boards.size(); ++i)
    {
        boards[i].recording.note(failures[i]);
    }
}

/** Describes all recordings as JSON. */
nlohmann::ordered_json to_json(const named_boards &boards, const std::filesystem::path &directory)
{
    auto list = nlohmann::ordered_json::array();
    for (const auto &board : boards)
    {
        nlohmann::ordered_json entry = {{"board", board.entry.directory}};
        set_if_known(entry, "name", board.entry.name);
        set_if_known(entry, "id", board.entry.id);
        set_if_known(entry, "address", board.entry.address);
        const auto failure = board.recording.failure();
        entry["failure"] = failure ? nlohmann::ordered_json(message_of(failure)) : nlohmann::ordered_json();
        entry.update(report_json(board.recording.result()));
        list.push_back(std::move(entry));
    }
    return {{"recording", directory.string()}, {"boards", std::move(list)}};
}

/** Prints what was recorded of each board. */
void print_boards(const named_boards &boards, const std::filesystem::path &directory, std::ostream &out,
                  bool json)
{
    if (json)
    {
        print_json(out, to_json(boards, directory));
        return;
    }
    for (const auto &board : boards)
    {
        out << "board " << board.entry.directory << ":\n";
        print_report(board.recording.result(), out, false);
        out << "\n";
    }
    out << "recording of " << boards.size() << " boards: " << printable(directory.string()) << "\n";
}

/** Prints why boards, or what belongs to all of them, have failed; returns the exit code. */
exit_code report_result(const named_boards &boards, const std::exception_ptr &common_failure,
                        std::ostream &err)
{
    std::vector<std::string> names;
    std::vector<std::exception_ptr> failures;
    for (const auto &board : boards)
    {
        names.push_back(board.entry.directory);
        failures.push_back(board.recording.failure());
    }
    names.emplace_back(board_collection_file);
    failures.push_back(common_failure);
    const auto result = report_failures(err, names, failures);
    const bool interrupted = std::any_of(
        boards.begin(), boards.end(), [](const named_board &board) { return board.recording.interrupted(); });
    return result == exit_code::success && interrupted ? exit_code::interrupted : result;
}

} // namespace

exit_code record_boards(const record_options &options, const command_streams &streams,
                        std::vector<board_source> boards, const std::shared_ptr<event_loop> &loop)
{
    const interrupt_watch watch(*loop);
    named_boards named;
    for (auto &board : boards)
    {
        named.emplace_back(options, std::move(board), loop);
    }
    if (const auto failed = set_up(named, *loop, streams.err); failed != exit_code::success)
    {
        return failed;
    }
    const auto output = output_directory(options);
    auto collection = create_files(named, output);
    run(named, *loop, options, streams);
    const auto common_failure = write_final_collection(collection, named);
    print_boards(named, output, streams.out, options.json);
    const auto result = report_result(named, common_failure, streams.err);
    if (!options.json)
    {
        suggest(streams, "vantor plot", output);
    }
    return result;
}

} // namespace vantor
