/** @file
 * Shows servers, for `vantor view`.
 */
#include "commands/view_boards.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "commands/board_arguments.h"
#include "commands/interrupt.h"
#include "commands/server_links.h"
#include "commands/truth_option.h"
#include "commands/usage_error.h"
#include "commands/validation.h"
#include "commands/view_pages.h"
#include "recording/printable.h"
#include "vantor/board_collection.h"
#include "vantor/client.h"
#include "vantor/configuration.h"
#include "vantor/recording_source.h"
#include "view/live_view.h"

namespace vantor
{
namespace
{

/** A server that is shown. */
struct viewed_board
{
    viewed_board(board_argument argument, const view_options &options)
        : given(std::move(argument)), served(server_with_truth(parse_address(given.address), options.truth))
    {
    }

    board_argument given;
    truthful_server served;
    recorded_board entry;              /**< of a recording from the start */
    std::filesystem::path record = {}; /**< its directory; empty for none */
    std::optional<client> server;
    nlohmann::json configuration; /**< of the first session */
    std::optional<viewers> all;
    std::optional<live_view> view;
};

using viewed_boards = std::deque<viewed_board>;

/** Refuses options that do not fit the boards. */
void check_view_options(const view_options &options, size_t boards)
{
    if (boards > 1 && !options.truth.empty())
    {
        throw usage_error("--truth is the file of one server, but " + std::to_string(boards) +
                          " boards are given: leave it out, which shows the truth of sim: addresses");
    }
}

/** The configuration of the first session: that of the user, of a replayed recording, or of one sensor. */
nlohmann::json first_configuration(const std::filesystem::path &file, const server_info &server,
                                   const command_streams &streams)
{
    if (!file.empty())
    {
        auto configuration = load_configuration(file);
        require_valid(configuration, file, streams.err);
        return configuration;
    }
    if (server.configuration)
    {
        require_valid(*server.configuration, "The configuration of the server", streams.err);
        return *server.configuration;
    }
    const auto sensor = server.connected_sensors.empty() ? 1U : server.connected_sensors.front();
    const nlohmann::json item{{"sensor_id", sensor}, {"config", nlohmann::json::object()}};
    return {{"update_rate", 20}, {"groups", nlohmann::json::array({nlohmann::json::array({item})})}};
}

/** Connects to a server, and chooses its first configuration. */
void connect_board(viewed_board &board, const std::shared_ptr<event_loop> &loop,
                   const command_streams &streams)
{
    board.server.emplace(links_to(board.served.where, loop, streams), client_timeouts{}, loop);
    const auto &about = board.server->server();
    board.configuration = first_configuration(board.given.file, about, streams);
    if (list_items(board.configuration).empty())
    {
        throw configuration_error(
            "The configuration has no items, so there is nothing to show: add an item to "
            "\"groups\".");
    }
    const auto named = about.board.value_or(board_info{});
    board.entry.name = named.name;
    board.entry.id = named.id;
    board.entry.address = to_string(parse_address(board.given.address));
}

/** Throws the first failure, after a line that says which of several boards has failed. */
void throw_first(const viewed_boards &boards, const std::vector<std::exception_ptr> &failures,
                 std::ostream &err)
{
    const auto failed = std::find_if(failures.begin(), failures.end(),
                                     [](const auto &failure) { return failure != nullptr; });
    if (failed == failures.end())
    {
        return;
    }
    if (boards.size() > 1)
    {
        const auto index = static_cast<size_t>(failed - failures.begin());
        err << "vantor: board " << printable(boards[index].given.address) << " cannot be shown:\n";
    }
    std::rethrow_exception(*failed);
}

/** Connects to all servers at the same time. */
void connect_all(viewed_boards &boards, const std::shared_ptr<event_loop> &loop,
                 const command_streams &streams)
{
    for (auto &board : boards)
    {
        loop->spawn([&board, &loop, &streams] { connect_board(board, loop, streams); });
    }
    throw_first(boards, loop->run_tasks(), streams.err);
}

/** Names the directories of boards. */
void name_boards(viewed_boards &boards)
{
    std::vector<recorded_board> entries;
    for (const auto &board : boards)
    {
        entries.push_back(board.entry);
    }
    name_directories(entries);
    for (size_t i = 0; i < boards.size(); ++i)
    {
        boards[i].entry = entries[i];
    }
}

/** The list of the boards of a recording from the start; nothing without that, or for one board. */
std::optional<board_collection> prepare_recording(viewed_boards &boards, const view_options &options)
{
    if (options.record.empty() || boards.size() == 1)
    {
        boards.front().record = options.record;
        return std::nullopt;
    }
    std::vector<recorded_board> entries;
    for (auto &board : boards)
    {
        entries.push_back(board.entry);
        board.record = options.record / board.entry.directory;
    }
    board_collection collection(options.record, std::move(entries));
    collection.create_directory();
    collection.write();
    return collection;
}

/** The name of recordings of a board. */
std::string recording_name_of(const viewed_board &board, bool is_only)
{
    const auto name = board.given.file.empty() ? "view" : board.given.file.stem().string();
    return is_only ? name : name + "-" + board.entry.directory;
}

/** Adds the viewers of a board, and what they see. */
void add_view(viewed_board &board, bool is_only, view_server &pages, event_loop &loop)
{
    live_view_settings settings{
        .configuration = board.configuration,
        .name = recording_name_of(board, is_only),
        .address = board.given.address,
        .source = describe_source(parse_address(board.given.address), board.server->server()),
        .record = board.record,
        .truth = board.served.truth.get()};
    board.all.emplace(pages);
    board.view.emplace(*board.server, std::move(settings), *board.all, loop);
}

/** Shows all boards until the user asks to stop, or one of them cannot begin. */
void show_all(viewed_boards &boards, event_loop &loop, std::ostream &err)
{
    bool has_failed = false;
    const auto stop = [&has_failed] { return has_failed || interrupt_watch::interrupted(); };
    for (auto &board : boards)
    {
        loop.spawn([&] {
            try
            {
                board.view->run(stop);
            }
            catch (...)
            {
                has_failed = true;
                throw;
            }
        });
    }
    throw_first(boards, loop.run_tasks(), err);
}

/** Completes the list of the boards with what was recorded. */
void finish_recording(board_collection &collection, const viewed_boards &boards)
{
    for (size_t i = 0; i < boards.size(); ++i)
    {
        collection.set_streams(i, boards[i].view->first_recording());
    }
    collection.write();
}

/** Reports recordings that are not complete; returns whether there are any. */
bool report_recordings(const viewed_boards &boards, const command_streams &streams)
{
    bool any = false;
    for (const auto &board : boards)
    {
        for (const auto &outcome : board.view->failed_recordings())
        {
            streams.err << "vantor: " << printable(outcome.text()) << "\n";
            any = true;
        }
    }
    return any;
}

} // namespace

exit_code view_boards(const view_options &options, const command_streams &streams)
{
    const auto arguments = board_arguments(options.what, options.connect, options.boards);
    check_view_options(options, arguments.size());
    const auto loop = std::make_shared<event_loop>();
    const interrupt_watch watch(*loop);
    view_pages pages(options, streams, *loop);
    viewed_boards boards;
    for (const auto &argument : arguments)
    {
        boards.emplace_back(argument, options);
    }
    connect_all(boards, loop, streams);
    name_boards(boards);
    auto collection = prepare_recording(boards, options);
    for (auto &board : boards)
    {
        add_view(board, boards.size() == 1, pages.server(), *loop);
    }
    pages.run([&] { show_all(boards, *loop, streams.err); });
    if (collection)
    {
        finish_recording(*collection, boards);
    }
    return report_recordings(boards, streams) ? exit_code::not_written : exit_code::success;
}

} // namespace vantor
