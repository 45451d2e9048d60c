/** @file
 * Runs `vantor view`, in a build with the live view.
 */
#include "commands/view_run.h"

#include <filesystem>
#include <list>
#include <memory>
#include <ostream>

#include "commands/damage.h"
#include "commands/interrupt.h"
#include "commands/usage_error.h"
#include "commands/view_boards.h"
#include "commands/view_pages.h"
#include "recording/printable.h"
#include "vantor/board_collection.h"
#include "vantor/recording_error.h"
#include "view/boards_playback.h"
#include "view/playback_view.h"

namespace vantor
{
namespace
{

/** Whether the argument names a recording, not a configuration. */
bool is_recording(const std::filesystem::path &what)
{
    std::error_code failure;
    return std::filesystem::is_directory(what, failure) || what.extension().string().starts_with(".sigmf-");
}

/** Throws cancelled if the user has asked to stop. */
void stop_if_interrupted()
{
    if (interrupt_watch::interrupted())
    {
        throw cancelled();
    }
}

/** Refuses options that are only for servers. */
void refuse_server_options(const view_options &options)
{
    if (!options.record.empty())
    {
        throw usage_error("--record is for a server; this is a recording already");
    }
    if (!options.boards.empty())
    {
        throw usage_error("--board is for a server; this is a recording already");
    }
    if (!options.truth.empty())
    {
        throw usage_error("--truth is for a server; a recording has its own truth");
    }
}

/** Refuses a recording without frames. */
void require_frames(const recording_reader &recording)
{
    if (recording.frames() == 0)
    {
        throw bad_recording("The recording has no complete frame, so there is nothing to show.");
    }
}

/** Shows a recording. */
exit_code view_recording(const view_options &options, const command_streams &streams)
{
    recording_reader recording(options.what);
    require_frames(recording);
    const auto loop = std::make_shared<event_loop>();
    const interrupt_watch watch(*loop);
    warn_of_damage(recording, streams, stop_if_interrupted);
    view_pages pages(options, streams, *loop);
    viewers all(pages.server());
    playback_view view(recording, all, *loop);
    pages.run([&] { view.run(interrupt_watch::interrupted); });
    return exit_code::success;
}

/** What viewers of a board in a recording receive first. */
nlohmann::ordered_json greeting_of(const recording_reader &recording, const recorded_board &board)
{
    auto hello = playback_board::greeting(recording);
    hello["name"] = board.name.value_or(board.directory);
    hello["id"] = board.id ? nlohmann::ordered_json(*board.id) : nlohmann::ordered_json();
    hello["source"] = board.address.value_or("");
    return hello;
}

/** A board in a recording. */
struct board_to_play
{
    recorded_board about;
    recording_reader recording;
};

/** Opens a board, whose recording must have frames. */
board_to_play open_board(const board_collection &collection, size_t index, const command_streams &streams)
{
    board_to_play board{.about = collection.boards().at(index),
                        .recording = recording_reader(collection.directory_of(index))};
    require_frames(board.recording);
    warn_of_damage(board.recording, streams, stop_if_interrupted);
    return board;
}

/** Opens all boards; leaves out those that cannot be shown, with a warning. */
std::list<board_to_play> open_boards(const board_collection &collection, const command_streams &streams)
{
    std::list<board_to_play> boards;
    for (size_t i = 0; i < collection.boards().size(); ++i)
    {
        try
        {
            boards.push_back(open_board(collection, i, streams));
        }
        catch (const bad_recording &failure)
        {
            streams.err << "warning: board " << printable(collection.boards()[i].directory)
                        << " is left out: " << printable(failure.what()) << "\n";
        }
    }
    if (boards.empty())
    {
        throw bad_recording("No board of the recording can be shown.");
    }
    return boards;
}

/** Shows a recording of several boards. */
exit_code view_recorded_boards(const view_options &options, const command_streams &streams)
{
    const auto collection = board_collection::read(options.what);
    const auto loop = std::make_shared<event_loop>();
    const interrupt_watch watch(*loop);
    auto boards = open_boards(collection, streams);
    view_pages pages(options, streams, *loop);
    std::list<viewers> all;
    boards_playback view(*loop);
    for (auto &[about, recording] : boards)
    {
        view.add(recording, greeting_of(recording, about), all.emplace_back(pages.server()));
    }
    pages.run([&] { view.run(interrupt_watch::interrupted); });
    return exit_code::success;
}

} // namespace

exit_code run_view(const view_options &options, const command_streams &streams)
{
    if (!is_recording(options.what))
    {
        return view_boards(options, streams);
    }
    refuse_server_options(options);
    return board_collection::is_at(options.what) ? view_recorded_boards(options, streams)
                                                 : view_recording(options, streams);
}

} // namespace vantor
